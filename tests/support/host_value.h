// Host arrays as values that tests can write out, compare and print.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "host/array.h"
#include "tests/support/arrays.h"

namespace tb::test {

// Class, dimensions and elements of an array; the elements of every class but uint64 fit a double
// exactly, and those of uint64 do up to 2^53. Cells hold values in turn, unset ones class unknown.
struct HostValue {
  vxClassID classId = vxUNKNOWN;
  Dimensions dimensions;
  std::vector<double> elements;
  std::vector<HostValue> cells;

  bool operator==(const HostValue&) const = default;
};
void PrintTo(const HostValue& value, std::ostream* out);

HostValue valueOf(const vxArray* array);
inline HostValue valueOf(const vxArrayPtr& array) { return valueOf(array.get()); }

// What an operation should return: doubles of one element, a row or a matrix given column by
// column; a uint64 or uint8 row; text.
HostValue aDouble(double element);
HostValue aRow(const std::vector<double>& elements);
HostValue aMatrix(std::size_t rows, std::size_t columns, const std::vector<double>& elements);
HostValue aRowOf(vxClassID classId, const std::vector<double>& elements);
HostValue aText(const std::string& text);
HostValue aCell(const std::vector<HostValue>& cells);

}  // namespace tb::test

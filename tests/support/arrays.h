// Host arrays for tests: made in one expression and read back as plain values. Everything goes
// through host/array.h, so that a test sees what any caller of the module sees.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/array.h"

namespace tb::test {

using Dimensions = std::vector<std::size_t>;

// The host class whose elements are of type T: double, float, fixed-width integers, bool for
// logical and char16_t for char.
template <class T>
constexpr vxClassID classOf() {
  if (std::is_same_v<T, bool>) return vxLOGICAL;
  if (std::is_same_v<T, char16_t>) return vxCHAR;
  if (std::is_same_v<T, double>) return vxDOUBLE;
  if (std::is_same_v<T, float>) return vxSINGLE;
  constexpr int kSigned[] = {0, vxINT8, vxINT16, 0, vxINT32, 0, 0, 0, vxINT64};
  return static_cast<vxClassID>(kSigned[sizeof(T)] + (std::is_unsigned_v<T> ? 1 : 0));
}

// A zero-filled array of any class that has elements; cells for vxCELL.
vxArrayPtr zeros(vxClassID classId, const Dimensions& dimensions);

// Bytes an element of the class takes in an array.
std::size_t elementSize(vxClassID classId);

// An array of the given shape with `elements` in storage order.
template <class T>
vxArrayPtr arrayOf(const Dimensions& dimensions, const std::vector<T>& elements) {
  vxArrayPtr array = zeros(classOf<T>(), dimensions);
  auto* to = static_cast<T*>(vxGetWritableData(array.get()));
  for (const T element : elements) *to++ = element;
  return array;
}

// A 1-by-N row of doubles, and a 1-by-1 array of another class.
vxArrayPtr row(const std::vector<double>& elements);
template <class T>
vxArrayPtr scalar(T value) {
  return arrayOf<T>({1, 1}, {value});
}

// A 1-by-N char array: one unit for each byte, or the units as they are.
vxArrayPtr text(std::string_view bytes);
vxArrayPtr text(std::u16string_view units);

// A 1-by-N cell array of texts.
vxArrayPtr cellOfTexts(const std::vector<std::string>& texts);

// A 1-by-1 struct with one unset field.
vxArrayPtr structure();

// An image whose element (row, column, plane) is value(row, column, plane).
template <class T>
vxArrayPtr image(std::size_t rows, std::size_t columns, std::size_t planes,
                 const std::function<T(std::size_t, std::size_t, std::size_t)>& value) {
  vxArrayPtr array = zeros(classOf<T>(), {rows, columns, planes});
  auto* to = static_cast<T*>(vxGetWritableData(array.get()));
  for (std::size_t plane = 0; plane < planes; ++plane)
    for (std::size_t column = 0; column < columns; ++column)
      for (std::size_t r = 0; r < rows; ++r) *to++ = value(r, column, plane);
  return array;
}

// --- What an array holds

Dimensions dimensionsOf(const vxArrayPtr& array);

// The elements in storage order; none when there is no array or its class is not T's.
template <class T>
std::vector<T> elementsOf(const vxArrayPtr& array) {
  if (array == nullptr || vxGetClassID(array.get()) != classOf<T>()) return {};
  const auto* from = static_cast<const T*>(vxGetData(array.get()));
  return std::vector<T>(from, from + vxGetNumberOfElements(array.get()));
}

// The elements' bytes in storage order, whatever the class.
std::vector<std::byte> bytesOf(const vxArrayPtr& array);

// The entries of a 4 x width x height array of bytes as libtiff packs them, with red in the lowest.
std::vector<std::uint32_t> rgbaEntriesOf(const vxArrayPtr& array);

// The text of a char array, one byte a unit.
std::string textOf(const vxArrayPtr& array);

}  // namespace tb::test

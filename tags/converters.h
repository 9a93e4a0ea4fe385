// Host values as TIFF values: one family of templates over convertNumber, whose range check and
// truncation apply to every element. All take the tag's number and name for the sake of one shape;
// only the name is used, in the errors.
#pragma once

#include <tiffio.h>

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "core/errors.h"
#include "core/values.h"

namespace tb {

// True for a double array of two dimensions with `width` columns.
bool isDoubleMatrix(const vxArray* value, std::size_t width);

// One element; doubles, the host's own numbers, pass as they are.
template <class T>
T convertElement(double element) {
  if constexpr (std::same_as<T, double>)
    return element;
  else
    return convertNumber<T>(element);
}

// The one element of a double array.
// Raises tagValueNotDoublePrecisionScalar(tagName) for another class or number of elements, then
// overflows.
template <class T>
T unpackTagScalar(const vxArray* value, std::uint32_t, const std::string& tagName) {
  if (vxGetClassID(value) != vxDOUBLE || vxGetNumberOfElements(value) != 1)
    raise<Tiff::tagValueNotDoublePrecisionScalar>(tagName);
  return convertElement<T>(vxGetScalar(value));
}

// All elements of a double array of any shape, in storage order; there may be none.
// Raises tagValueNotDoublePrecisionArray(tagName) for another class, then overflows.
template <class T>
std::vector<T> unpackTagArray(const vxArray* value, std::uint32_t, const std::string& tagName) {
  if (vxGetClassID(value) != vxDOUBLE) raise<Tiff::tagValueNotDoublePrecisionArray>(tagName);
  const std::span<const double> elements = elementsOf<double>(value);
  std::vector<T> result(elements.size());
  std::ranges::transform(elements, result.begin(), convertElement<T>);
  return result;
}

// The rows of a double matrix one after the other: element (row, column) becomes element
// row * width + column.
// Raises bad2DtagValue(tagName, width) unless the value is double, has two dimensions and `width`
// columns, then overflows.
template <class T>
std::vector<T> unpackTag2DArray(const vxArray* value, std::uint32_t, const std::string& tagName,
                                std::size_t width) {
  if (!isDoubleMatrix(value, width)) raise<Tiff::bad2DtagValue>(tagName, width);
  const std::span<const double> elements = elementsOf<double>(value);
  const std::size_t rows = vxGetDimensions(value)[0];
  std::vector<T> result(elements.size());
  for (std::size_t column = 0; column < width; ++column)
    for (std::size_t row = 0; row < rows; ++row)
      result[row * width + column] = convertElement<T>(elements[row + column * rows]);
  return result;
}

// As many elements as a tag has values.
// Raises as unpackTagArray, then badTagValueCount(literal, count). `literal` is the tag's name in
// the message, which the host's catalog knows by other words for some tags.
template <class T>
std::vector<T> unpackTagValues(const vxArray* value, std::uint32_t tag, const std::string& tagName,
                               std::size_t count, const std::string& literal) {
  std::vector<T> values = unpackTagArray<T>(value, tag, tagName);
  if (values.size() != count) raise<Tiff::badTagValueCount>(literal, count);
  return values;
}

// The text of a char array of any shape, one byte an element, up to the first NUL: libtiff takes
// text by its end. Raises argumentWasNotChar(tagName) for another class; an element above 255 is
// the host's own error.
std::string unpack_string(const vxArray* value, std::uint32_t tag, const std::string& tagName);

}  // namespace tb

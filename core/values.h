// Host values in and out: the numbers that every handler reads and the scalars it returns.
#pragma once

#include <algorithm>
#include <boost/numeric/conversion/cast.hpp>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "host/array.h"

namespace tb {

// A host number as a TIFF number: Boost's range check, then truncation toward zero. For an integer
// of N bits everything strictly between -1 (or the lowest value less 1) and 2^N passes.
// Throws boost::numeric::positive_overflow or negative_overflow, which the gateway reports as
// argumentOutOfBounds. NaN passes Boost's check although casting it to an integer is undefined, so
// it becomes 0 first.
template <std::integral T>
T convertNumber(double value) {
  if (value != value) return 0;
  return boost::numeric_cast<T>(value);
}

// One integer as another, under the same range check.
template <std::integral T, std::integral Source>
T convertNumber(Source value) {
  return boost::numeric_cast<T>(value);
}

// A double as single precision: NaN stays NaN, infinities and values beyond the largest finite
// single overflow.
template <std::same_as<float> T>
T convertNumber(double value) {
  return boost::numeric_cast<T>(value);
}

// A count from a file, which has 64 bits on every machine, as one of elements in memory.
// Throws std::bad_alloc when there is no memory for as many.
inline std::size_t countInMemory(std::uint64_t count) {
  if (!std::in_range<std::size_t>(count)) throw std::bad_alloc();
  return static_cast<std::size_t>(count);
}

// The elements of an array as bytes, in storage order.
inline const std::byte* dataOf(const vxArray* array) noexcept {
  return static_cast<const std::byte*>(vxGetData(array));
}
inline std::byte* writableDataOf(vxArray* array) noexcept {
  return static_cast<std::byte*>(vxGetWritableData(array));
}

// The same as elements of T, which is what the array's class holds.
template <class T>
std::span<const T> elementsOf(const vxArray* array) noexcept {
  return {static_cast<const T*>(vxGetData(array)), vxGetNumberOfElements(array)};
}
template <class T>
std::span<T> writableElementsOf(vxArray* array) noexcept {
  return {static_cast<T*>(vxGetWritableData(array)), vxGetNumberOfElements(array)};
}

// The first element of an argument, whose class is not looked at; 0 of an empty one. The host
// promises 16 readable bytes behind every array.
template <class T>
T firstElement(const vxArray* argument) noexcept {
  T element = 0;
  std::memcpy(&element, vxGetData(argument), sizeof element);
  return element;
}

// vxArrayToString with an owner; null when there is no array or it is not of class char.
struct HostStringDeleter {
  void operator()(char* text) const noexcept { vxFree(text); }
};
using HostString = std::unique_ptr<char, HostStringDeleter>;
inline HostString hostString(const vxArray* value) {
  if (value == nullptr || vxGetClassID(value) != vxCHAR) return nullptr;
  return HostString(vxArrayToString(value));
}

// Element `index` (0 or 1) of an argument by its value, whatever its class: of char the code unit,
// of a cell or struct 0, and 0 where there is no such element. The host promises 16 readable bytes
// behind every array.
double numberAt(const vxArray* argument, std::size_t index) noexcept;

// The first element of an argument by its value, as a strip, tile, row, sample, directory or tag
// number.
template <std::integral T>
T unpackNumber(const vxArray* argument) {
  return convertNumber<T>(numberAt(argument, 0));
}

// 1-by-1 arrays.
vxArrayPtr doubleScalar(double value);
vxArrayPtr logicalScalar(bool value);

// A 1-by-N double row of the values.
template <class T>
vxArrayPtr doubleRow(std::span<const T> values) {
  const std::size_t dimensions[] = {1, values.size()};
  vxArrayPtr row = matrix::detail::do_create_uninitnumeric(vxDOUBLE, dimensions);
  std::ranges::transform(values, writableElementsOf<double>(row.get()).begin(),
                         [](T value) { return static_cast<double>(value); });
  return row;
}

}  // namespace tb

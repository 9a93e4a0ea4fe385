// Writers of the tags that stand alone: a number, a pair, text or an array of a fixed length. They
// are templates, so that a row of the table picks one with its type, count and the name
// that its message carries. Their checks raise as the converters do.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>

#include "core/field_guard.h"
#include "tags/converters.h"
#include "tags/photometric_checks.h"

namespace tb {

// The name of its tag that a message carries, as a template argument; empty for the tag's own name.
template <std::size_t N>
struct Literal {
  char text[N];
  // NOLINTNEXTLINE(google-explicit-constructor): a literal converts to a template argument.
  consteval Literal(const char (&literal)[N]) { std::copy_n(literal, N, text); }
};

template <Literal Name>
std::string nameInMessage(const std::string& tagName) {
  return sizeof(Name.text) > 1 ? Name.text : tagName;
}

template <class T>
int setScalar(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  return storeField(tif, tag, unpackTagScalar<T>(value, tag, tagName));
}

// A number of rows or columns. Raises zeroLengthDimension(tagName).
inline int setDimension(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                        const vxArray* value) {
  const auto length = unpackTagScalar<std::uint32_t>(value, tag, tagName);
  if (length == 0) raise<Tiff::zeroLengthDimension>(tagName);
  return storeField(tif, tag, length);
}

// Raises badTileDimension(tagName), then zeroLengthDimension(tagName).
inline int setTileDimension(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                            const vxArray* value) {
  const auto length = unpackTagScalar<std::uint32_t>(value, tag, tagName);
  if (length % 16 != 0) raise<Tiff::badTileDimension>(tagName);
  if (length == 0) raise<Tiff::zeroLengthDimension>(tagName);
  return storeField(tif, tag, length);
}

// A float or double, which converts as an array of one.
// Raises tagValueNotDoublePrecisionScalar(tagName) for another count.
template <class T>
int setReal(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  const std::vector<T> values = unpackTagArray<T>(value, tag, tagName);
  if (values.size() != 1) raise<Tiff::tagValueNotDoublePrecisionScalar>(tagName);
  return storeField(tif, tag, values.front());
}

// Two numbers, which libtiff takes one by one. Raises badTagValueCount(name, 2).
template <Literal Name = "">
int setPair(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  const auto pair =
      unpackTagValues<std::uint16_t>(value, tag, tagName, 2, nameInMessage<Name>(tagName));
  return storeField(tif, tag, pair[0], pair[1]);
}

inline int setText(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  return storeField(tif, tag, unpack_string(value, tag, tagName).c_str());
}

// Floats of a number that libtiff knows. Raises badTagValueCount(name, Count).
template <std::size_t Count, Literal Name>
int setFloats(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  return storeField(tif, tag, unpackTagValues<float>(value, tag, tagName, Count, Name.text).data());
}

// Doubles with a count. Raises badTagValueCount(name, Count) when Count is given.
template <std::size_t Count = 0, Literal Name = "">
int setDoubles(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  const auto values = unpackTagArray<double>(value, tag, tagName);
  if (Count != 0 && values.size() != Count) raise<Tiff::badTagValueCount>(Name.text, Count);
  return storeArray<CountWidth::bits16>(tif, tag, std::span<const double>(values));
}

// A matrix with one record of `Width` numbers a row.
template <class T, std::size_t Width>
int setRecords(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  const std::vector<T> values = unpackTag2DArray<T>(value, tag, tagName, Width);
  return storeArray<CountWidth::bits16>(tif, tag, std::span<const T>(values));
}

// Another writer behind checkForSeparatedPhotometricInterpretation.
template <auto Write>
int whenSeparated(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  checkForSeparatedPhotometricInterpretation(tif, tag, tagName);
  return Write(tif, tag, tagName, value);
}

}  // namespace tb

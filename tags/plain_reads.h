// Readers of the tags that stand alone: a number, a pair or text. They are templates where the type
// that libtiff holds differs, which a row of the table names.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>

#include "core/errors.h"
#include "core/field_guard.h"
#include "core/values.h"

namespace tb {

// Tags that libtiff can default never fail: what the fetch leaves is the answer.
template <class T>
vxArrayPtr defaulted(TIFF* tif, std::uint32_t tag, const std::string&) {
  return doubleScalar(fieldOrDefault<T>(tif, tag));
}

inline vxArrayPtr defaultedPair(TIFF* tif, std::uint32_t tag, const std::string&) {
  std::uint16_t pair[2] = {};
  fetchDefaulted(tif, tag, pair[0], pair[1]);
  return doubleRow<std::uint16_t>(pair);
}

// These raise tagRetrievalFailed(tagName) when the tag is absent.
template <class T>
vxArrayPtr required(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  T value{};
  if (!fetchField(tif, tag, &value)) raise<Tiff::tagRetrievalFailed>(tagName);
  return doubleScalar(static_cast<double>(value));
}

inline vxArrayPtr requiredPair(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  std::uint16_t pair[2] = {};
  if (!fetchField(tif, tag, &pair[0], &pair[1])) raise<Tiff::tagRetrievalFailed>(tagName);
  return doubleRow<std::uint16_t>(pair);
}

inline vxArrayPtr requiredText(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const char* text = nullptr;
  if (!fetchField(tif, tag, &text)) raise<Tiff::tagRetrievalFailed>(tagName);
  return matrix::create(text != nullptr ? text : "");
}

}  // namespace tb

#include "tags/counted_reads.h"

#include <algorithm>
#include <cstddef>

#include "core/errors.h"
#include "core/field_guard.h"
#include "tags/tag_number.h"

namespace tb {
namespace {

// What libtiff holds for a tag with a count.
template <class T>
struct Counted {
  int status = 0;
  std::span<const T> values;
};

template <class Count, class T>
Counted<T> fetchCounted(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  constexpr CountWidth kWidth = sizeof(Count) == 2 ? CountWidth::bits16 : CountWidth::bits32;
  Count count = 0;
  const T* values = nullptr;
  const int status = fetchField<kWidth>(tif, tag, &count, &values);
  check_field_status(status, tagName);
  return {status, {values, values != nullptr ? std::size_t{count} : 0}};
}

// A row of a class whose elements are as wide as T, holding the values as they are.
template <class T, class Element = T>
vxArrayPtr rowOf(vxClassID classId, std::span<const T> values) {
  const std::size_t dimensions[] = {1, values.size()};
  vxArrayPtr row = matrix::detail::do_create_uninitnumeric(classId, dimensions);
  std::ranges::copy(values, static_cast<Element*>(vxGetWritableData(row.get())));
  return row;
}

// One record of `width` values a row.
template <class T>
vxArrayPtr matrixOfRecords(std::span<const T> values, std::size_t width) {
  const std::size_t records = values.size() / width;
  const std::size_t dimensions[] = {records, width};
  vxArrayPtr matrix = matrix::detail::do_create_numeric(vxDOUBLE, dimensions);
  auto* elements = static_cast<double*>(vxGetWritableData(matrix.get()));
  for (std::size_t record = 0; record < records; ++record)
    for (std::size_t field = 0; field < width; ++field)
      elements[record + field * records] = values[record * width + field];
  return matrix;
}

// fetchCounted has raised already when the status is 0. The second look keeps a tag from being
// returned unread should that check ever go.
void checkReadOnce(int status, std::uint32_t tag) {
  if (status == 0) raise<Tiff::unableToReadTag>(tag);
}

std::size_t floatCount(std::uint32_t tag) noexcept {
  switch (tag) {
    case TIFFTAG_WHITEPOINT:
      return 2;
    case TIFFTAG_YCBCRCOEFFICIENTS:
      return 3;
    case TIFFTAG_PRIMARYCHROMATICITIES:
    case TIFFTAG_REFERENCEBLACKWHITE:
      return 6;
    default:
      return 0;
  }
}

void warnAboutCount(std::uint32_t tag, std::size_t count) {
  if (tag == kModelPixelScaleTag && count != 3)
    warn(Warning::wrongSizedTagRetrieval, 3, "ModelPixelScaleTag", count);
  if (tag == kModelTransformationTag && count != 16)
    warn(Warning::wrongSizedTagRetrieval, 16, "ModelTransformationTag", count);
  // The RPC tag warns with the other identifier and the count first; the host's catalog relies on
  // this order.
  if (tag == kRpcCoefficientTag && count != 92)
    warn(Warning::badMultipleTagValueRetrieved, count, "RPCCoefficientTag", 92);
}

}  // namespace

vxArrayPtr retrieveCountpVoidpp(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const auto bytes = fetchCounted<std::uint32_t, std::uint8_t>(tif, tag, tagName).values;
  if (tag == TIFFTAG_XMLPACKET) return rowOf<std::uint8_t, char16_t>(vxCHAR, bytes);
  return rowOf(vxUINT8, bytes);
}

vxArrayPtr retrieveFloatpp(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const float* values = nullptr;
  check_field_status(fetchField(tif, tag, &values), tagName);
  const std::size_t count = floatCount(tag);
  if (count == 0) return nullptr;
  return doubleRow(std::span(values, values != nullptr ? count : 0));
}

vxArrayPtr retrieveCountpDoublepp(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const auto values = fetchCounted<std::uint16_t, double>(tif, tag, tagName).values;
  if (tag == kModelTiepointTag) {
    if (values.size() % 6 != 0)
      raise<Tiff::badMultipleTagValueRetrieved>(values.size(), "ModelTiepointTag", 6);
    return matrixOfRecords(values, 6);
  }
  warnAboutCount(tag, values.size());
  return doubleRow(values);
}

vxArrayPtr retrieveGeoKeyDirectory(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const auto [status, keys] = fetchCounted<std::uint16_t, std::uint16_t>(tif, tag, tagName);
  if (keys.size() % 4 != 0)
    raise<Tiff::badMultipleTagValueRetrieved>(keys.size(), "GeoKeyDirectoryTag", 4);
  vxArrayPtr matrix = matrixOfRecords(keys, 4);
  checkReadOnce(status, tag);
  return matrix;
}

vxArrayPtr retrieveExtraSamples(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const auto [status, samples] = fetchCounted<std::uint16_t, std::uint16_t>(tif, tag, tagName);
  vxArrayPtr row = doubleRow(samples);
  checkReadOnce(status, tag);
  return row;
}

vxArrayPtr retrieveSubIfd(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const auto [status, offsets] = fetchCounted<std::uint16_t, std::uint64_t>(tif, tag, tagName);
  vxArrayPtr row = rowOf(vxUINT64, offsets);
  checkReadOnce(status, tag);
  return row;
}

}  // namespace tb

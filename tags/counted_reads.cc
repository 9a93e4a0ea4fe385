#include "tags/counted_reads.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "core/errors.h"
#include "core/field_guard.h"
#include "core/values.h"

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
  std::ranges::copy(values, writableElementsOf<Element>(row.get()).begin());
  return row;
}

// One record of `width` values a row.
// Raises badMultipleTagValueRetrieved(count, tagName, width).
template <class T>
vxArrayPtr matrixOfRecords(std::span<const T> values, const std::string& tagName,
                           std::size_t width) {
  if (values.size() % width != 0)
    raise<Tiff::badMultipleTagValueRetrieved>(values.size(), tagName, width);
  const std::size_t records = values.size() / width;
  const std::size_t dimensions[] = {records, width};
  vxArrayPtr matrix = matrix::detail::do_create_numeric(vxDOUBLE, dimensions);
  const std::span elements = writableElementsOf<double>(matrix.get());
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

}  // namespace

vxArrayPtr retrieveCountpVoidpp(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                                vxClassID classId) {
  const auto bytes = fetchCounted<std::uint32_t, std::uint8_t>(tif, tag, tagName).values;
  if (classId == vxCHAR) return rowOf<std::uint8_t, char16_t>(classId, bytes);
  return rowOf(classId, bytes);
}

vxArrayPtr retrieveFloatpp(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                           std::size_t count) {
  const float* values = nullptr;
  check_field_status(fetchField(tif, tag, &values), tagName);
  return doubleRow(std::span(values, values != nullptr ? count : 0));
}

vxArrayPtr retrieveCountpDoublepp(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                                  std::size_t expected, WrongCount wrong) {
  const auto values = fetchCounted<std::uint16_t, double>(tif, tag, tagName).values;
  const std::size_t count = values.size();
  if (wrong == WrongCount::warns && count != expected)
    warn(Warning::wrongSizedTagRetrieval, expected, tagName, count);
  // The RPC tag warns with the other identifier and the count first; the host's catalog relies on
  // this order.
  if (wrong == WrongCount::warnsCountFirst && count != expected)
    warn(Warning::badMultipleTagValueRetrieved, count, tagName, expected);
  return doubleRow(values);
}

vxArrayPtr retrieveTiepoints(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  return matrixOfRecords(fetchCounted<std::uint16_t, double>(tif, tag, tagName).values, tagName, 6);
}

vxArrayPtr retrieveGeoKeyDirectory(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const auto [status, keys] = fetchCounted<std::uint16_t, std::uint16_t>(tif, tag, tagName);
  vxArrayPtr matrix = matrixOfRecords(keys, tagName, 4);
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

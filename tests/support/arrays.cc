#include "tests/support/arrays.h"

namespace tb::test {

vxArrayPtr zeros(vxClassID classId, const Dimensions& dimensions) {
  if (classId == vxCELL) return matrix::detail::do_create_cell(dimensions);
  return matrix::detail::do_create_numeric(classId, dimensions);
}

std::size_t elementSize(vxClassID classId) {
  return vxGetElementSize(zeros(classId, {1, 1}).get());
}

vxArrayPtr row(const std::vector<double>& elements) {
  return arrayOf<double>({1, elements.size()}, elements);
}

vxArrayPtr text(std::string_view bytes) { return matrix::create(bytes); }

vxArrayPtr text(std::u16string_view units) {
  return arrayOf<char16_t>({1, units.size()}, {units.begin(), units.end()});
}

vxArrayPtr cellOfTexts(const std::vector<std::string>& texts) {
  vxArrayPtr cell = zeros(vxCELL, {1, texts.size()});
  for (std::size_t i = 0; i < texts.size(); ++i)
    vxSetCell(cell.get(), i, matrix::create(texts[i]).release());
  return cell;
}

vxArrayPtr structure() {
  const std::size_t dimensions[] = {1, 1};
  const char* const names[] = {"field"};
  return matrix::detail::do_create_struct(dimensions, names);
}

Dimensions dimensionsOf(const vxArrayPtr& array) {
  const std::size_t* first = vxGetDimensions(array.get());
  return {first, first + vxGetNumberOfDimensions(array.get())};
}

std::vector<std::byte> bytesOf(const vxArrayPtr& array) {
  const auto* first = static_cast<const std::byte*>(vxGetData(array.get()));
  return {first, first + vxGetNumberOfElements(array.get()) * vxGetElementSize(array.get())};
}

std::vector<std::uint32_t> rgbaEntriesOf(const vxArrayPtr& array) {
  const std::vector<std::byte> bytes = bytesOf(array);
  std::vector<std::uint32_t> entries(bytes.size() / 4);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    entries[i / 4] |= std::to_integer<std::uint32_t>(bytes[i]) << i % 4 * 8;
  return entries;
}

std::string textOf(const vxArrayPtr& array) { return matrix::get_string(array.get()); }

}  // namespace tb::test

#include "runtime/text.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string>

#include "host/array.h"
#include "runtime/array_record.h"
#include "runtime/host_errors.h"
#include "runtime/memory.h"

namespace tb::runtime {
namespace {

constexpr char16_t kLargestNarrow = 0xFF;

std::span<const char16_t> unitsOf(const vxArray* array) noexcept {
  if (array->classId != vxCHAR) return {};
  return {static_cast<const char16_t*>(array->data), array->elementCount};
}

[[noreturn]] void raiseNotNarrow(char16_t unit, std::size_t index) {
  using KORVAL::pictoria::host::characterNotNarrow;
  resource_core::BaseMsgID message(characterNotNarrow::component, characterNotNarrow::name);
  message.append(std::int64_t{unit});
  message.append(static_cast<std::int64_t>(index + 1));
  const CharacterNotNarrow error(std::move(message));
  matrix::detail::do_legacy_vx_error(error);
  throw error;
}

bool isNarrow(std::span<const char16_t> units) noexcept {
  unsigned bits = 0;  // of all units together: looking at each would take a branch each
  for (const char16_t unit : units) bits |= unit;
  return bits <= kLargestNarrow;
}

void requireNarrow(std::span<const char16_t> units) {
  if (isNarrow(units)) return;
  const auto wide =
      std::ranges::find_if(units, [](char16_t unit) { return unit > kLargestNarrow; });
  raiseNotNarrow(*wide, static_cast<std::size_t>(wide - units.begin()));
}

// `out` has room for all units.
void narrow(std::span<const char16_t> units, char* out) noexcept {
  std::ranges::transform(units, out, [](char16_t unit) { return static_cast<char>(unit); });
}

vxArrayPtr textRow(std::size_t length) {
  const std::size_t dimensions[] = {length == 0 ? std::size_t{0} : 1, length};
  return createArray(vxCHAR, dimensions, 1, Contents::kIndeterminate);
}

}  // namespace

vxArrayPtr createText(std::u16string_view text) {
  vxArrayPtr array = textRow(text.size());
  std::ranges::copy(text, static_cast<char16_t*>(array->data));
  return array;
}

}  // namespace tb::runtime

vxArrayPtr matrix::create(std::string_view text) {
  vxArrayPtr array = tb::runtime::textRow(text.size());
  std::ranges::transform(text, static_cast<char16_t*>(array->data), [](char byte) {
    return static_cast<char16_t>(static_cast<unsigned char>(byte));
  });
  return array;
}

std::string matrix::get_string(const vxArray* array) {
  const std::span<const char16_t> units = tb::runtime::unitsOf(array);
  tb::runtime::requireNarrow(units);
  std::string text(units.size(), '\0');
  tb::runtime::narrow(units, text.data());
  return text;
}

std::u16string matrix::get_ustring(const vxArray* array) {
  const std::span<const char16_t> units = tb::runtime::unitsOf(array);
  return {units.begin(), units.end()};
}

char* vxArrayToString(const vxArray* array) {
  if (array->classId != vxCHAR) return nullptr;
  const std::span<const char16_t> units = tb::runtime::unitsOf(array);
  tb::runtime::requireNarrow(units);
  auto* text = static_cast<char*>(vxMalloc(units.size() + 1));
  tb::runtime::narrow(units, text);
  text[units.size()] = '\0';
  return text;
}

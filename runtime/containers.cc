// The elements of cells and structs are owning pointers, a struct's field by field within each
// element.
#include "runtime/containers.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/array_record.h"
#include "runtime/memory.h"

namespace tb::runtime {
namespace {

using FieldNames = std::vector<std::string>;

// Empty for an array that is no struct.
std::span<const std::string> fieldNames(const vxArray& array) noexcept {
  if (array.classId != vxSTRUCT || array.context == nullptr) return {};
  return *static_cast<const FieldNames*>(array.context);
}

std::size_t itemsPerElement(const vxArray& container) noexcept {
  return container.classId == vxSTRUCT ? fieldNames(container).size() : 1;
}

// Null when there is no such place.
vxArray** cellAt(const vxArray& array, std::size_t index) noexcept {
  if (array.classId != vxCELL || index >= array.elementCount) return nullptr;
  return static_cast<vxArray**>(array.data) + index;
}

vxArray** fieldAt(const vxArray& array, std::size_t index, std::string_view name) noexcept {
  const std::span<const std::string> names = fieldNames(array);
  const auto found = std::ranges::find(names, name);
  if (found == names.end() || index >= array.elementCount) return nullptr;
  const auto field = static_cast<std::size_t>(found - names.begin());
  return static_cast<vxArray**>(array.data) + index * names.size() + field;
}

void replace(vxArray** place, vxArrayPtr value) noexcept {
  if (place == nullptr || *place == value.get()) {
    if (place != nullptr) (void)value.release();  // it stands there already
    return;
  }
  const vxArrayPtr previous(*place);
  *place = value.release();
}

}  // namespace

void releaseContained(vxArray& container) noexcept {
  const std::size_t count = container.elementCount * itemsPerElement(container);
  for (vxArray* item : std::span(static_cast<vxArray**>(container.data), count))
    matrix::destroyArray(item);
  const std::unique_ptr<FieldNames> names(static_cast<FieldNames*>(container.context));
}

}  // namespace tb::runtime

using tb::runtime::Contents;

vxArrayPtr matrix::detail::do_create_cell(std::span<const std::size_t> dimensions) {
  return tb::runtime::createArray(vxCELL, dimensions, 1, Contents::kZero);
}

vxArrayPtr matrix::detail::do_create_struct(std::span<const std::size_t> dimensions,
                                            std::span<const char* const> names) {
  auto copy = std::make_unique<tb::runtime::FieldNames>(names.begin(), names.end());
  vxArrayPtr array = tb::runtime::createArray(vxSTRUCT, dimensions, names.size(), Contents::kZero);
  array->context = copy.release();
  return array;
}

const vxArray* vxGetCell(const vxArray* cell, std::size_t index) noexcept {
  vxArray** place = tb::runtime::cellAt(*cell, index);
  return place != nullptr ? *place : nullptr;
}

std::size_t vxGetNumberOfFields(const vxArray* structure) noexcept {
  return tb::runtime::fieldNames(*structure).size();
}

const char* vxGetFieldNameByNumber(const vxArray* structure, std::size_t field) noexcept {
  const std::span<const std::string> names = tb::runtime::fieldNames(*structure);
  return field < names.size() ? names[field].c_str() : nullptr;
}

const vxArray* vxGetField(const vxArray* structure, std::size_t index, const char* name) noexcept {
  vxArray** place = tb::runtime::fieldAt(*structure, index, name);
  return place != nullptr ? *place : nullptr;
}

void vxSetCell(vxArray* cell, std::size_t index, vxArray* value) noexcept {
  tb::runtime::replace(tb::runtime::cellAt(*cell, index), vxArrayPtr(value));
}

void vxSetField(vxArray* structure, std::size_t index, const char* name, vxArray* value) noexcept {
  tb::runtime::replace(tb::runtime::fieldAt(*structure, index, name), vxArrayPtr(value));
}

#include "runtime/arrays.h"

#include <cstring>
#include <new>

#include "runtime/array_record.h"
#include "runtime/memory.h"

namespace tb::runtime {

vxArrayPtr wrapMemory(vxClassID classId, std::span<const std::size_t> dimensions, const void* data,
                      void (*release)(void*), void* context) {
  requireNumbers(classId);
  const std::size_t bytes = checkedProduct(countElements(dimensions), elementSize(classId));
  if (bytes < kSlack) {
    vxArrayPtr copy = createArray(classId, dimensions, 1, Contents::kZero);
    if (bytes > 0) std::memcpy(copy->data, data, bytes);
    release(context);
    return copy;
  }
  if (bytes > memoryLimit()) throw std::bad_alloc();
  return createForeign(classId, dimensions, data, release, context);
}

}  // namespace tb::runtime

using tb::runtime::Contents;
using tb::runtime::createArray;

vxClassID vxGetClassID(const vxArray* array) noexcept {
  return static_cast<vxClassID>(array->classId);
}

const char* vxGetClassName(const vxArray* array) noexcept {
  return tb::runtime::className(vxGetClassID(array));
}

std::size_t vxGetNumberOfDimensions(const vxArray* array) noexcept { return array->rank; }

const std::size_t* vxGetDimensions(const vxArray* array) noexcept {
  return array->rank > vxArray::kInlineRank ? array->dimensions.many : array->dimensions.few;
}

std::size_t vxGetNumberOfElements(const vxArray* array) noexcept { return array->elementCount; }

std::size_t vxGetElementSize(const vxArray* array) noexcept {
  return tb::runtime::elementSize(vxGetClassID(array));
}

bool vxIsEmpty(const vxArray* array) noexcept { return array->elementCount == 0; }

const void* vxGetData(const vxArray* array) noexcept {
  // The pointers inside a container are nobody's numbers.
  alignas(tb::runtime::kLine) static constexpr std::byte kZeros[tb::runtime::kSlack]{};
  return tb::runtime::isContainer(*array) ? kZeros : array->data;
}

void* vxGetWritableData(vxArray* array) noexcept {
  return tb::runtime::isContainer(*array) ? nullptr : array->data;
}

bool* vxGetLogicals(vxArray* array) noexcept {
  return array->classId == vxLOGICAL ? static_cast<bool*>(array->data) : nullptr;
}

double vxGetScalar(const vxArray* array) noexcept {
  return array->elementCount == 0 ? 0 : tb::runtime::firstNumber(*array);
}

void matrix::destroyArray(vxArray* array) noexcept { vxDestroy_deleter()(array); }

vxArrayPtr matrix::detail::do_create_numeric(vxClassID classId,
                                             std::span<const std::size_t> dimensions) {
  tb::runtime::requireNumbers(classId);
  return createArray(classId, dimensions, 1, Contents::kZero);
}

vxArrayPtr matrix::detail::do_create_uninitnumeric(vxClassID classId,
                                                   std::span<const std::size_t> dimensions) {
  tb::runtime::requireNumbers(classId);
  return createArray(classId, dimensions, 1, Contents::kIndeterminate);
}

#include "runtime/array_record.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>

#include "runtime/containers.h"
#include "runtime/memory.h"

namespace tb::runtime {
namespace {

using Storage = vxArray::Storage;

struct ClassRow {
  const char* name;
  std::size_t elementSize;
  double (*scalar)(const void* element);  // null for what is no number
};

template <class T>
double scalarOf(const void* element) {
  T value;
  std::memcpy(&value, element, sizeof value);
  return static_cast<double>(value);
}

// Indexed by class code.
constexpr ClassRow kClasses[] = {
    {"unknown", 0, nullptr},
    {"cell", sizeof(vxArray*), nullptr},
    {"struct", sizeof(vxArray*), nullptr},
    {"logical", 1, scalarOf<std::uint8_t>},
    {"char", 2, scalarOf<char16_t>},
    {"void", 0, nullptr},
    {"double", 8, scalarOf<double>},
    {"single", 4, scalarOf<float>},
    {"int8", 1, scalarOf<std::int8_t>},
    {"uint8", 1, scalarOf<std::uint8_t>},
    {"int16", 2, scalarOf<std::int16_t>},
    {"uint16", 2, scalarOf<std::uint16_t>},
    {"int32", 4, scalarOf<std::int32_t>},
    {"uint32", 4, scalarOf<std::uint32_t>},
    {"int64", 8, scalarOf<std::int64_t>},
    {"uint64", 8, scalarOf<std::uint64_t>},
};
static_assert(std::size(kClasses) == vxUINT64 + 1);
constexpr std::size_t kLargestElement =
    std::ranges::max(kClasses, {}, &ClassRow::elementSize).elementSize;

// At least 2, and no 1 at the end beyond that.
std::size_t effectiveRank(std::span<const std::size_t> dimensions) noexcept {
  std::size_t rank = dimensions.size();
  while (rank > 2 && dimensions[rank - 1] == 1) --rank;
  return std::max<std::size_t>(rank, 2);
}

std::size_t* dimensionsOf(vxArray& array) noexcept {
  return array.rank > vxArray::kInlineRank ? array.dimensions.many : array.dimensions.few;
}

// Gives the record its dimensions; until then it has none to release.
void setDimensions(vxArray& array, std::span<const std::size_t> dimensions, std::size_t rank) {
  if (rank > vxArray::kInlineRank)
    array.dimensions.many = static_cast<std::size_t*>(
        takeBlock(checkedProduct(rank, sizeof(std::size_t)), Contents::kIndeterminate));
  array.rank = static_cast<std::uint32_t>(rank);
  std::size_t* const out = dimensionsOf(array);
  for (std::size_t axis = 0; axis < rank; ++axis)
    out[axis] = axis < dimensions.size() ? dimensions[axis] : 1;
}

// A record with room for `bytes` of elements behind it, and nothing to release yet.
vxArrayPtr takeRecord(vxClassID classId, std::size_t bytesInCell) {
  const std::size_t cellBytes = sizeof(vxArray) + bytesInCell;
  auto* array = ::new (takeCell(cellBytes)) vxArray{};
  array->cellBytes = static_cast<std::uint16_t>(cellBytes);
  array->classId = static_cast<std::uint8_t>(classId);
  array->storage = Storage::kInCell;
  array->data = array + 1;
  return vxArrayPtr(array);
}

// Most arrays are 1-by-1: without the arithmetic that others need.
vxArrayPtr createScalar(vxClassID classId) {
  if (elementSize(classId) > memoryLimit()) throw std::bad_alloc();
  vxArrayPtr array = takeRecord(classId, kLargestElement + kSlack);
  array->dimensions.few[0] = array->dimensions.few[1] = 1;
  array->rank = 2;
  array->elementCount = 1;
  std::memset(array->data, 0, kLargestElement + kSlack);
  return array;
}

bool isScalar(std::span<const std::size_t> dimensions) noexcept {
  return dimensions.size() == 2 && dimensions[0] == 1 && dimensions[1] == 1;
}

}  // namespace

const char* className(vxClassID classId) noexcept { return kClasses[classId].name; }

std::size_t elementSize(vxClassID classId) noexcept { return kClasses[classId].elementSize; }

std::size_t countElements(std::span<const std::size_t> dimensions) {
  std::size_t count = 1;
  bool overflow = false;
  for (const std::size_t dimension : dimensions) {
    if (dimension == 0) return 0;
    overflow |= __builtin_mul_overflow(count, dimension, &count);
  }
  if (overflow) throw std::bad_alloc();
  return count;
}

double firstNumber(const vxArray& array) noexcept {
  const auto scalar = kClasses[array.classId].scalar;
  return scalar != nullptr ? scalar(array.data) : 0;
}

void requireNumbers(vxClassID classId) {
  if (classId < 0 || classId > vxUINT64 || kClasses[classId].scalar == nullptr)
    throw std::invalid_argument("not a class of numbers, logicals or characters");
}

vxArrayPtr createArray(vxClassID classId, std::span<const std::size_t> dimensions,
                       std::size_t itemsPerElement, Contents contents) {
  if (isScalar(dimensions) && itemsPerElement == 1) return createScalar(classId);
  const std::size_t count = countElements(dimensions);
  const std::size_t bytes =
      checkedProduct(checkedProduct(count, elementSize(classId)), itemsPerElement);
  if (bytes > memoryLimit()) throw std::bad_alloc();

  const bool small = bytes <= kLargestCell - sizeof(vxArray) - kSlack;
  vxArrayPtr array = takeRecord(classId, small ? bytes + kSlack : 0);
  setDimensions(*array, dimensions, effectiveRank(dimensions));
  if (small) {
    auto* elements = static_cast<std::byte*>(array->data);
    if (contents == Contents::kZero) std::memset(elements, 0, bytes);
    std::memset(elements + bytes, 0, kSlack);
  } else {
    array->data = takeBlock(bytes, contents);
    array->storage = Storage::kBlock;
  }
  array->elementCount = count;
  return array;
}

vxArrayPtr createForeign(vxClassID classId, std::span<const std::size_t> dimensions,
                         const void* data, void (*release)(void*), void* context) {
  vxArrayPtr array = takeRecord(classId, 0);
  setDimensions(*array, dimensions, effectiveRank(dimensions));
  array->elementCount = countElements(dimensions);
  array->data = const_cast<void*>(data);  // the module writes no input
  array->release = release;
  array->context = context;
  array->storage = Storage::kForeign;
  return array;
}

}  // namespace tb::runtime

void vxDestroy_deleter::operator()(vxArray* array) const noexcept {
  if (array == nullptr) return;
  if (tb::runtime::isContainer(*array)) tb::runtime::releaseContained(*array);
  if (array->storage == vxArray::Storage::kBlock) tb::runtime::giveBlock(array->data);
  if (array->storage == vxArray::Storage::kForeign) array->release(array->context);
  if (array->rank > vxArray::kInlineRank) tb::runtime::giveBlock(array->dimensions.many);
  tb::runtime::giveCell(array, array->cellBytes);
}

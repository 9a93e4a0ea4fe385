// What a vxArray is. The record takes one line; the elements of small arrays follow it in the same
// cell, those of others have a block of their own or belong to someone else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "host/array.h"
#include "runtime/cells.h"
#include "runtime/memory.h"

struct alignas(tb::runtime::kLine) vxArray {
  static constexpr std::size_t kInlineRank = 3;

  enum class Storage : std::uint8_t { kInCell, kBlock, kForeign };

  union {
    std::size_t few[kInlineRank];
    std::size_t* many;  // a block, when the rank exceeds kInlineRank
  } dimensions;
  std::size_t elementCount;
  void* data;
  void* context;           // kForeign: argument of release; a struct: its field names
  void (*release)(void*);  // kForeign only
  std::uint32_t rank;
  std::uint16_t cellBytes;  // what the record's cell was taken with
  std::uint8_t classId;
  Storage storage;
};
static_assert(sizeof(vxArray) == tb::runtime::kLine);

namespace tb::runtime {

inline bool isContainer(const vxArray& array) noexcept {
  return array.classId == vxCELL || array.classId == vxSTRUCT;
}

// The name of a class, and the bytes of an element: 0 for void and unknown.
const char* className(vxClassID classId) noexcept;
std::size_t elementSize(vxClassID classId) noexcept;

// The first element of an array that has one; 0 for a cell or struct.
double firstNumber(const vxArray& array) noexcept;

// Throws std::invalid_argument unless the class holds numbers, logicals or characters.
void requireNumbers(vxClassID classId);

// The product. Throws std::bad_alloc on overflow.
std::size_t countElements(std::span<const std::size_t> dimensions);

// An array of any class with `itemsPerElement` items of the class's size for each element. Throws
// std::bad_alloc, before any memory is touched, when the size overflows or exceeds the limit.
vxArrayPtr createArray(vxClassID classId, std::span<const std::size_t> dimensions,
                       std::size_t itemsPerElement, Contents contents);

// An array over `data`, which someone else owns; `release(context)` is called when the array is
// released.
vxArrayPtr createForeign(vxClassID classId, std::span<const std::size_t> dimensions,
                         const void* data, void (*release)(void*), void* context);

}  // namespace tb::runtime

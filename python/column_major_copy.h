// Copies arrays of any layout into column-major order. Free of NumPy: pointers, counts, strides.
#pragma once

#include <cstddef>
#include <span>

namespace tb::python {

struct StridedArray {
  const std::byte* data;                    // the element whose indices are all 0
  std::span<const std::ptrdiff_t> counts;   // elements along each axis, at least 0
  std::span<const std::ptrdiff_t> strides;  // bytes from one to the next, also 0 or negative
  std::size_t elementSize;                  // 1, 2, 4 or 8
};

// Fills `destination`, which has room for all elements and is aligned for them. The source need not
// be aligned.
void copyColumnMajor(const StridedArray& source, void* destination);

// Reverses the bytes of each of `count` elements.
void swapBytes(void* elements, std::size_t count, std::size_t elementSize) noexcept;

}  // namespace tb::python

#pragma once

#include <tiffio.h>

#include <cstddef>
#include <memory>
#include <span>

#include "host/array.h"

namespace tb {

// A block's size as libtiff computes it: 0 stands for "cannot be computed", and so does anything
// below.
inline std::size_t blockSize(tmsize_t size) noexcept {
  return size > 0 ? static_cast<std::size_t>(size) : 0;
}

// Memory for one encoded or decoded block, released on every exit. It comes from the host, so that
// its memory limit holds for a block as for an array: std::bad_alloc when exceeded, before any
// memory is touched.
class BlockBuffer {
 public:
  // `count` elements of `elementSize` bytes, all zero.
  static BlockBuffer zeroed(std::size_t count, std::size_t elementSize = 1) {
    return {vxCalloc(count, elementSize), count * elementSize};
  }
  // The contents are indeterminate: for one who fills it, or zeroes it, before anyone looks.
  static BlockBuffer uninitialised(std::size_t size) { return {vxMalloc(size), size}; }

  std::span<std::byte> bytes() noexcept { return {data_.get(), size_}; }
  std::span<const std::byte> bytes() const noexcept { return {data_.get(), size_}; }

 private:
  BlockBuffer(void* data, std::size_t size) : data_(static_cast<std::byte*>(data)), size_(size) {}

  struct Free {
    void operator()(std::byte* memory) const noexcept { vxFree(memory); }
  };
  std::unique_ptr<std::byte, Free> data_;
  std::size_t size_;
};

}  // namespace tb

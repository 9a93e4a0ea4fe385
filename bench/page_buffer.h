// Buffers for comparisons with a memcpy.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

namespace tb::bench {

// Memory that starts 1 KiB into a page: a copy between two buffers at the same small offset into
// their pages is slower on some processors, and a comparison with it would flatter.
class PageBuffer {
 public:
  explicit PageBuffer(std::size_t size) : bytes_(size + kPage + kOffset, std::byte{1}) {
    void* start = bytes_.data();
    std::size_t space = bytes_.size();
    data_ = static_cast<std::byte*>(std::align(kPage, size, start, space)) + kOffset;
  }
  PageBuffer(const PageBuffer&) = delete;
  PageBuffer& operator=(const PageBuffer&) = delete;
  std::byte* data() const noexcept { return data_; }

 private:
  static constexpr std::size_t kPage = 4096, kOffset = 1024;
  std::vector<std::byte> bytes_;
  std::byte* data_;
};

// Keeps the compiler from dropping writes that nothing reads.
inline void keepWrites() { asm volatile("" : : : "memory"); }

}  // namespace tb::bench

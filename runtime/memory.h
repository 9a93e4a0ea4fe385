// Memory of the embedded host. One allocator serves arrays and vxCalloc, vxMalloc and vxFree; it
// keeps released blocks, so that a loop which makes and releases blocks of some size touches no
// fresh page after its first turn. All functions may be called from any thread.
#pragma once

#include <cstddef>
#include <new>

namespace tb::runtime {

// The largest single array or block, in bytes. A larger request throws std::bad_alloc before any
// memory is touched. 0, the default, stands for the machine's physical memory, or for half of what
// a process can address if that is less.
void setMemoryLimit(std::size_t bytes);

// The limit in force; the physical memory when none was set.
std::size_t memoryLimit() noexcept;

// What kDefaultCacheLimit allows for is the blocks of a few concurrent reads, the largest of them
// 64 MiB; what is not in use stays with the process until releaseCachedMemory.
inline constexpr std::size_t kDefaultCacheLimit = std::size_t{256} << 20;

// The most bytes of released blocks that are kept for reuse. Lowering it gives the surplus back at
// once; 0 keeps nothing. Blocks of less than 1 KiB come from slabs that are never given back and do
// not count. Under AddressSanitizer nothing is kept, so that a use after release is found.
void setCacheLimit(std::size_t bytes);
std::size_t cacheLimit() noexcept;

// Bytes of released blocks that are kept at the moment.
std::size_t cachedBytes() noexcept;

// Gives every kept block back to the system.
void releaseCachedMemory() noexcept;

inline constexpr std::size_t kSlack = 16;  // readable bytes of 0 beyond every block

enum class Contents { kZero, kIndeterminate };

// `bytes` at a multiple of 64, 1 KiB into a page from a page's size on, followed by kSlack bytes of
// 0. Zeroed contents of a fresh large block cost nothing: its pages are not touched.
// Throws std::bad_alloc, before anything is allocated, when `bytes` exceeds the memory limit.
void* takeBlock(std::size_t bytes, Contents contents);

// Takes a block back on any thread; null is ignored.
void giveBlock(void* block) noexcept;

// The product. Throws std::bad_alloc on overflow.
inline std::size_t checkedProduct(std::size_t a, std::size_t b) {
  std::size_t product = 0;
  if (__builtin_mul_overflow(a, b, &product)) throw std::bad_alloc();
  return product;
}

}  // namespace tb::runtime

// Memory of the embedded host. One allocator serves arrays and vxCalloc, vxMalloc and vxFree; it
// keeps released blocks, so that a loop which makes and releases blocks of some size touches no
// fresh page after its first turn. All functions may be called from any thread.
#pragma once

#include <cstddef>

namespace tb::runtime {

// The largest single array or block, in bytes. A larger request throws std::bad_alloc before any
// memory is touched. 0, the default, stands for the machine's physical memory.
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

}  // namespace tb::runtime

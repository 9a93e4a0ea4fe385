// Small pieces of memory, up to 1 KiB, for array records, scalars and short texts. Each thread
// keeps a few released pieces of every size, so that the common case takes no lock; what exceeds
// them goes to a store that all threads share. The slabs they come from are never given back.
#pragma once

#include <cstddef>

namespace tb::runtime {

inline constexpr std::size_t kLine = 64;  // alignment and unit of size
inline constexpr std::size_t kLargestCell = 1024;

// At least `bytes`, at most kLargestCell and not 0, of indeterminate contents at a multiple of
// kLine. Throws std::bad_alloc when the system has no more.
void* takeCell(std::size_t bytes);

// Takes a piece back, on any thread. `bytes` is what it was taken with.
void giveCell(void* cell, std::size_t bytes) noexcept;

}  // namespace tb::runtime

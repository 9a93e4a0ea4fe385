// Memory of any size for array elements and for what the module asks for by vxCalloc and vxMalloc.
#pragma once

#include <cstddef>

namespace tb::runtime {

inline constexpr std::size_t kSlack = 16;  // readable bytes of 0 beyond every block

enum class Contents { kZero, kIndeterminate };

// `bytes` at a multiple of 64, 1 KiB into a page from a page's size on, followed by kSlack bytes of
// 0. Zeroed contents of a fresh large block cost nothing: its pages are not touched.
// Throws std::bad_alloc, before anything is allocated, when `bytes` exceeds the memory limit.
void* takeBlock(std::size_t bytes, Contents contents);

// Takes a block back on any thread; null is ignored.
void giveBlock(void* block) noexcept;

}  // namespace tb::runtime

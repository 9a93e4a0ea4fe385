// Memory from the system, for the blocks that are kept when they are released.
#pragma once

#include <cstddef>

namespace tb::runtime {

inline constexpr std::size_t kPage = 4096;

struct FreshMemory {
  void* start;  // at a multiple of kPage
  bool isZero;  // known to be 0, without having been touched
};

// `bytes` is a multiple of kPage from 32 pages on; the first `used` of them are what is asked for
// at the moment. Throws std::bad_alloc when the system has no more.
FreshMemory freshMemory(std::size_t bytes, std::size_t used);

// Takes back what freshMemory returned for this size.
void giveBackMemory(void* start, std::size_t bytes) noexcept;

}  // namespace tb::runtime

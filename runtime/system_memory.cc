#include "runtime/system_memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace tb::runtime {
namespace {

constexpr std::size_t kMapFrom = std::size_t{128} << 10;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kHugePagesFrom = std::size_t{4} << 20;

void* mapPages(std::size_t bytes) {
  void* start = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (start == MAP_FAILED) throw std::bad_alloc();
  return start;
}

// Huge pages need their own alignment: maps more and cuts both ends. One that would be used in part
// only is left to small pages, since all of it would count as soon as a byte of it is touched.
void* mapHugePages(std::size_t bytes, std::size_t used) {
  auto* mapped = static_cast<std::byte*>(mapPages(bytes + kHugePage));
  const std::size_t misplaced = reinterpret_cast<std::uintptr_t>(mapped) % kHugePage;
  const std::size_t before = kHugePage - misplaced;
  std::byte* start = mapped + before;
  munmap(mapped, before);
  if (misplaced > 0) munmap(start + bytes, misplaced);
  // A wish: small pages serve as well.
  (void)madvise(start, used / kHugePage * kHugePage, MADV_HUGEPAGE);
  return start;
}

}  // namespace

FreshMemory freshMemory(std::size_t bytes, std::size_t used) {
  if (bytes >= kHugePagesFrom) return {mapHugePages(bytes, used), true};
  if (bytes >= kMapFrom) return {mapPages(bytes), true};
  void* start = nullptr;
  if (posix_memalign(&start, kPage, bytes) != 0) throw std::bad_alloc();
  return {start, false};
}

void giveBackMemory(void* start, std::size_t bytes) noexcept {
  if (bytes >= kMapFrom)
    munmap(start, bytes);
  else
    std::free(start);
}

}  // namespace tb::runtime

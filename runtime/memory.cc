// A block is preceded by a header of one line:
//
//   base ... | header | block ... | slack
//
// Small blocks are cells. Others have one of a series of capacities, eight to each doubling, and
// are kept after their release in one list for each capacity, youngest first, until the kept bytes
// exceed the cache limit; then the block that was released longest ago goes back to the system.
//
// A copy is several times slower on common processors when its destination lies a few bytes past
// its source's offset in the page, and TIFF data tends to start a few bytes into a mapped page.
// Blocks of a page and more therefore start 1 KiB into one.
#include "runtime/memory.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <new>

#include "host/array.h"
#include "runtime/cells.h"
#include "runtime/fork.h"
#include "runtime/sanitizer.h"
#include "runtime/system_memory.h"

namespace tb::runtime {
namespace {

constexpr std::size_t kPageOffset = 1024;

constexpr unsigned kStepsLog2 = 3;  // eight capacities to each doubling
constexpr std::size_t kCapacities = std::size_t{64} << kStepsLog2;

struct alignas(kLine) Header {
  std::size_t total;  // bytes from the base on
  void* base;
  Header* younger;
  Header* older;
  std::uint64_t released;  // ordinal of the release
  bool isCell;
};
static_assert(sizeof(Header) == kLine);

// The blocks of one capacity that are kept.
struct Shelf {
  Header* youngest = nullptr;
  Header* oldest = nullptr;
};

constinit std::mutex lock;
const UsableAfterFork<lock> lockStaysUsable;
constinit std::array<Shelf, kCapacities> shelves;
constinit std::uint64_t releases = 0;
constinit std::atomic<std::size_t> keptBytes = 0;
constinit std::atomic<std::size_t> keptLimit = kDefaultCacheLimit;
constinit std::atomic<std::size_t> largestBlock = 0;

void* payload(Header* header) noexcept { return header + 1; }
Header* headerOf(void* block) noexcept { return static_cast<Header*>(block) - 1; }

// --- Capacities

std::size_t shelfIndex(std::size_t bytes) noexcept {
  const auto power = static_cast<unsigned>(std::bit_width(bytes - 1)) - 1;
  // Only blocks too large for a cell come here, so the shift is not negative.
  // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult)
  const std::size_t step = ((bytes - 1) >> (power - kStepsLog2)) & ((1U << kStepsLog2) - 1);
  return (std::size_t{power} << kStepsLog2) + step;
}

// The least capacity of the series that holds `bytes`.
std::size_t capacityFor(std::size_t bytes) noexcept {
  const auto power = static_cast<unsigned>(std::bit_width(bytes - 1)) - 1;
  // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): as above
  const std::size_t step = std::size_t{1} << (power - kStepsLog2);
  return (bytes + step - 1) / step * step;
}

// --- Headers

Header* placeHeader(void* base, std::size_t offset, std::size_t total) noexcept {
  auto* place = static_cast<std::byte*>(base) + offset - sizeof(Header);
  return ::new (place) Header{total, base, nullptr, nullptr, 0, false};
}

// --- The cache; all under the lock

void unlink(Shelf& shelf, Header* header) noexcept {
  (header->younger != nullptr ? header->younger->older : shelf.youngest) = header->older;
  (header->older != nullptr ? header->older->younger : shelf.oldest) = header->younger;
  keptBytes -= header->total;
}

Header* takeKept(std::size_t total) noexcept {
  const std::lock_guard guard(lock);
  Shelf& shelf = shelves[shelfIndex(total)];
  Header* header = shelf.youngest;
  if (header != nullptr) unlink(shelf, header);
  return header;
}

Header* oldestKept() noexcept {
  Header* oldest = nullptr;
  for (const Shelf& shelf : shelves) {
    if (shelf.oldest == nullptr) continue;
    if (oldest == nullptr || shelf.oldest->released < oldest->released) oldest = shelf.oldest;
  }
  return oldest;
}

void shrinkTo(std::size_t limit) noexcept {
  while (keptBytes > limit) {
    Header* header = oldestKept();
    unlink(shelves[shelfIndex(header->total)], header);
    giveBackMemory(header->base, header->total);
  }
}

void keep(Header* header) noexcept {
  const std::lock_guard guard(lock);
  Shelf& shelf = shelves[shelfIndex(header->total)];
  header->released = ++releases;
  header->younger = nullptr;
  header->older = shelf.youngest;
  (shelf.youngest != nullptr ? shelf.youngest->younger : shelf.oldest) = header;
  shelf.youngest = header;
  keptBytes += header->total;
  shrinkTo(keptLimit);
}

// --- Blocks of the three kinds

void finish(void* block, std::size_t bytes, Contents contents, bool zero) noexcept {
  if (zero) return;
  auto* start = static_cast<std::byte*>(block);
  if (contents == Contents::kZero)
    std::memset(start, 0, bytes + kSlack);
  else
    std::memset(start + bytes, 0, kSlack);
}

Header* takeSmall(std::size_t total) {
  void* cell = takeCell(total);
  Header* header = placeHeader(cell, sizeof(Header), total);
  header->isCell = true;
  return header;
}

// Every block by itself, so that AddressSanitizer sees its ends.
void* takeWatched(std::size_t bytes, Contents contents) {
  const std::size_t total = bytes + kSlack + sizeof(Header) + kLine;
  void* base = contents == Contents::kZero ? std::calloc(total, 1) : std::malloc(total);
  if (base == nullptr) throw std::bad_alloc();
  const std::size_t misplaced = reinterpret_cast<std::uintptr_t>(base) % kLine;
  Header* header = placeHeader(base, sizeof(Header) + (kLine - misplaced) % kLine, total);
  finish(payload(header), bytes, contents, contents == Contents::kZero);
  return payload(header);
}

// A machine may have more memory than a process of 32 bits can address.
std::size_t physicalMemory() noexcept {
  static const std::size_t bytes = [] {
    const auto pages = static_cast<std::size_t>(sysconf(_SC_PHYS_PAGES));
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    constexpr std::size_t kMost = std::numeric_limits<std::ptrdiff_t>::max();
    return pages > kMost / page ? kMost : pages * page;
  }();
  return bytes;
}

}  // namespace

void* takeBlock(std::size_t bytes, Contents contents) {
  if (bytes > memoryLimit() || bytes > std::numeric_limits<std::size_t>::max() / 4)
    throw std::bad_alloc();
  if (kIsWatched) return takeWatched(bytes, contents);

  const std::size_t small = sizeof(Header) + bytes + kSlack;
  if (small <= kLargestCell) {
    void* block = payload(takeSmall(small));
    finish(block, bytes, contents, false);
    return block;
  }
  const std::size_t offset = bytes >= kPage ? kPageOffset : sizeof(Header);
  const std::size_t used = offset + bytes + kSlack;
  const std::size_t total = capacityFor(used);
  FreshMemory fresh{nullptr, false};
  if (Header* header = takeKept(total); header != nullptr)
    fresh.start = header->base;
  else
    fresh = freshMemory(total, used);
  void* block = payload(placeHeader(fresh.start, offset, total));
  finish(block, bytes, contents, fresh.isZero);
  return block;
}

void giveBlock(void* block) noexcept {
  if (block == nullptr) return;
  Header* header = headerOf(block);
  if (kIsWatched)
    std::free(header->base);
  else if (header->isCell)
    giveCell(header->base, header->total);
  else if (header->total > keptLimit)
    giveBackMemory(header->base, header->total);
  else
    keep(header);
}

void setMemoryLimit(std::size_t bytes) { largestBlock = bytes; }

std::size_t memoryLimit() noexcept {
  const std::size_t limit = largestBlock.load(std::memory_order_relaxed);
  return limit != 0 ? limit : physicalMemory();
}

void setCacheLimit(std::size_t bytes) {
  const std::lock_guard guard(lock);
  keptLimit = bytes;
  shrinkTo(bytes);
}

std::size_t cacheLimit() noexcept { return keptLimit; }

std::size_t cachedBytes() noexcept { return keptBytes; }

void releaseCachedMemory() noexcept {
  const std::lock_guard guard(lock);
  shrinkTo(0);
}

}  // namespace tb::runtime

bool vxIsWithinMemoryLimit(std::uint64_t size) noexcept {
  return size <= tb::runtime::memoryLimit();
}

void* vxCalloc(std::size_t count, std::size_t size) {
  return tb::runtime::takeBlock(tb::runtime::checkedProduct(count, size),
                                tb::runtime::Contents::kZero);
}

void* vxMalloc(std::size_t size) {
  return tb::runtime::takeBlock(size, tb::runtime::Contents::kIndeterminate);
}

void vxFree(void* memory) noexcept { tb::runtime::giveBlock(memory); }

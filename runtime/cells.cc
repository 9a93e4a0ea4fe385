#include "runtime/cells.h"

#include <array>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>

#include "runtime/fork.h"
#include "runtime/sanitizer.h"

namespace tb::runtime {
namespace {

constexpr std::size_t kSizes = kLargestCell / kLine;
constexpr std::size_t kSlabBytes = std::size_t{64} << 10;
constexpr std::size_t kMostKept = 64;  // cells of one size that a thread keeps

struct Cell {
  Cell* next;
};

// A stack of released cells of one size, linked through the cells themselves.
struct Stack {
  Cell* top = nullptr;
  std::size_t count = 0;

  void push(void* memory) noexcept {
    top = ::new (memory) Cell{top};
    ++count;
  }
  void* pop() noexcept {
    Cell* cell = top;
    top = cell->next;
    --count;
    return cell;
  }
  void moveTo(Stack& other, std::size_t wanted) noexcept {
    for (; wanted > 0 && top != nullptr; --wanted) other.push(pop());
  }
};

using Stacks = std::array<Stack, kSizes>;

// What all threads share. Nothing here has a destructor, so that arrays can still be released while
// the process ends.
constinit std::mutex sharedLock;
const UsableAfterFork<sharedLock> sharedLockStaysUsable;
constinit Stacks shared;

// What this thread keeps. The state is apart from the guard, whose destructor would otherwise have
// to be registered before a thread's first cell can be looked at.
//
// Libraries that are loaded late share little room for thread-local variables that are found
// without a call, so the stacks lie elsewhere.
enum class Threading : unsigned char { kNew, kRunning, kEnding };
constinit Stacks nothing;  // what a new or ending thread keeps
[[gnu::tls_model("initial-exec")]] constinit thread_local Stacks* kept = &nothing;
[[gnu::tls_model("initial-exec")]] constinit thread_local Threading threading = Threading::kNew;

struct ReturnAtThreadEnd {
  ~ReturnAtThreadEnd() {
    threading = Threading::kEnding;
    kept = &nothing;
    const std::lock_guard lock(sharedLock);
    for (std::size_t size = 0; size < kSizes; ++size)
      (*stacks)[size].moveTo(shared[size], kMostKept);
  }
  std::unique_ptr<Stacks> stacks = std::make_unique<Stacks>();
};

void announceThread() {
  thread_local const ReturnAtThreadEnd guard;
  kept = guard.stacks.get();
  threading = Threading::kRunning;
}

std::size_t sizeIndex(std::size_t bytes) noexcept { return (bytes - 1) / kLine; }

void* alignedMemory(std::size_t bytes) {
  void* memory = nullptr;
  if (posix_memalign(&memory, kLine, bytes) != 0) throw std::bad_alloc();
  return memory;
}

void cutSlab(Stack& stack, std::size_t cellBytes) {
  auto* slab = static_cast<std::byte*>(alignedMemory(kSlabBytes));
  for (std::size_t at = kSlabBytes / cellBytes * cellBytes; at > 0; at -= cellBytes)
    stack.push(slab + at - cellBytes);
}

void* takeShared(std::size_t size) {
  const std::lock_guard lock(sharedLock);
  if (shared[size].count == 0) cutSlab(shared[size], (size + 1) * kLine);
  if (threading == Threading::kRunning) shared[size].moveTo((*kept)[size], kMostKept / 2);
  return (*kept)[size].count > 0 ? (*kept)[size].pop() : shared[size].pop();
}

void giveShared(void* cell, std::size_t size) noexcept {
  const std::lock_guard lock(sharedLock);
  shared[size].push(cell);
  if (threading == Threading::kRunning) (*kept)[size].moveTo(shared[size], kMostKept / 2);
}

}  // namespace

void* takeCell(std::size_t bytes) {
  if constexpr (kIsWatched) return alignedMemory(bytes);
  const std::size_t size = sizeIndex(bytes);
  if ((*kept)[size].count > 0) return (*kept)[size].pop();
  if (threading == Threading::kNew) announceThread();
  return takeShared(size);
}

void giveCell(void* cell, std::size_t bytes) noexcept {
  if constexpr (kIsWatched) return std::free(cell);
  const std::size_t size = sizeIndex(bytes);
  if (threading != Threading::kRunning || (*kept)[size].count >= kMostKept)
    return giveShared(cell, size);
  (*kept)[size].push(cell);
}

}  // namespace tb::runtime

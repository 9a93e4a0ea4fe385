// The registry of open files and whose turn it is on each, for the two sources that keep them:
// open_files.cc and turns.cc.
#pragma once

#include <tiffio.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "core/open_files.h"

namespace tb {

// A mutex for moments, which a short operation takes twice. std::mutex is a function of another
// library, and taking and releasing it as much as a tenth of such an operation.
class ShortLock {
 public:
  void lock() noexcept {
    int state = kFree;
    if (state_.compare_exchange_strong(state, kTaken, std::memory_order_acquire)) return;
    while (state_.exchange(kAwaited, std::memory_order_acquire) != kFree) state_.wait(kAwaited);
  }
  void unlock() noexcept {
    if (state_.exchange(kFree, std::memory_order_release) == kAwaited) state_.notify_one();
  }

 private:
  static constexpr int kFree = 0, kTaken = 1, kAwaited = 2;
  std::atomic<int> state_ = kFree;
};

// Something that threads wait for with a lock. Unlike a condition variable it is as good as new in
// a forked process, whose parent's threads may be waiting.
class Event {
 public:
  // Releases the lock until `tell`, or less long; whoever waits looks again.
  void wait(std::unique_lock<ShortLock>& lock) noexcept {
    const int seen = count_.load(std::memory_order_relaxed);
    ++waiting_;
    lock.unlock();
    count_.wait(seen);
    lock.lock();
    --waiting_;
  }

  // Wakes all who wait. The lock is held.
  void tell() noexcept {
    if (waiting_ == 0) return;
    ++count_;
    count_.notify_all();
  }

  bool isAwaited() const noexcept { return waiting_ > 0; }

 private:
  std::atomic<int> count_ = 0;
  unsigned waiting_ = 0;  // guarded by the lock
};

struct RegisteredFile {
  OpenFile known;
  // Whether the registry still has it. Written with the lock, but read without by whose turn it is.
  std::atomic<bool> isRegistered = true;
  // The thread whose turn it is and how often it has taken it; none when the number is 0.
  const void* owner = nullptr;
  unsigned depth = 0;
  Event freed;
};

// Guards the registry, the turns and the number of calls. It is held for moments: never while
// libtiff works, while a host's function may wait, or over a pause.
extern ShortLock registryLock;

// Owns the records, not the handles. Those that TagBridgeCleanup closed stay, but whoever still
// holds their identifier must not reach freed memory.
using FileRegistry = std::map<TIFF*, std::unique_ptr<RegisteredFile>>;
extern FileRegistry& OpenFileRegistry;

// Whether any thread is inside a call. The lock is held.
bool isAnyCallRunning() noexcept;

// Takes a record out of the registry; it lives on for as long as it is somebody's turn on it. The
// lock is held.
void unregister(FileRegistry::iterator place) noexcept;

// Ends the life of such a record when nobody needs it any more. The lock is held.
void releaseIfUnused(RegisteredFile& file) noexcept;

}  // namespace tb

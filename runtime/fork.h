// Locks that a forked process can still take.
#pragma once

#include <pthread.h>

#include <mutex>

namespace tb::runtime {

// A process that forks while another thread holds a lock leaves its child a lock that nobody will
// ever release. One object of this type for each lock lets a fork wait for the lock and releases it
// on both sides. The locks of this library are taken one at a time, so their order is of no
// account.
template <std::mutex& lock>
class UsableAfterFork {
 public:
  UsableAfterFork() noexcept {
    // Without memory for the entry a fork is as it was without it.
    (void)pthread_atfork([] { lock.lock(); }, [] { lock.unlock(); }, [] { lock.unlock(); });
  }
};

}  // namespace tb::runtime

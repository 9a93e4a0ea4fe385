// libtiff's messages, collected for each thread.
#pragma once

#include <memory>
#include <vector>

#include "runtime/loader.h"

namespace tb::runtime {

// Forgets the messages since `start` when they repeat the run of messages just before it. Opening
// is tried several times, and each attempt says the same. `start` is an earlier messageCount().
void dropRepeatedMessages(std::size_t start) noexcept;
std::size_t messageCount() noexcept;

// Leaves the module for as long as the object lives, for what runs inside a call of the module but
// is not part of it: the call's messages are put aside, libtiff's messages go to the process's
// other handlers, and the module may be called.
class OutsideScope {
 public:
  OutsideScope();
  ~OutsideScope();
  OutsideScope(const OutsideScope&) = delete;
  OutsideScope& operator=(const OutsideScope&) = delete;

 private:
  struct Kept;
  std::unique_ptr<Kept> kept_;
};

}  // namespace tb::runtime

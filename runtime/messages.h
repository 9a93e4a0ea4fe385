// libtiff's messages, collected for each thread.
#pragma once

#include <vector>

#include "runtime/loader.h"

namespace tb::runtime {

// Forgets the messages since `start` when they repeat the run of messages just before it. Opening
// is tried several times, and each attempt says the same. `start` is an earlier messageCount().
void dropRepeatedMessages(std::size_t start) noexcept;
std::size_t messageCount() noexcept;

}  // namespace tb::runtime

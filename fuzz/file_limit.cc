#include "fuzz/file_limit.h"

#include <algorithm>

#include "fuzz/sequence.h"

namespace tb::fuzz {
namespace {

// A fuzzer that meets a finding while the limit holds must be able to store the input.
constexpr rlim_t kSmallestLimit = kHeaderLength + kMostSteps * kStepLength;

}  // namespace

void limitFileSize(rlim_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = std::min(std::max(bytes, kSmallestLimit), limit.rlim_max);
  setrlimit(RLIMIT_FSIZE, &limit);
}

}  // namespace tb::fuzz

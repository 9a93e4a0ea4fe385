#include "fuzz/file_limit.h"

#include <algorithm>
#include <csignal>
#include <cstddef>

#include "fuzz/gateway_session.h"
#include "fuzz/sequence.h"
#include "runtime/memory.h"

namespace tb::fuzz {
namespace {

// A fuzzer that meets a finding while the limit holds must be able to store the input.
constexpr rlim_t kSmallestLimit = kHeaderLength + kMostSteps * kStepLength;

constexpr std::size_t kWriteMemory = std::size_t{16} << 20;

void limitMemory(std::size_t bytes) {
  static const bool prepared = [] {
    std::signal(SIGXFSZ, SIG_IGN);
    call("getVersion", {});  // sets a memory limit of its own when it is the first call
    return true;
  }();
  (void)prepared;
  runtime::setMemoryLimit(bytes);
}

}  // namespace

void limitFileSize(rlim_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = std::min(std::max(bytes, kSmallestLimit), limit.rlim_max);
  setrlimit(RLIMIT_FSIZE, &limit);
}

void limitWrites() {
  limitMemory(kWriteMemory);
  limitFileSize(kLargestFile);
}

void limitReads() { limitMemory(kReadMemory); }

}  // namespace tb::fuzz

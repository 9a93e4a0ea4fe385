#include "bench/timing.h"

#include <time.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>

namespace tb::bench {
namespace {

using Work = std::function<void()>;

// Of the processor, not of the clock: work of other processes does not count. Nothing that is
// measured sleeps.
double secondsSpent() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

double secondsOfCall(const Work& work, std::size_t calls) {
  const double start = secondsSpent();
  for (std::size_t call = 0; call < calls; ++call) work();
  return (secondsSpent() - start) / static_cast<double>(calls);
}

// One of the two ways with its fastest turn so far.
class Contender {
 public:
  Contender(const Work& work, double secondsOfTurn) : work_(work) {
    work();
    if (secondsOfTurn <= 0) return;
    const double once = std::max(secondsOfCall(work, 1), 1e-9);
    calls_ = std::max<std::size_t>(1, static_cast<std::size_t>(secondsOfTurn / once));
  }
  void takeTurn() { fastest_ = std::min(fastest_, secondsOfCall(work_, calls_)); }
  double fastest() const { return fastest_; }

 private:
  const Work& work_;
  std::size_t calls_ = 1;
  double fastest_ = std::numeric_limits<double>::infinity();
};

}  // namespace

Effort effortOf(std::string_view name) {
  if (name == "smoke") return {1, 0, 0};
  if (name == "quick") return {3, 0.15, 0.001};
  if (name == "full" || name == "large") return {5, 0.6, 0.002};
  throw std::invalid_argument("no effort is called " + std::string(name));
}

Comparison compare(const Effort& effort, const Work& ours, const Work& reference) {
  Contender first(ours, effort.secondsOfTurn), second(reference, effort.secondsOfTurn);
  const double start = secondsSpent();
  for (int turn = 0; turn < effort.leastTurns || secondsSpent() - start < effort.seconds; ++turn) {
    first.takeTurn();
    second.takeTurn();
  }
  return {first.fastest(), second.fastest()};
}

}  // namespace tb::bench

// Comparing the time that two ways of doing the same work take.
#pragma once

#include <functional>
#include <string_view>

namespace tb::bench {

// How long a comparison goes on. A turn is a run of calls of one of the two ways.
struct Effort {
  int leastTurns;        // of each way
  double seconds;        // goes on for so long, in all
  double secondsOfTurn;  // short calls are repeated until a turn takes so long
};

// By name: "smoke" makes one turn of one call, "quick", "full" and "large" are for measuring.
// Throws std::invalid_argument for another name.
Effort effortOf(std::string_view name);

// Seconds of processor time that a call takes: those of the fastest turn, since whatever else the
// machine does only adds.
struct Comparison {
  double ours;
  double reference;
};

// Makes turns of both in alternation, after an untimed call of each.
Comparison compare(const Effort& effort, const std::function<void()>& ours,
                   const std::function<void()>& reference);

}  // namespace tb::bench

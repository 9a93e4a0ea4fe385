// What the last bytes of an input of fuzz_read say: the lower half of the last byte chooses the
// access mode, or that the input is a file object. The bytes with which files mostly end, 0 among
// them, mean reading.
#pragma once

#include <cstddef>
#include <iterator>

namespace tb::fuzz {

inline constexpr const char* kReadModes[] = {"rm", "r", "rm", "r+", "rc", "r",  "a",      "rH",
                                             "rL", "r", "rm", "rB", "rm", "r+", "object", "r"};

// Of an object the upper half chooses the mode and the fault, and the byte before it is the number
// of the first call with the fault.
inline constexpr const char* kObjectModes[] = {"r", "r+", "a", "rc"};

inline constexpr unsigned kFaultShift = 4, kObjectModeShift = 6;

constexpr const char* readModeOf(unsigned char lastByte) {
  return kReadModes[lastByte % std::size(kReadModes)];
}

}  // namespace tb::fuzz

// What the last byte of an input of fuzz_read says: its lower half chooses the access mode. The
// bytes with which files mostly end, 0 among them, mean reading.
#pragma once

#include <cstddef>
#include <iterator>

namespace tb::fuzz {

inline constexpr const char* kReadModes[] = {"rm", "r", "rm", "r+", "rc", "r",  "a",  "rH",
                                             "rL", "r", "rm", "rB", "rm", "r+", "rm", "r"};

constexpr const char* readModeOf(unsigned char lastByte) {
  return kReadModes[lastByte % std::size(kReadModes)];
}

}  // namespace tb::fuzz

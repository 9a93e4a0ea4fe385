// A sequence of any operations on any file in any access mode.
#include <cstddef>
#include <cstdint>

#include "fuzz/sequence.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tb::fuzz::runSequence({data, size});
  return 0;
}

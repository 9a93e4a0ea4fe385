// A sequence of setField, write and writeDirectory operations on a new file, which libtiff alone
// then reads: every directory, and every block that the module said was written.
#include <cstddef>
#include <cstdint>

#include "fuzz/sequence.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tb::fuzz::runWrites({data, size});
  return 0;
}

// Any bytes as a TIFF file that is opened and read. Whatever they are, every call ends with a
// result or an identified error.
#include <cstddef>
#include <cstdint>

#include "fuzz/gateway_session.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using tb::fuzz::call;
  const tb::fuzz::MemoryFile contents({data, size});
  const vxArrayPtr name = matrix::create(contents.name());
  // The last byte says whether the file is mapped into memory.
  const vxArrayPtr mode = matrix::create(size > 0 && data[size - 1] % 2 == 1 ? "r" : "rm");
  const auto opened = call("open", {name.get(), mode.get()});
  if (!opened[0]) return -1;
  tb::fuzz::readEverything(opened[0].get());
  call("close", {opened[0].get()});
  return 0;
}

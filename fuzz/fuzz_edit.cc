// A sequence of setField, write and directory operations, in any order and with any values, on a
// new file, which is then read back.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz/gateway_session.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using tb::fuzz::call;
using tb::fuzz::number;

constexpr int kTags[] = {254,   256,   257,   258,   259, 262,   263,   266,   274,   277,
                         278,   282,   284,   297,   301, 305,   306,   317,   318,   319,
                         320,   322,   323,   330,   332, 333,   334,   336,   338,   339,
                         340,   341,   529,   530,   532, 700,   33550, 33723, 33922, 34264,
                         34735, 34736, 37439, 65537, 292, 65538, 65557, 65560};
constexpr double kNumbers[] = {0,  1,  2,  3,  4,  5,   6,     7,     8,
                               16, 32, 64, 24, 40, 100, 32773, 32845, 34676};
constexpr vxClassID kClasses[] = {vxDOUBLE, vxUINT8, vxUINT16, vxSINGLE, vxLOGICAL,
                                  vxINT8,   vxINT32, vxCHAR,   vxUINT32};

// An array of any class and up to three small dimensions; doubles are often the numbers that tags
// take.
vxArrayPtr anyArray(FuzzedDataProvider& input) {
  const vxClassID classId = input.PickValueInArray(kClasses);
  const std::size_t dimensions[] = {input.ConsumeIntegralInRange<std::size_t>(0, 70),
                                    input.ConsumeIntegralInRange<std::size_t>(0, 70),
                                    input.ConsumeIntegralInRange<std::size_t>(0, 4)};
  vxArrayPtr array = matrix::detail::do_create_numeric(
      classId, {dimensions, input.ConsumeBool() ? std::size_t{3} : std::size_t{2}});
  const std::size_t room = vxGetNumberOfElements(array.get()) * vxGetElementSize(array.get());
  if (room > 0 && classId != vxLOGICAL && classId != vxCHAR) {
    const auto bytes = input.ConsumeBytes<std::uint8_t>(std::min<std::size_t>(room, 64));
    if (!bytes.empty()) std::memcpy(vxGetWritableData(array.get()), bytes.data(), bytes.size());
  }
  return array;
}

vxArrayPtr anyValue(FuzzedDataProvider& input) {
  return input.ConsumeBool() ? number(input.PickValueInArray(kNumbers)) : anyArray(input);
}

void editOnce(FuzzedDataProvider& input, const vxArray* file) {
  const vxArrayPtr block = number(input.ConsumeIntegralInRange(0, 5));
  switch (input.ConsumeIntegralInRange(0, 7)) {
    case 0:
      call("writeEncodedStrip", {file, block.get(), anyArray(input).get()});
      return;
    case 1:
      call("writeEncodedTile", {file, block.get(), anyArray(input).get()});
      return;
    case 2:
      call("writeEncodedStrip", {file, block.get(), anyArray(input).get(), anyArray(input).get(),
                                 anyArray(input).get()});
      return;
    case 3:
      call(input.ConsumeBool() ? "writeDirectory" : "rewriteDirectory", {file});
      return;
    default:
      call("setField", {file, number(input.PickValueInArray(kTags)).get(), anyValue(input).get()});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const tb::fuzz::MemoryFile contents({});
  const vxArrayPtr name = matrix::create(contents.name());
  const vxArrayPtr mode = matrix::create(input.ConsumeBool() ? "w" : "wb8");
  const auto opened = call("open", {name.get(), mode.get()});
  if (!opened[0]) return -1;
  while (input.remaining_bytes() > 0) editOnce(input, opened[0].get());
  tb::fuzz::readEverything(opened[0].get());
  call("close", {opened[0].get()});
  return 0;
}

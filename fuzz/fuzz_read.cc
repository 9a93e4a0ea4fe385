// Any bytes as a TIFF file that is opened and read, and edited in the modes that allow it: in
// memory, or a file object that fails. Whatever they are, every call ends with a result or an
// identified error.
#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/faulty_object.h"
#include "fuzz/file_limit.h"
#include "fuzz/gateway_session.h"
#include "fuzz/read_modes.h"
#include "fuzz/sequence_values.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tb::fuzz {
namespace {

// What was read of a block, or something else that fits it.
std::vector<vxArrayPtr> samplesFor(const vxArray* file, const BlockLayout& layout, double block) {
  std::vector<vxArrayPtr> samples;
  for (vxArrayPtr& output :
       call(layout.tiled ? "readEncodedTile" : "readEncodedStrip", {file, number(block).get()}))
    if (output) samples.push_back(std::move(output));
  if (!samples.empty()) return samples;
  return arraysForBlock(layout, static_cast<std::uint32_t>(block), 0);
}

void writeBack(const vxArray* file, const BlockLayout& layout, double block) {
  const std::vector<vxArrayPtr> samples = samplesFor(file, layout, block);
  const char* const operation = layout.tiled ? "writeEncodedTile" : "writeEncodedStrip";
  if (samples.size() < 3) {
    call(operation, {file, number(block).get(), samples[0].get()});
  } else {
    call(operation,
         {file, number(block).get(), samples[0].get(), samples[1].get(), samples[2].get()});
  }
}

void edit(const vxArray* file) {
  call("setField", {file, number(TIFFTAG_IMAGEDESCRIPTION).get(), matrix::create("edited").get()});
  const BlockLayout layout(file);
  const double count = scalarOr(call(layout.tiled ? "numberOfTiles" : "numberOfStrips", {file}), 0);
  writeBack(file, layout, 0);
  if (count > 1) writeBack(file, layout, count - 1);
}

// The second edit is left for `close` to write.
void editPages(const vxArray* file) {
  call("setDirectory", {file, number(0).get()});
  edit(file);
  call("rewriteDirectory", {file});
  call("readDirectory", {file});
  edit(file);
}

void append(const vxArray* file) {
  constexpr std::pair<int, double> kImage[] = {
      {TIFFTAG_IMAGEWIDTH, 4},      {TIFFTAG_IMAGELENGTH, 3}, {TIFFTAG_BITSPERSAMPLE, 8},
      {TIFFTAG_SAMPLESPERPIXEL, 1}, {TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_ROWSPERSTRIP, 2}};
  for (int page = 0; page < 2; ++page) {
    for (const auto& [tag, value] : kImage)
      call("setField", {file, number(tag).get(), number(value).get()});
    edit(file);
    if (page == 0) call("writeDirectory", {file});
  }
}

bool isEdited(const std::string& mode) { return mode == "r+" || mode == "a"; }

void use(const std::string& name, const std::string& mode) {
  isEdited(mode) ? limitWrites() : limitReads();
  const auto opened = call("open", {matrix::create(name).get(), matrix::create(mode).get()});
  const vxArray* const file = opened[0].get();
  if (file == nullptr) return;
  readEverything(file);
  if (mode == "r+") editPages(file);
  if (mode == "a") append(file);
  call("close", {file});
}

void useAsObject(std::span<const std::uint8_t> bytes) {
  const unsigned last = bytes.back();
  const auto fault = static_cast<Fault>(last >> kFaultShift & 3U);
  const unsigned firstFaulty = bytes.size() > 1 ? bytes[bytes.size() - 2] : 0U;
  const OfferedObject object(std::make_shared<FaultyObject>(bytes, fault, firstFaulty));
  use(object.name(), kObjectModes[last >> kObjectModeShift]);
}

}  // namespace
}  // namespace tb::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tb::fuzz;
  const std::string mode = readModeOf(size > 0 ? data[size - 1] : 0);
  if (mode == "object") {
    useAsObject({data, size});
    return 0;
  }
  const MemoryFile contents({data, size});
  use(contents.name(), mode);
  return 0;
}

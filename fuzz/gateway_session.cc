#include "fuzz/gateway_session.h"

#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "gateway/gateway.h"
#include "host/errors.h"
#include "runtime/loader.h"
#include "runtime/memory.h"
#include "runtime/reporting.h"

// Stands in for the C library's: the pauses between attempts to open a file that is none would take
// nearly all of a fuzzer's time.
extern "C" int nanosleep(const timespec*, timespec*) { return 0; }

// What AddressSanitizer does unless the environment says otherwise: a file can claim any size, and
// libtiff handles an allocation that fails.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }

namespace tb::fuzz {
namespace {

constexpr std::size_t kMemoryLimit = std::size_t{64} << 20;
constexpr int kMostDirectories = 8;
constexpr double kMostBlocks = 4;
constexpr double kMostPixels = 1 << 20;

bool hostWasWarned = false;

void prepareOnce() {
  static const bool prepared = [] {
    runtime::setMemoryLimit(kMemoryLimit);
    runtime::setWarningSink([](const resource_core::BaseMsgID&) { hostWasWarned = true; });
    return true;
  }();
  (void)prepared;
}

void readBlocks(const vxArray* file) {
  const bool tiled = scalarOr(call("isTiled", {file}), 0) != 0;
  const double count = scalarOr(call(tiled ? "numberOfTiles" : "numberOfStrips", {file}), 0);
  for (double block = 0; block < std::min(count, kMostBlocks); ++block) {
    call(tiled ? "readEncodedTile" : "readEncodedStrip", {file, number(block).get()});
  }
  call(tiled ? "readEncodedTile" : "readEncodedStrip", {file, number(count - 1).get()});
}

void readTags(const vxArray* file) {
  for (int tag = 254; tag <= 532; ++tag) call("getField", {file, number(tag).get()});
  for (const int tag : {700, 32997, 33432, 33550, 33723, 33922, 34264, 34377, 34675, 34735, 34736,
                        34737, 37439, 50844, 65537, 65557, 65560}) {
    call("getField", {file, number(tag).get()});
  }
}

void readRgba(const vxArray* file) {
  const double width = scalarOr(call("getField", {file, number(256).get()}), 0);
  const double length = scalarOr(call("getField", {file, number(257).get()}), 0);
  if (width * length > kMostPixels) return;
  call("readRGBAImage", {file});
  call("readRGBAStrip", {file, number(length - 1).get()});
  call("readRGBATile", {file, number(width - 1).get(), number(length - 1).get()});
}

}  // namespace

Outcome attempt(const std::string& operation, std::initializer_list<const vxArray*> inputs) {
  prepareOnce();
  const vxArrayPtr name = matrix::create(operation);
  std::vector<const vxArray*> arguments{name.get()};
  arguments.insert(arguments.end(), inputs);
  Outcome outcome{std::vector<vxArrayPtr>(3), {}};
  const runtime::GatewayScope scope;
  hostWasWarned = false;
  try {
    tagbridge(static_cast<int>(outcome.outputs.size()), outcome.outputs.data(),
              static_cast<int>(arguments.size()), arguments.data());
    return outcome;
  } catch (const foundation::core::except::IMsgIDException& error) {
    return {std::vector<vxArrayPtr>(3), error.message().identifier()};
  } catch (const std::bad_alloc&) {
    return {std::vector<vxArrayPtr>(3), "bad_alloc"};
  }
}

std::vector<vxArrayPtr> call(const std::string& operation,
                             std::initializer_list<const vxArray*> inputs) {
  return attempt(operation, inputs).outputs;
}

vxArrayPtr number(double value) {
  constexpr std::size_t kScalar[] = {1, 1};
  vxArrayPtr array = matrix::detail::do_create_numeric(vxDOUBLE, kScalar);
  std::memcpy(vxGetWritableData(array.get()), &value, sizeof value);
  return array;
}

double scalarOr(const std::vector<vxArrayPtr>& outputs, double fallback) {
  return outputs[0] ? vxGetScalar(outputs[0].get()) : fallback;
}

MemoryFile::MemoryFile(std::span<const unsigned char> contents)
    : descriptor_(memfd_create("tagbridge-fuzz", MFD_CLOEXEC)) {
  const auto written = write(descriptor_, contents.data(), contents.size());
  if (descriptor_ < 0 || written != static_cast<ssize_t>(contents.size())) std::abort();
}

MemoryFile::~MemoryFile() { close(descriptor_); }

std::string MemoryFile::name() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

void readEverything(const vxArray* file) {
  for (int directory = 0; directory < kMostDirectories; ++directory) {
    call("retrieveMetadata", {file});
    readBlocks(file);
    readTags(file);
    readRgba(file);
    if (scalarOr(call("lastDirectory", {file}), 1) != 0) return;
    call("readDirectory", {file});
  }
}

}  // namespace tb::fuzz

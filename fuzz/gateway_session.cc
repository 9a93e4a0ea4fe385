#include "fuzz/gateway_session.h"

#include <sys/mman.h>
#include <tiffio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <set>
#include <utility>

#include "core/errors.h"
#include "core/export.h"
#include "fuzz/finding.h"
#include "gateway/cleanup.h"
#include "gateway/gateway.h"
#include "host/errors.h"
#include "host/tiff_utilities.h"
#include "runtime/file_objects.h"
#include "runtime/loader.h"
#include "runtime/memory.h"
#include "runtime/reporting.h"
#include "tags/tag_table.h"

// Stands in for the C library's: the pauses between attempts to open a file that is none would take
// nearly all of a fuzzer's time.
extern "C" int nanosleep(const timespec*, timespec*) { return 0; }

// What the sanitizers do unless the environment says otherwise. A file can claim any size, and
// libtiff handles an allocation that fails.
extern "C" TAGBRIDGE_EXPORT const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" TAGBRIDGE_EXPORT const char* __ubsan_default_options();
extern "C" const char* __ubsan_default_options() { return "print_stacktrace=1"; }

namespace tb::fuzz {
namespace {

constexpr int kMostDirectories = 8;
constexpr std::size_t kMostSubDirectories = 4;
constexpr double kMostBlocks = 16;
constexpr double kMostPixels = 1 << 20;

std::size_t hostWarnings = 0;
std::string lastReported;  // the identifier of the error that the host was told of last
CallObserver callObserver = nullptr;
OutcomeObserver outcomeObserver = nullptr;

class ObservedCall {
 public:
  ObservedCall() { tell(true); }
  ObservedCall(const ObservedCall&) = delete;
  ObservedCall& operator=(const ObservedCall&) = delete;
  ~ObservedCall() { tell(false); }

 private:
  static void tell(bool isInside) {
    if (callObserver != nullptr) callObserver(isInside);
  }
};

void prepareOnce() {
  static const bool prepared = [] {
    runtime::setMemoryLimit(kReadMemory);
    runtime::setWarningSink([](const resource_core::BaseMsgID&) { ++hostWarnings; });
    runtime::setErrorReporter([](const foundation::core::except::IUserException& error) {
      lastReported = dynamic_cast<const foundation::core::except::IMsgIDException&>(error)
                         .message()
                         .identifier();
    });
    return true;
  }();
  (void)prepared;
}

const std::set<std::string, std::less<>>& listedErrors() {
#define TAGBRIDGE_IDENTIFIER(group, id) std::string(group::id::component) + ":" + group::id::name,
  static const std::set<std::string, std::less<>> identifiers = {
      TAGBRIDGE_ERRORS(TAGBRIDGE_IDENTIFIER) "KORVAL:pictoria:host:characterNotNarrow"};
#undef TAGBRIDGE_IDENTIFIER
  return identifiers;
}

void checkError(const foundation::core::except::IMsgIDException& error,
                const std::string& identifier) {
  if (!listedErrors().contains(identifier)) fail("an error that is not listed: " + identifier);
  if (lastReported != identifier)
    fail(identifier + " was thrown, and \"" + lastReported + "\" reported");
  // Arguments that do not fit are told in a row behind the identifier.
  if (error.messageText().starts_with(identifier)) fail("the arguments of " + identifier);
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
  for (const TagRow& row : tagTable())
    if (row.reading.read != nullptr) call("getField", {file, number(row.tag).get()});
}

void readRgba(const vxArray* file) {
  const double width = tagNumber(file, TIFFTAG_IMAGEWIDTH);
  const double length = tagNumber(file, TIFFTAG_IMAGELENGTH);
  if (width * length > kMostPixels) return;
  call("readRGBAImage", {file});
  const double rows = std::max({1.0, tagNumber(file, TIFFTAG_ROWSPERSTRIP),
                                tagNumber(file, TIFFTAG_TILELENGTH), length / kMostBlocks});
  const double columns = std::max({1.0, tagNumber(file, TIFFTAG_TILEWIDTH), width / kMostBlocks});
  for (double row = 0; row < length; row += rows) {
    call("readRGBAStrip", {file, number(row).get()});
    for (double column = 0; column < width; column += columns)
      call("readRGBATile", {file, number(row).get(), number(column).get()});
  }
  call("readRGBAStrip", {file, number(length - 1).get()});
  call("readRGBATile", {file, number(width - 1).get(), number(length - 1).get()});
}

void readContents(const vxArray* file) {
  call("retrieveMetadata", {file});
  readBlocks(file);
  readTags(file);
  readRgba(file);
}

// The sub-directories of the current directory, which is current again afterwards.
void readSubDirectories(const vxArray* file) {
  const auto current = call("currentDirectory", {file});
  const auto offsets = call("getField", {file, number(TIFFTAG_SUBIFD).get()});
  if (!offsets[0] || vxGetClassID(offsets[0].get()) != vxUINT64) return;
  const auto* first = static_cast<const std::uint64_t*>(vxGetData(offsets[0].get()));
  const std::size_t count = std::min(vxGetNumberOfElements(offsets[0].get()), kMostSubDirectories);
  for (const std::uint64_t offset : std::span(first, count)) {
    if (attempt("setSubDirectory", {file, number(static_cast<double>(offset)).get()}).error.empty())
      readContents(file);
    call("setDirectory", {file, number(scalarOr(current, 1) - 1).get()});
  }
}

// Runs what enters the module, and says in the outcome what came of it.
template <class Act>
void enter(Outcome& outcome, Act act) {
  prepareOnce();
  const runtime::GatewayScope scope;
  hostWarnings = 0;
  lastReported.clear();
  try {
    const ObservedCall observed;
    act();
  } catch (const foundation::core::except::IMsgIDException& error) {
    outcome.error = error.message().identifier();
    checkError(error, outcome.error);
  } catch (const runtime::FileObjectFailure&) {
    outcome.error = "FileObjectFailure";
  } catch (const std::bad_alloc&) {
    outcome.error = "bad_alloc";
  }
  outcome.warned = hostWarnings > 0;
  outcome.warnings = hostWarnings;
}

}  // namespace

void observeCalls(CallObserver observer) noexcept { callObserver = observer; }

void observeOutcomes(OutcomeObserver observer) noexcept { outcomeObserver = observer; }

Outcome attemptWith(std::vector<vxArrayPtr> outputs, std::span<const vxArray* const> inputs) {
  Outcome outcome{std::move(outputs), {}};
  enter(outcome, [&] {
    tagbridge(static_cast<int>(outcome.outputs.size()), outcome.outputs.data(),
              static_cast<int>(inputs.size()), inputs.data());
  });
  if (outcomeObserver != nullptr) outcomeObserver(inputs, outcome);
  return outcome;
}

Outcome attemptCleanup() {
  Outcome outcome;
  enter(outcome, [] {
    ZQTIFFinitializeErrorStack();
    TagBridgeCleanup();
    ZQTIFFcheckErrorAsWarning();
  });
  if (outcomeObserver != nullptr) outcomeObserver({}, outcome);
  return outcome;
}

Outcome attempt(const std::string& operation, std::initializer_list<const vxArray*> inputs) {
  prepareOnce();
  const vxArrayPtr name = matrix::create(operation);
  std::vector<const vxArray*> arguments{name.get()};
  arguments.insert(arguments.end(), inputs);
  return attemptWith(std::vector<vxArrayPtr>(3), arguments);
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

double tagNumber(const vxArray* file, int tag) {
  return scalarOr(call("getField", {file, number(tag).get()}), 0);
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
    readContents(file);
    readSubDirectories(file);
    if (scalarOr(call("lastDirectory", {file}), 1) != 0) return;
    call("readDirectory", {file});
  }
}

}  // namespace tb::fuzz

// A sequence of calls of any operations with any values of the host: any class, shape and content,
// any numbers of inputs and outputs, identifiers of files that are open, were open or never were.
// Each call delivers what was asked for or raises one error of the list, and then leaves the output
// slots alone.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fuzz/file_limit.h"
#include "fuzz/finding.h"
#include "fuzz/gateway_session.h"
#include "fuzz/host_values.h"
#include "fuzz/sequence_files.h"
#include "fuzz/sequence_values.h"
#include "fuzz/switches.h"
#include "gateway/cleanup.h"
#include "runtime/loader.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tb::fuzz {
namespace {

// As in a sequence, a call can be taken out and the others stay what they are.
constexpr std::size_t kHeaderLength = 4;
constexpr std::size_t kCallLength = 40;
constexpr std::size_t kMostCalls = 40;
constexpr std::size_t kMostOpen = 3;

// Inputs: file, name, mode, index, tag, value of that tag, block of an image.
struct Operation {
  const char* name;
  const char* inputs;
  bool hasOutput;
};

constexpr Operation kOperations[] = {{"open", "nm", true},
                                     {"open", "nm", true},
                                     {"open", "nm", true},
                                     {"close", "f", false},
                                     {"computeStrip", "fii", true},
                                     {"computeTile", "fvi", true},
                                     {"currentDirectory", "f", true},
                                     {"getField", "ft", true},
                                     {"getField", "ft", true},
                                     {"getVersion", "", true},
                                     {"isTiled", "f", true},
                                     {"lastDirectory", "f", true},
                                     {"numberOfStrips", "f", true},
                                     {"numberOfTiles", "f", true},
                                     {"readDirectory", "f", false},
                                     {"readEncodedStrip", "fi", true},
                                     {"readEncodedTile", "fi", true},
                                     {"readRGBAStrip", "fi", true},
                                     {"readRGBATile", "fii", true},
                                     {"readRGBAImage", "f", true},
                                     {"rewriteDirectory", "f", false},
                                     {"retrieveMetadata", "f", true},
                                     {"setDirectory", "fi", false},
                                     {"setField", "ftv", false},
                                     {"setField", "ftv", false},
                                     {"setField", "ftv", false},
                                     {"setSubDirectory", "fv", false},
                                     {"writeDirectory", "f", false},
                                     {"writeEncodedStrip", "fib", false},
                                     {"writeEncodedTile", "fib", false}};

constexpr std::string_view kNowhere = "/nonexistent/";

std::u16string_view textOf(const vxArray* value) {
  if (vxGetClassID(value) != vxCHAR) return {};
  return {static_cast<const char16_t*>(vxGetData(value)), vxGetNumberOfElements(value)};
}

bool isText(const vxArray* value, std::string_view text) {
  return std::ranges::equal(textOf(value), text);
}

bool isSameFile(const vxArray* a, const vxArray* b) {
  return std::memcmp(vxGetData(a), vxGetData(b), sizeof(std::uint64_t)) == 0;
}

class Calls {
 public:
  // Opens a first file.
  explicit Calls(FuzzedDataProvider& header);
  // Closes what is open, with identifiers and without.
  ~Calls();
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  void makeOne(FuzzedDataProvider& input);

 private:
  void add(char kind, FuzzedDataProvider& input);
  vxArrayPtr anyFile(FuzzedDataProvider& input);
  std::string anyName(FuzzedDataProvider& input) const;
  bool isHarmless() const;
  std::vector<vxArrayPtr> anySlots(FuzzedDataProvider& input) const;
  void run(const Operation& operation, std::vector<vxArrayPtr> slots);
  void check(const Operation& operation, const std::vector<const vxArray*>& before,
             const Outcome& outcome) const;
  void noteClosed();

  MemoryFile whole_, empty_;
  std::vector<vxArrayPtr> open_, closed_;
  std::vector<vxArrayPtr> arguments_;  // of the next call, the operation's name first
  int tag_ = 0;
};

const StartingFile& anyStart(FuzzedDataProvider& header) {
  const auto files = startingFiles();
  return files[header.ConsumeIntegralInRange<std::size_t>(0, files.size() - 1)];
}

Calls::Calls(FuzzedDataProvider& header) : whole_(anyStart(header).contents), empty_({}) {
  const vxArrayPtr name = matrix::create(whole_.name());
  const vxArrayPtr mode = matrix::create(header.PickValueInArray({"r", "r+", "r+", "w", "a"}));
  auto opened = call("open", {name.get(), mode.get()});
  if (opened[0]) open_.push_back(std::move(opened[0]));
}

Calls::~Calls() {
  for (const vxArrayPtr& file : open_) call("close", {file.get()});
  const runtime::GatewayScope scope;
  TagBridgeCleanup();
}

// --- Arguments

// An identifier of an open file, of one that was open, or of none.
vxArrayPtr Calls::anyFile(FuzzedDataProvider& input) {
  const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, 31);
  const auto& files = choice < 4 ? closed_ : open_;
  vxArrayPtr file = filledArray(vxUINT64, {1, 1}, 0);
  auto* const address = static_cast<std::uint64_t*>(vxGetWritableData(file.get()));
  *address = choice == 4 ? input.ConsumeIntegral<std::uint64_t>() : 0;
  if (!files.empty() && choice != 4)
    std::memcpy(address, vxGetData(files[choice % files.size()].get()), sizeof *address);
  if (choice == 5) *address += input.ConsumeIntegralInRange<std::uint64_t>(1, 4096);
  return file;
}

// Nothing is ever made where the target runs.
std::string Calls::anyName(FuzzedDataProvider& input) const {
  switch (input.ConsumeIntegralInRange(0, 7)) {
    case 0:
      return std::string(kNowhere) + input.ConsumeRandomLengthString(8);
    case 1:
      return "/proc/self";
    case 2:
    case 3:
    case 4:
      return empty_.name();
    default:
      return whole_.name();
  }
}

void Calls::add(char kind, FuzzedDataProvider& input) {
  constexpr const char* kModes[] = {"r", "r", "r+", "r+", "w", "w8", "wb", "a", "rm", "rc", "x"};
  constexpr double kPlaces[] = {0, 0, 1, 1, 2, 3, 4, 7, 16, 33, 99, -1, 65535, 4294967295, 0.5};
  if (input.ConsumeIntegralInRange(0, 9) == 0) return arguments_.push_back(anyHostValue(input));
  switch (kind) {
    case 'f':
      return arguments_.push_back(anyFile(input));
    case 'n':
      return arguments_.push_back(matrix::create(anyName(input)));
    case 'm':
      return arguments_.push_back(matrix::create(input.PickValueInArray(kModes)));
    case 'i':
      return arguments_.push_back(number(input.PickValueInArray(kPlaces)));
    case 't':
      tag_ = anyTag(input);
      return arguments_.push_back(number(tag_));
    case 'v':
      return arguments_.push_back(valueForTag(arguments_[1].get(), tag_, input));
    default:
      for (vxArrayPtr& array : arraysForBlock(BlockLayout(arguments_[1].get()), 0,
                                              input.ConsumeIntegral<std::uint8_t>()))
        arguments_.push_back(std::move(array));
  }
}

// An open may name only what add chose, or a write would make files.
bool Calls::isHarmless() const {
  if (arguments_.size() < 2 || !isText(arguments_[0].get(), "open")) return true;
  const vxArray* const name = arguments_[1].get();
  if (vxGetClassID(name) != vxCHAR) return true;
  if (std::ranges::equal(textOf(name).substr(0, kNowhere.size()), kNowhere)) return true;
  const std::string known[] = {"/proc/self", whole_.name(), empty_.name()};
  return std::ranges::any_of(known, [name](const std::string& each) { return isText(name, each); });
}

// --- Calls

std::vector<vxArrayPtr> Calls::anySlots(FuzzedDataProvider& input) const {
  std::vector<vxArrayPtr> slots(input.ConsumeIntegralInRange<std::size_t>(0, 4));
  if (input.ConsumeBool())
    for (vxArrayPtr& slot : slots) slot = number(-7);
  return slots;
}

// Identifiers are addresses, and one of a file that was closed may be that of an open one.
void Calls::noteClosed() {
  const auto isClosed = [this](const vxArrayPtr& file) {
    return isSameFile(file.get(), arguments_[1].get());
  };
  const auto first = std::stable_partition(open_.begin(), open_.end(), std::not_fn(isClosed));
  std::move(first, open_.end(), std::back_inserter(closed_));
  open_.erase(first, open_.end());
}

void Calls::check(const Operation& operation, const std::vector<const vxArray*>& before,
                  const Outcome& outcome) const {
  const bool delivers = outcome.error.empty() && operation.hasOutput;
  const std::size_t most = std::string_view(operation.name).starts_with("readEncoded") ? 3 : 1;
  for (std::size_t slot = 0; slot < before.size(); ++slot) {
    const vxArray* const now = outcome.outputs[slot].get();
    const std::string what = operation.name + (" and output " + std::to_string(slot));
    if (delivers && slot == 0 && (now == nullptr || now == before[slot]))
      fail("nothing was delivered: " + what);
    if (!(delivers && slot < most) && now != before[slot])
      fail("a slot was not left alone: " + what);
  }
}

std::vector<const vxArray*> pointersTo(const std::vector<vxArrayPtr>& arrays) {
  std::vector<const vxArray*> pointers;
  pointers.reserve(arrays.size());
  for (const vxArrayPtr& array : arrays) pointers.push_back(array.get());
  return pointers;
}

void Calls::run(const Operation& operation, std::vector<vxArrayPtr> slots) {
  const std::vector<const vxArray*> inputs = pointersTo(arguments_);
  const std::vector<const vxArray*> before = pointersTo(slots);
  Outcome outcome = attemptWith(std::move(slots), inputs);
  if (isTraced()) {
    for (const vxArray* input : inputs) std::fprintf(stderr, "(%s) ", described(input).c_str());
    std::fprintf(stderr, "%zu outputs: %s\n", before.size(), outcome.error.c_str());
  }
  check(operation, before, outcome);
  if (!outcome.error.empty()) return;
  const std::string_view name = operation.name;
  if (name == "close") noteClosed();
  if (name == "open" && !before.empty()) open_.push_back(std::move(outcome.outputs[0]));
}

void Calls::makeOne(FuzzedDataProvider& input) {
  const Operation& operation = input.PickValueInArray(kOperations);
  const bool isOpen = std::string_view(operation.name) == "open";
  if (isOpen && open_.size() >= kMostOpen) return;
  arguments_.clear();
  arguments_.push_back(matrix::create(operation.name));
  for (const char kind : std::string_view(operation.inputs)) add(kind, input);
  const auto change = input.ConsumeIntegralInRange(0, 31);
  if (change < 2) arguments_.push_back(anyHostValue(input));
  if (change == 2) arguments_.pop_back();
  if (change == 3 && !arguments_.empty()) arguments_[0] = anyHostValue(input);
  if (!isHarmless()) return;
  if (change == 3 || arguments_.empty()) {
    // Whatever operation this is, if any: only that it ends is looked at.
    (void)attemptWith(anySlots(input), pointersTo(arguments_));
    return;
  }
  run(operation, anySlots(input));
}

}  // namespace
}  // namespace tb::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tb::fuzz;
  limitWrites();
  FuzzedDataProvider header(data, std::min(size, kHeaderLength));
  Calls calls(header);
  std::size_t at = kHeaderLength;
  for (std::size_t made = 0; made < kMostCalls && at < size; ++made, at += kCallLength) {
    FuzzedDataProvider input(data + at, std::min(size - at, kCallLength));
    calls.makeOne(input);
  }
  return 0;
}

#include "faults/story.h"

#include <algorithm>
#include <span>
#include <utility>

#include "fuzz/gateway_session.h"
#include "host/array.h"

namespace tb::faults {
namespace {

Story* told = nullptr;

// FNV-1a.
class Hash {
 public:
  void add(const void* data, std::size_t size) noexcept {
    for (const unsigned char byte : std::span(static_cast<const unsigned char*>(data), size))
      value_ = (value_ ^ byte) * 0x100000001b3U;
  }
  std::uint64_t value() const noexcept { return value_; }

 private:
  std::uint64_t value_ = 0xcbf29ce484222325U;
};

void addArray(Hash& hash, const vxArray* array);

void addFields(Hash& hash, const vxArray* array, std::size_t element) {
  for (std::size_t field = 0; field < vxGetNumberOfFields(array); ++field) {
    const std::string name = vxGetFieldNameByNumber(array, field);
    hash.add(name.data(), name.size());
    addArray(hash, vxGetField(array, element, name.c_str()));
  }
}

void addArray(Hash& hash, const vxArray* array) {
  if (array == nullptr) return;
  const vxClassID classId = vxGetClassID(array);
  const std::size_t count = vxGetNumberOfElements(array);
  hash.add(&classId, sizeof classId);
  hash.add(vxGetDimensions(array), vxGetNumberOfDimensions(array) * sizeof(std::size_t));
  if (classId != vxCELL && classId != vxSTRUCT) {
    hash.add(vxGetData(array), count * vxGetElementSize(array));
    return;
  }
  for (std::size_t element = 0; element < count; ++element) {
    if (classId == vxCELL) addArray(hash, vxGetCell(array, element));
    if (classId == vxSTRUCT) addFields(hash, array, element);
  }
}

void tell(std::span<const vxArray* const> inputs, const fuzz::Outcome& outcome) {
  if (told == nullptr) return;
  const std::string operation = inputs.empty() ? "" : matrix::get_string(inputs[0]);
  Hash hash;
  // The identifier of a file is an address.
  for (const vxArrayPtr& output : outcome.outputs)
    if (operation != "open") addArray(hash, output.get());
  told->push_back({operation, outcome.error, outcome.warnings, hash.value()});
}

std::size_t commonSteps(const Story& undisturbed, const Story& story) {
  const auto [first, second] = std::ranges::mismatch(undisturbed, story);
  return static_cast<std::size_t>(second - story.begin());
}

}  // namespace

Telling::Telling(Story& story) : before_(std::exchange(told, &story)) {
  fuzz::observeOutcomes(tell);
}

Telling::~Telling() { told = before_; }

bool isNoticed(const Story& undisturbed, const Story& story) {
  const std::size_t at = commonSteps(undisturbed, story);
  if (at == story.size() || at == undisturbed.size()) return false;
  const Step& is = story[at];
  const Step& was = undisturbed[at];
  return is.operation != was.operation || (!is.error.empty() && is.error != was.error) ||
         is.warnings > was.warnings;
}

std::string firstDifference(const Story& undisturbed, const Story& story) {
  const std::size_t at = commonSteps(undisturbed, story);
  if (at == story.size()) return "";
  const Step& step = story[at];
  return "call " + std::to_string(at) + ", " + step.operation +
         (step.error.empty() ? "" : ": " + step.error);
}

}  // namespace tb::faults

// The session itself: opening, closing and checking, and which step is taken.
#include "fuzz/sequence_session.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdio>
#include <iterator>
#include <optional>
#include <utility>

#include "fuzz/file_limit.h"
#include "fuzz/sequence_values.h"
#include "gateway/cleanup.h"
#include "runtime/loader.h"
#include "runtime/memory.h"

namespace tb::fuzz {
namespace {

constexpr const char* kModes[] = {"r+", "r+", "r+", "r+", "r+",  "r+", "rm", "r",  "a",
                                  "w",  "w",  "wb", "w8", "r+m", "a",  "a8", "ab", "rc"};
constexpr const char* kWritingModes[] = {"w", "wl", "wb", "w8", "wl8", "wb8"};

const char* anyMode(FuzzedDataProvider& header, Repertoire repertoire) {
  return repertoire == Repertoire::kWriting ? header.PickValueInArray(kWritingModes)
                                            : header.PickValueInArray(kModes);
}

// Lowers the memory limit for one call; 0 leaves it as it is.
class MemoryLimit {
 public:
  explicit MemoryLimit(std::size_t bytes) : before_(runtime::memoryLimit()) {
    if (bytes > 0) runtime::setMemoryLimit(bytes);
  }
  ~MemoryLimit() { runtime::setMemoryLimit(before_); }
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;

 private:
  const std::size_t before_;
};

rlim_t sizeOf(const std::string& name) {
  struct stat status {};
  return stat(name.c_str(), &status) == 0 ? static_cast<rlim_t>(status.st_size) : 0;
}

}  // namespace

const Session::Row Session::kRows[] = {
    {"setField", &Session::setField},
    {"setField", &Session::setField},
    {"setField", &Session::setField},
    {"setAnything", &Session::setAnything},
    {"layOut", &Session::layOut},
    {"setDirectory", &Session::setDirectory},
    {"readDirectory", &Session::readDirectory},
    {"setSubDirectory", &Session::setSubDirectory},
    {"readBlock", &Session::readBlock, true},
    {"readBlock", &Session::readBlock, true},
    {"readRgba", &Session::readRgba, true},
    {"writeBlock", &Session::writeBlock, true},
    {"writeBlock", &Session::writeBlock, true},
    {"writeAnything", &Session::writeAnything, true},
    {"rewriteDirectory", &Session::rewriteDirectory},
    {"writeDirectory", &Session::writeDirectory},
    {"reopen", &Session::reopen},
    {"query", &Session::query, true},
};

const Session::Row Session::kWritingRows[] = {
    {"setField", &Session::setField},
    {"setField", &Session::setField},
    {"setField", &Session::setField},
    {"setAnything", &Session::setAnything},
    {"layOut", &Session::layOut},
    {"writeBlock", &Session::writeBlock, true},
    {"writeBlock", &Session::writeBlock, true},
    {"writeBlock", &Session::writeBlock, true},
    {"writeBlock", &Session::writeBlock, true},
    {"writeBlock", &Session::writeBlock, true},
    {"writeAnything", &Session::writeAnything, true},
    {"writeDirectory", &Session::writeDirectory},
};

// --- Opening and closing

Session::Session(FuzzedDataProvider& header, const StartingFile& start, const Bytes& contents,
                 bool whole, Repertoire repertoire)
    : repertoire_(repertoire), contents_(contents), modelled_(whole) {
  if (isTraced()) std::fprintf(stderr, "file %s%s\n", start.name, whole ? "" : ", damaged");
  open(anyMode(header, repertoire));
}

void Session::open(const char* mode) {
  mode_ = mode;
  if (fuzz::isOff("mode:" + mode_)) return;
  pages_.clear();
  new_ = {};
  awaitsSubPages_ = isSpoilt_ = false;
  const bool truncates = mode_.starts_with("w");
  if (modelled_ && !truncates)
    for (Page& page : pagesOf(contents_.name()).value_or(std::vector<Page>{}))
      pages_.emplace_back().before = std::move(page);
  place_ = mode_.starts_with("r") ? Place::kPage : Place::kNew;
  page_ = 0;
  const vxArrayPtr name = matrix::create(contents_.name());
  const vxArrayPtr text = matrix::create(mode_);
  Outcome opened = run("open", {name.get(), text.get()});
  file_ = std::move(opened.outputs[0]);
  if (truncates) modelled_ = true;  // whatever was wrong with it is gone
  if (modelled_ && !file_ && mode_.starts_with("r") && !pages_.empty() && isPristine_)
    fail("the module cannot open a whole file: " + opened.error);
  isPristine_ = false;
}

void Session::close(bool byCleanup) {
  if (!file_) return;
  bool certain = !limited_;
  if (byCleanup) {
    if (isTraced()) std::fprintf(stderr, "cleanup\n");
    const runtime::GatewayScope scope;
    TagBridgeCleanup();
    certain = false;
  } else {
    certain = !run("close", {file_.get()}).warned && certain;
  }
  file_ = nullptr;
  if (place_ == Place::kNew) {
    if (certain && new_.written && !awaitsSubPages_ && !isSpoilt_)
      pages_.push_back(std::move(new_));
  } else if (!certain) {
    forgetCurrentValues();
  }
  if (modelled_) checkPages(contents_.name(), pages_);
  // Blocks of a layout that is not theirs may be said to lie where others will be written.
  for (const Expected& page : pages_) modelled_ = modelled_ && !(page.before && page.layoutEdited);
}

void Session::reopen(FuzzedDataProvider& input) {
  const char* mode = input.PickValueInArray(kModes);
  const bool byCleanup = input.ConsumeIntegralInRange(0, 7) == 0 && !isOff("cleanup");
  close(byCleanup);
  limitFileSize(kLargestFile);
  memory_ = 0;  // or libtiff could allocate no more for as long as the file is open
  open(mode);
}

Outcome Session::run(const char* operation, std::initializer_list<const vxArray*> inputs) {
  if (isTraced()) {
    std::fprintf(stderr, "%s", operation);
    for (const vxArray* input : inputs)
      if (input != file_.get()) std::fprintf(stderr, " (%s)", described(input).c_str());
  }
  const MemoryLimit limit(memory_);
  Outcome outcome = attempt(operation, inputs);
  if (isTraced())
    std::fprintf(
        stderr, " %s%s%s%s\n", limited_ ? "[limited] " : "", memory_ > 0 ? "[little memory] " : "",
        outcome.error.empty() ? "done" : outcome.error.c_str(), outcome.warned ? ", warned" : "");
  return outcome;
}

Session::Row Session::anyRow(FuzzedDataProvider& input) const {
  return repertoire_ == Repertoire::kWriting ? input.PickValueInArray(kWritingRows)
                                             : input.PickValueInArray(kRows);
}

void Session::step(FuzzedDataProvider& input) {
  const Row row = anyRow(input);
  const auto room = input.ConsumeIntegral<std::uint8_t>();
  if (isOff(row.name)) return;
  limited_ = room < 24 && repertoire_ == Repertoire::kAnything && !fuzz::isOff("limit");
  constexpr rlim_t kRooms[] = {0, 1, 8, 64, 200, 1000};
  if (limited_) limitFileSize(sizeOf(contents_.name()) + kRooms[room % std::size(kRooms)]);
  constexpr std::size_t kMemories[] = {512, 4 << 10, 64 << 10, 1 << 20};
  if (room >= 24 && room < 32 && !fuzz::isOff("memory"))
    memory_ = kMemories[room % std::size(kMemories)];
  // Nothing but errors comes of an image operation on a new directory.
  if (row.needsImage && isBlank() && input.ConsumeIntegralInRange(0, 7) > 0) layOut(input);
  (this->*row.run)(input);
  limitFileSize(kLargestFile);
  limited_ = false;
  memory_ = 0;
}

// --- What is known of the current directory

Expected& Session::current() {
  if (place_ == Place::kPage && page_ < pages_.size()) return pages_[page_];
  if (place_ == Place::kSubPage && page_ < pages_.size()) {
    pages_[page_].layoutEdited = true;
    pages_[page_].forgetValues();
  }
  return new_;
}

void Session::noteLayoutEdit() {
  Expected& now = current();
  now.layoutEdited = true;
  now.forgetValues();
}

void Session::forgetCurrentValues() { current().forgetValues(); }

// Edits that were not written are gone with the directory.
void Session::leave() {
  forgetCurrentValues();
  new_ = {};
}

}  // namespace tb::fuzz

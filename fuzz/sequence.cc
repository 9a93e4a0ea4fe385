#include "fuzz/sequence.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tiffio.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "core/open_files.h"
#include "fuzz/file_damage.h"
#include "fuzz/gateway_session.h"
#include "fuzz/sequence_files.h"
#include "fuzz/sequence_model.h"
#include "fuzz/sequence_values.h"
#include "fuzz/switches.h"
#include "gateway/cleanup.h"
#include "runtime/loader.h"
#include "runtime/memory.h"

namespace tb::fuzz {
namespace {

constexpr std::size_t kMemoryLimit = std::size_t{256} << 20;
constexpr rlim_t kLargestFile = rlim_t{64} << 20;
// A fuzzer that meets a finding while the limit holds must be able to store the input.
constexpr rlim_t kSmallestLimit = kHeaderLength + kMostSteps * kStepLength;
constexpr double kMostPixels = 1 << 22;

constexpr const char* kModes[] = {"r+", "r+", "r+", "r+", "r+",  "r+", "rm", "r",  "a",
                                  "w",  "w",  "wb", "w8", "r+m", "a",  "a8", "ab", "rc"};
constexpr int kObservedTags[] = {254, 256, 257, 258, 259, 262, 270, 277, 278, 284, 305,
                                 315, 317, 320, 322, 323, 330, 338, 339, 347, 530};

void limitFileSize(rlim_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  limit.rlim_cur = std::min(std::max(bytes, kSmallestLimit), limit.rlim_max);
  setrlimit(RLIMIT_FSIZE, &limit);
}

void prepareOnce() {
  static const bool prepared = [] {
    std::signal(SIGXFSZ, SIG_IGN);
    call("getVersion", {});  // sets the memory limit of the other targets first
    runtime::setMemoryLimit(kMemoryLimit);
    return true;
  }();
  (void)prepared;
}

rlim_t sizeOf(const std::string& name) {
  struct stat status {};
  return stat(name.c_str(), &status) == 0 ? static_cast<rlim_t>(status.st_size) : 0;
}

std::string shortened(double value) {
  std::string text(32, '\0');
  text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%.12g", value)));
  return text;
}

std::string described(const vxArray* array) {
  std::string text = vxGetClassName(array);
  const std::size_t* sizes = vxGetDimensions(array);
  for (std::size_t i = 0; i < vxGetNumberOfDimensions(array); ++i) {
    text += i == 0 ? " " : "x";
    text += std::to_string(sizes[i]);
  }
  if (vxGetNumberOfElements(array) == 0 || vxGetClassID(array) == vxCELL) return text;
  text += " ";
  if (vxGetClassID(array) != vxCHAR) return text + shortened(vxGetScalar(array));
  for (const char16_t unit : matrix::get_ustring(array).substr(0, 20))
    text += unit < 128 ? static_cast<char>(unit) : '?';
  return text;
}

vxArrayPtr integer(std::int64_t value) {
  vxArrayPtr array = filledArray(vxINT64, {1, 1}, 0);
  std::memcpy(vxGetWritableData(array.get()), &value, sizeof value);
  return array;
}

// Where the handle stands.
enum class Place { kPage, kSubPage, kNew };

class Session {
 public:
  Session(FuzzedDataProvider& header, const StartingFile& start, Bytes contents, bool whole)
      : contents_(contents), modelled_(whole) {
    if (isTraced()) std::fprintf(stderr, "file %s%s\n", start.name, whole ? "" : ", damaged");
    open(header.PickValueInArray(kModes));
  }
  ~Session() { close(false); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  bool isOpen() const { return file_ != nullptr; }
  void step(FuzzedDataProvider& input);

 private:
  using Step = void (Session::*)(FuzzedDataProvider&);
  struct Row {
    const char* name;
    Step run;
    bool needsImage = false;
  };
  static const Row kRows[];

  void open(const char* mode);
  void close(bool byCleanup);
  bool isOff(const char* operation) const {
    return fuzz::isOff(operation) || fuzz::isOff(std::string(operation) + "@" + mode_);
  }
  Outcome run(const char* operation, std::initializer_list<const vxArray*> inputs);

  void setField(FuzzedDataProvider& input);
  void setAnything(FuzzedDataProvider& input);
  void layOut(FuzzedDataProvider& input);
  void setDirectory(FuzzedDataProvider& input);
  void readDirectory(FuzzedDataProvider& input);
  void setSubDirectory(FuzzedDataProvider& input);
  void readBlock(FuzzedDataProvider& input);
  void readRgba(FuzzedDataProvider& input);
  void writeBlock(FuzzedDataProvider& input);
  void writeAnything(FuzzedDataProvider& input);
  void rewriteDirectory(FuzzedDataProvider& input);
  void writeDirectory(FuzzedDataProvider& input);
  void reopen(FuzzedDataProvider& input);
  void query(FuzzedDataProvider& input);

  void store(int tag, const vxArray* value);
  bool move(const char* operation, std::initializer_list<const vxArray*> inputs);
  std::vector<std::string> observed();
  Expected& current();
  void noteLayoutEdit();
  void noteWritten(const Outcome& outcome);
  bool isReadOnly() const { return mode_.starts_with("r") && !mode_.starts_with("r+"); }
  void leave();
  void forgetCurrentValues();
  bool isBlank() {
    return (!mode_.starts_with("r") || mode_.starts_with("r+")) &&
           !attempt("getField", {file_.get(), number(TIFFTAG_PHOTOMETRIC).get()}).error.empty();
  }
  std::uint32_t anyBlock(FuzzedDataProvider& input);
  bool isTiled() { return scalarOr(call("isTiled", {file_.get()}), 0) != 0; }
  double blockCount() {
    return scalarOr(call(isTiled() ? "numberOfTiles" : "numberOfStrips", {file_.get()}), 0);
  }

  bool isPristine_ = true;  // nothing was done to the file
  MemoryFile contents_;
  bool modelled_;  // the file is one of which something can be said
  std::string mode_;
  vxArrayPtr file_;
  bool limited_ = false;  // the step runs with little room in the file
  Place place_ = Place::kPage;
  std::size_t page_ = 0;
  std::vector<Expected> pages_;
  Expected new_;
  bool awaitsSubPages_ = false;  // what is written next may become a sub-directory
  bool isSpoilt_ = false;        // nothing more can be written through the handle
};

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

// --- Opening and closing

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
  open(mode);
}

Outcome Session::run(const char* operation, std::initializer_list<const vxArray*> inputs) {
  if (isTraced()) {
    std::fprintf(stderr, "%s", operation);
    for (const vxArray* input : inputs)
      if (input != file_.get()) std::fprintf(stderr, " (%s)", described(input).c_str());
  }
  Outcome outcome = attempt(operation, inputs);
  if (isTraced())
    std::fprintf(stderr, " %s%s%s\n", limited_ ? "[limited] " : "",
                 outcome.error.empty() ? "done" : outcome.error.c_str(),
                 outcome.warned ? ", warned" : "");
  return outcome;
}

void Session::step(FuzzedDataProvider& input) {
  const Row& row = input.PickValueInArray(kRows);
  const auto room = input.ConsumeIntegral<std::uint8_t>();
  if (isOff(row.name)) return;
  limited_ = room < 24 && !fuzz::isOff("limit");
  constexpr rlim_t kRooms[] = {0, 1, 8, 64, 200, 1000};
  if (limited_) limitFileSize(sizeOf(contents_.name()) + kRooms[room % std::size(kRooms)]);
  // Nothing but errors comes of an image operation on a new directory.
  if (row.needsImage && isBlank() && input.ConsumeIntegralInRange(0, 7) > 0) layOut(input);
  (this->*row.run)(input);
  limitFileSize(kLargestFile);
  limited_ = false;
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

// --- Tags

void Session::store(int tag, const vxArray* value) {
  if (fuzz::isOff("tag:" + std::to_string(tag)) ||
      fuzz::isOff("tag:" + std::to_string(tag) + "@" + mode_))
    return;
  const vxArrayPtr tagNumber = number(tag);
  const Outcome outcome = run("setField", {file_.get(), tagNumber.get(), value});
  if (isReadOnly()) return;
  if (tag == TIFFTAG_SUBIFD) awaitsSubPages_ = true;
  if (isLayoutTag(tag)) return noteLayoutEdit();
  Expected& now = current();
  now.described = true;
  now.texts.erase(tag);
  if (outcome.error.empty() && isTextTag(tag) && vxGetClassID(value) == vxCHAR)
    now.texts[tag] = matrix::get_string(value);
}

void Session::setField(FuzzedDataProvider& input) {
  const int tag = anyTag(input);
  store(tag, valueForTag(file_.get(), tag, input).get());
}

void Session::setAnything(FuzzedDataProvider& input) {
  const int tag = anyTag(input);
  store(tag, anyArray(input).get());
}

// Makes the current directory an image that can be written, as far as it lets itself be changed.
void Session::layOut(FuzzedDataProvider& input) {
  const auto set = [this](int tag, double value) { store(tag, number(value).get()); };
  struct Kind {
    double photometric, bits, samples, compression, format;
  };
  constexpr Kind kKinds[] = {
      {1, 8, 1, 1, 1}, {1, 8, 1, 5, 1},  {1, 16, 1, 8, 1},       {2, 8, 3, 1, 1},
      {2, 8, 3, 5, 1}, {2, 8, 3, 7, 1},  {1, 8, 1, 7, 1},        {0, 1, 1, 3, 1},
      {0, 1, 1, 4, 1}, {1, 32, 1, 8, 3}, {6, 8, 3, 7, 1},        {6, 8, 3, 1, 1},
      {1, 1, 1, 1, 1}, {1, 64, 1, 1, 3}, {5, 8, 4, 32773, 1},    {32844, 0, 0, 34676, 0},
      {1, 8, 1, 8, 2}, {2, 16, 3, 5, 1}, {32845, 0, 0, 34676, 0}};
  const Kind kind = input.PickValueInArray(kKinds);
  constexpr double kSizes[] = {16, 20, 32, 40};
  set(TIFFTAG_PHOTOMETRIC, kind.photometric);
  set(TIFFTAG_IMAGEWIDTH, input.PickValueInArray(kSizes));
  set(TIFFTAG_IMAGELENGTH, input.PickValueInArray(kSizes));
  if (kind.bits > 0) {
    set(TIFFTAG_BITSPERSAMPLE, kind.bits);
    set(TIFFTAG_SAMPLESPERPIXEL, kind.samples);
    set(TIFFTAG_SAMPLEFORMAT, kind.format);
  }
  set(TIFFTAG_PLANARCONFIG, input.ConsumeIntegralInRange(0, 5) == 0 ? 2 : 1);
  set(TIFFTAG_COMPRESSION, kind.compression);
  if (kind.photometric > 32768) set(TIFFTAG_SGILOGDATAFMT, input.ConsumeBool() ? 0 : 3);
  if (input.ConsumeBool()) {
    set(TIFFTAG_TILEWIDTH, 16);
    set(TIFFTAG_TILELENGTH, input.ConsumeBool() ? 16 : 32);
  } else {
    set(TIFFTAG_ROWSPERSTRIP, input.ConsumeBool() ? 16 : 8);
  }
}

// --- Directories

// What a host can see of the current directory.
std::vector<std::string> Session::observed() {
  std::vector<std::string> seen;
  const auto add = [&](const Outcome& outcome) {
    std::string text = outcome.error;
    if (const vxArray* array = outcome.outputs[0].get()) {
      text += described(array);
      if (vxGetClassID(array) != vxCELL)
        text.append(static_cast<const char*>(vxGetData(array)),
                    vxGetNumberOfElements(array) * vxGetElementSize(array));
    }
    seen.push_back(text);
  };
  for (const char* operation : {"currentDirectory", "isTiled", "numberOfStrips", "numberOfTiles"})
    add(attempt(operation, {file_.get()}));
  for (const int tag : kObservedTags) add(attempt("getField", {file_.get(), number(tag).get()}));
  return seen;
}

// Whether the move was made. One that was not must have changed nothing.
bool Session::move(const char* operation, std::initializer_list<const vxArray*> inputs) {
  const std::vector<std::string> before = observed();
  const Outcome outcome = run(operation, inputs);
  // A compression that cannot be named is found out after the move.
  if (outcome.error.empty() || outcome.error.ends_with("unsupportedCompressionScheme")) return true;
  if (fuzz::isOff("check:move")) return false;
  const std::vector<std::string> after = observed();
  for (std::size_t i = 0; i < before.size(); ++i)
    if (before[i] != after[i])
      fail("after a failed " + std::string(operation) + " (" + outcome.error + ") " +
           (i < 4 ? "question " + std::to_string(i)
                  : "tag " + std::to_string(kObservedTags[i - 4])) +
           " is answered in another way");
  return false;
}

void Session::setDirectory(FuzzedDataProvider& input) {
  constexpr double kFar[] = {99, 65535, 4294967295, -1};
  const auto near = input.ConsumeIntegralInRange<std::size_t>(0, 5);
  const std::size_t page = near < 4 && !pages_.empty() ? near % pages_.size() : near;
  const double wanted = near < 5 ? static_cast<double>(page) : input.PickValueInArray(kFar);
  if (!move("setDirectory", {file_.get(), number(wanted).get()})) return;
  leave();
  place_ = Place::kPage;
  page_ = page;
}

void Session::readDirectory(FuzzedDataProvider&) {
  if (!move("readDirectory", {file_.get()})) return;
  leave();
  ++page_;
}

void Session::setSubDirectory(FuzzedDataProvider& input) {
  const auto outputs = call("getField", {file_.get(), number(TIFFTAG_SUBIFD).get()});
  vxArrayPtr wanted = anyArray(input);
  const std::size_t count = outputs[0] ? vxGetNumberOfElements(outputs[0].get()) : 0;
  if (count > 0 && vxGetClassID(outputs[0].get()) == vxUINT64) {
    wanted = filledArray(vxUINT64, {1, 1}, 0);
    const auto* offsets = static_cast<const std::uint64_t*>(vxGetData(outputs[0].get()));
    *static_cast<std::uint64_t*>(vxGetWritableData(wanted.get())) =
        offsets[input.ConsumeIntegralInRange<std::size_t>(0, count - 1)];
  }
  if (count == 0 && input.ConsumeIntegralInRange(0, 7) > 0) return;
  if (!move("setSubDirectory", {file_.get(), wanted.get()})) return;
  leave();
  place_ = Place::kSubPage;
}

void Session::rewriteDirectory(FuzzedDataProvider&) {
  noteWritten(run("rewriteDirectory", {file_.get()}));
}

void Session::writeDirectory(FuzzedDataProvider&) {
  noteWritten(run("writeDirectory", {file_.get()}));
}

void Session::noteWritten(const Outcome& outcome) {
  if (isReadOnly()) return;
  if (!outcome.error.empty()) {
    isSpoilt_ = true;
    return noteLayoutEdit();
  }
  if (place_ == Place::kNew && !awaitsSubPages_) pages_.push_back(std::move(new_));
  if (place_ == Place::kPage && page_ < pages_.size() && pages_[page_].before)
    awaitsSubPages_ = awaitsSubPages_ || !pages_[page_].before->subPages.empty();
  new_ = {};
  place_ = Place::kNew;
}

// --- Blocks

// Mostly one that there is, and often one that was written.
std::uint32_t Session::anyBlock(FuzzedDataProvider& input) {
  const auto choice = input.ConsumeIntegralInRange<std::uint32_t>(0, 63);
  const auto& written = current().blocks;
  const double count = blockCount();
  if (choice < 24 && !written.empty())
    return std::next(written.begin(), choice % static_cast<std::uint32_t>(written.size()))->first;
  if (choice < 56 && count > 0) return choice % static_cast<std::uint32_t>(std::min(count, 64.0));
  return choice % 10;
}

void Session::readBlock(FuzzedDataProvider& input) {
  const bool tiled = isTiled() != (input.ConsumeIntegralInRange(0, 15) == 0);
  const std::uint32_t block = anyBlock(input);
  const Outcome outcome =
      run(tiled ? "readEncodedTile" : "readEncodedStrip", {file_.get(), number(block).get()});
  const Expected& now = current();
  const auto written = now.blocks.find(block);
  if (!modelled_ || fuzz::isOff("check:read") || tiled != isTiled()) return;
  if (written == now.blocks.end()) return;
  if (!outcome.error.empty()) fail("a block that was written cannot be read: " + outcome.error);
  if (!sameArray(outcome.outputs[0].get(), written->second.get()))
    fail("a block is not read as it was written");
}

void Session::readRgba(FuzzedDataProvider& input) {
  const BlockLayout layout(file_.get());
  if (layout.width * layout.length > kMostPixels) return;
  const double row = input.ConsumeIntegralInRange(0, 40);
  switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0:
      run("readRGBAImage", {file_.get()});
      return;
    case 1:
      run("readRGBAStrip", {file_.get(), number(row).get()});
      return;
    default:
      run("readRGBATile",
          {file_.get(), number(row).get(), number(input.ConsumeIntegralInRange(0, 40)).get()});
  }
}

void Session::writeBlock(FuzzedDataProvider& input) {
  const BlockLayout layout(file_.get());
  const std::uint32_t block = anyBlock(input);
  const auto seed = input.ConsumeIntegral<std::uint8_t>();
  std::vector<vxArrayPtr> arrays = arraysForBlock(layout, block, seed);
  const bool asInteger = input.ConsumeIntegralInRange(0, 7) == 0 && !fuzz::isOff("integers");
  const vxArrayPtr place = asInteger ? integer(block) : number(block);
  const char* operation = layout.tiled ? "writeEncodedTile" : "writeEncodedStrip";
  const Outcome outcome = arrays.size() == 1
                              ? run(operation, {file_.get(), place.get(), arrays[0].get()})
                              : run(operation, {file_.get(), place.get(), arrays[0].get(),
                                                arrays[1].get(), arrays[2].get()});
  if (isReadOnly()) return;
  Expected& now = current();
  now.touchedBlocks.insert(block);
  now.blocks.erase(block);
  now.written = now.written || outcome.error.empty();
  if (outcome.error.empty() && !outcome.warned && arrays.size() == 1 && layout.lossless() &&
      layout.width * layout.length <= kMostPixels && isWholeBlock(layout, block, arrays[0].get()))
    now.blocks[block] = std::move(arrays[0]);
}

void Session::writeAnything(FuzzedDataProvider& input) {
  const bool tiled = isTiled() != (input.ConsumeIntegralInRange(0, 15) == 0);
  constexpr double kFar[] = {99, 65535, 4294967295, -1};
  const auto near = input.ConsumeIntegralInRange<std::uint32_t>(0, 7);
  const double block = near < 7 ? near : input.PickValueInArray(kFar);
  const vxArrayPtr first = anyArray(input);
  const char* operation = tiled ? "writeEncodedTile" : "writeEncodedStrip";
  if (input.ConsumeIntegralInRange(0, 3) > 0) {
    run(operation, {file_.get(), number(block).get(), first.get()});
  } else {
    run(operation,
        {file_.get(), number(block).get(), first.get(), anyArray(input).get(), first.get()});
  }
  if (isReadOnly()) return;
  Expected& now = current();
  now.touchedBlocks.insert(near);
  now.blocks.erase(near);
}

// --- Questions

void Session::query(FuzzedDataProvider& input) {
  const vxArrayPtr some = number(input.ConsumeIntegralInRange(0, 50));
  switch (input.ConsumeIntegralInRange(0, 5)) {
    case 0:
      run("retrieveMetadata", {file_.get()});
      return;
    case 1:
      run("computeStrip", {file_.get(), some.get()});
      return;
    case 2:
      run("computeTile", {file_.get(), anyArray(input).get(), some.get()});
      return;
    case 3:
      run("lastDirectory", {file_.get()});
      return;
    default:
      run("getField", {file_.get(), number(anyTag(input)).get()});
  }
}

}  // namespace

void runSequence(std::span<const std::uint8_t> bytes) {
  prepareOnce();
  limitFileSize(kLargestFile);
  FuzzedDataProvider header(bytes.data(), std::min(bytes.size(), kHeaderLength));
  const auto files = startingFiles();
  const StartingFile& start =
      files[header.ConsumeIntegralInRange<std::size_t>(0, files.size() - 1)];
  if (isOff(std::string("file:") + start.name)) return;
  Bytes contents = start.contents;
  const auto amount = header.ConsumeIntegralInRange<unsigned>(0, 11);
  const bool whole = start.whole && (amount < 8 || isOff("damage"));
  for (unsigned i = 8; i <= amount && !isOff("damage"); ++i)
    damage(contents, header.ConsumeIntegral<std::uint16_t>());

  Session session(header, start, std::move(contents), whole);
  bytes = bytes.subspan(std::min(bytes.size(), kHeaderLength));
  for (std::size_t step = 0; step < kMostSteps && !bytes.empty() && session.isOpen(); ++step) {
    const std::size_t length = std::min(bytes.size(), kStepLength);
    FuzzedDataProvider input(bytes.data(), length);
    session.step(input);
    bytes = bytes.subspan(length);
  }
}

}  // namespace tb::fuzz

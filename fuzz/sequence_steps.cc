// The steps of a session: tags, directories, blocks and questions.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include "fuzz/sequence_session.h"
#include "fuzz/sequence_values.h"

namespace tb::fuzz {
namespace {

constexpr double kMostPixels = 1 << 22;

constexpr int kObservedTags[] = {254, 256, 257, 258, 259, 262, 270, 277, 278, 284, 305,
                                 315, 317, 320, 322, 323, 330, 338, 339, 347, 530};

vxArrayPtr integer(std::int64_t value) {
  vxArrayPtr array = filledArray(vxINT64, {1, 1}, 0);
  std::memcpy(vxGetWritableData(array.get()), &value, sizeof value);
  return array;
}

}  // namespace

// --- Tags

void Session::store(int tag, const vxArray* value) {
  if (fuzz::isOff("tag:" + std::to_string(tag)) ||
      fuzz::isOff("tag:" + std::to_string(tag) + "@" + mode_))
    return;
  const Outcome outcome = run("setField", {file_.get(), number(tag).get(), value});
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
  // By the first block that it decodes libtiff settles whether codes of LZW are of the older kind,
  // and what another compression has left may look so.
  if (now.before && now.layoutEdited &&
      tagNumber(file_.get(), TIFFTAG_COMPRESSION) == COMPRESSION_LZW)
    return;
  if (!outcome.error.empty() && memory_ > 0) return;
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
  if (layout.isReadOnly() && outcome.error.empty()) fail("JPEG 2000 was written");
  if (isReadOnly()) return;
  Expected& now = current();
  now.touch(block);
  now.written = now.written || outcome.error.empty();
  if (!outcome.error.empty() || outcome.warned) return;
  if (layout.width * layout.length > kMostPixels) return;
  if (!isWholeBlock(layout, block, arrays[0].get())) return;
  now.stored.insert(block);
  if (arrays.size() == 1 && layout.lossless()) now.blocks[block] = std::move(arrays[0]);
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
  current().touch(near);
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

}  // namespace tb::fuzz

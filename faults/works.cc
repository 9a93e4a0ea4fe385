#include "faults/works.h"

#include <fuzzer/FuzzedDataProvider.h>
#include <tiffio.h>

#include <cstdint>
#include <utility>

#include "faults/interposed.h"
#include "fuzz/gateway_session.h"
#include "fuzz/sequence_values.h"
#include "tests/support/codestreams.h"
#include "tests/support/file_content.h"

namespace tb::faults {
namespace {

using fuzz::attempt;
using fuzz::number;
using fuzz::Outcome;

vxArrayPtr open(const std::string& name, const char* mode) {
  const vxArrayPtr path = matrix::create(name), letters = matrix::create(mode);
  Outcome opened = attempt("open", {path.get(), letters.get()});
  return std::move(opened.outputs[0]);
}

// --- The end of a work

// While nothing fails, so that there is something to compare with, and after a fault.
void askAgain(const vxArray* file, Done& done) {
  if (hasFailed()) disarm();
  if (isArmed() && !isUndisturbed()) return;
  const Telling telling(done.afterwards);
  attempt("setDirectory", {file, number(0).get()});
  attempt("getField", {file, number(TIFFTAG_IMAGEWIDTH).get()});
  const bool tiled = fuzz::scalarOr(fuzz::call("isTiled", {file}), 0) != 0;
  attempt(tiled ? "readEncodedTile" : "readEncodedStrip", {file, number(0).get()});
}

// A fault that has not come yet may come in here.
void close(const vxArray* file, Done& done) {
  if (hasFailed()) disarm();
  const bool isSafe = !isArmed();
  const Outcome closed = attempt("close", {file});
  if (isSafe || closed.error.empty()) {
    done.closes = closed.error.empty();
    return;
  }
  disarm();
  Story ignored;
  const Telling telling(ignored);
  done.closes = attempt("close", {file}).error.empty();
}

// --- Reading

void readAll(const std::string& name, const char* mode, Done& done) {
  const vxArrayPtr file = open(name, mode);
  if (file == nullptr) return;
  fuzz::readEverything(file.get());
  askAgain(file.get(), done);
  close(file.get(), done);
}

void readMapped(const std::string& name, Done& done) { readAll(name, "r", done); }
void readUnmapped(const std::string& name, Done& done) { readAll(name, "rm", done); }

// --- Writing

// What to write is found out while nothing fails.
class InPeace {
 public:
  InPeace() { fuzz::observeCalls(nullptr); }
  InPeace(const InPeace&) = delete;
  InPeace& operator=(const InPeace&) = delete;
  ~InPeace() { fuzz::observeCalls(countEvents); }
};

struct Block {
  const char* operation;
  std::vector<vxArrayPtr> arrays;
};

Block blockFor(const vxArray* file, std::uint32_t block) {
  const InPeace peace;
  const fuzz::BlockLayout layout(file);
  return {layout.tiled ? "writeEncodedTile" : "writeEncodedStrip",
          fuzz::arraysForBlock(layout, block, 3)};
}

vxArrayPtr valueFor(const vxArray* file, int tag) {
  constexpr std::uint8_t kChoices[64] = {1, 1, 2, 1, 3, 1, 2};
  const InPeace peace;
  FuzzedDataProvider choices(kChoices, sizeof kChoices);
  return fuzz::valueForTag(file, tag, choices);
}

bool writeBlock(const vxArray* file, std::uint32_t block) {
  const auto [operation, arrays] = blockFor(file, block);
  const vxArrayPtr place = number(block);
  const Outcome written = arrays.size() == 1
                              ? attempt(operation, {file, place.get(), arrays[0].get()})
                              : attempt(operation, {file, place.get(), arrays[0].get(),
                                                    arrays[1].get(), arrays[2].get()});
  return written.error.empty();
}

bool setField(const vxArray* file, int tag, const vxArray* value) {
  return attempt("setField", {file, number(tag).get(), value}).error.empty();
}

void describe(const vxArray* file) {
  const vxArrayPtr text = matrix::create("edited, and rather longer");
  setField(file, TIFFTAG_IMAGEDESCRIPTION, text.get());
}

// Tags of each form; what they hold is the same at every turn.
void setTagsOfEveryKind(const vxArray* file) {
  constexpr int kTags[] = {TIFFTAG_COLORMAP,
                           TIFFTAG_TRANSFERFUNCTION,
                           TIFFTAG_NUMBEROFINKS,
                           TIFFTAG_INKNAMES,
                           TIFFTAG_ICCPROFILE,
                           TIFFTAG_RICHTIFFIPTC,
                           TIFFTAG_PHOTOSHOP,
                           TIFFTAG_XMLPACKET,
                           TIFFTAG_XRESOLUTION,
                           TIFFTAG_PAGENUMBER,
                           TIFFTAG_WHITEPOINT,
                           TIFFTAG_REFERENCEBLACKWHITE,
                           TIFFTAG_SMAXSAMPLEVALUE,
                           TIFFTAG_DATETIME,
                           33550,
                           33922,
                           34735,
                           34736,
                           34737};
  for (const int tag : kTags) {
    const vxArrayPtr value = valueFor(file, tag);
    setField(file, tag, value.get());
    attempt("getField", {file, number(tag).get()});
  }
}

void appendImage(
    const vxArray* file, Done& done, double subDirectories = 0,
    void (*setMore)(const vxArray*) = [](const vxArray*) {}) {
  constexpr std::pair<int, double> kTags[] = {{262, 1}, {256, 20}, {257, 20},
                                              {258, 8}, {277, 1},  {259, 5}};
  bool isWhole = true;
  for (const auto& [tag, value] : kTags) isWhole &= setField(file, tag, number(value).get());
  if (subDirectories > 0) isWhole &= setField(file, TIFFTAG_SUBIFD, number(subDirectories).get());
  setMore(file);
  isWhole &= writeBlock(file, 0);
  if (attempt("writeDirectory", {file}).error.empty()) done.appended.push_back(isWhole);
}

void edit(const std::string& name, Done& done) {
  const vxArrayPtr file = open(name, "r+");
  if (file == nullptr) return;
  describe(file.get());
  writeBlock(file.get(), 0);
  attempt("rewriteDirectory", {file.get()});
  if (attempt("setDirectory", {file.get(), number(0).get()}).error.empty())
    writeBlock(file.get(), 0);
  close(file.get(), done);
}

// Moves that fail, for want of a directory, and ones that succeed.
void editAndMove(const std::string& name, Done& done) {
  const vxArrayPtr file = open(name, "r+");
  if (file == nullptr) return;
  describe(file.get());
  attempt("readDirectory", {file.get()});
  attempt("setDirectory", {file.get(), number(99).get()});
  if (attempt("setDirectory", {file.get(), number(0).get()}).error.empty()) {
    describe(file.get());
    attempt("setDirectory", {file.get(), number(99).get()});
    attempt("rewriteDirectory", {file.get()});
  }
  close(file.get(), done);
}

void editTags(const std::string& name, Done& done) {
  const vxArrayPtr file = open(name, "r+");
  if (file == nullptr) return;
  setTagsOfEveryKind(file.get());
  attempt("rewriteDirectory", {file.get()});
  close(file.get(), done);
}

void editSubDirectory(const std::string& name, Done& done) {
  const vxArrayPtr file = open(name, "r+");
  if (file == nullptr) return;
  const auto offsets = fuzz::call("getField", {file.get(), number(TIFFTAG_SUBIFD).get()});
  const vxArrayPtr offset = number(fuzz::scalarOr(offsets, 0));
  if (attempt("setSubDirectory", {file.get(), offset.get()}).error.empty()) {
    writeBlock(file.get(), 0);
    attempt("writeDirectory", {file.get()});
  }
  if (attempt("setDirectory", {file.get(), number(0).get()}).error.empty()) describe(file.get());
  attempt("rewriteDirectory", {file.get()});
  attempt("setSubDirectory", {file.get(), offset.get()});
  attempt("readEncodedStrip", {file.get(), number(0).get()});
  close(file.get(), done);
}

void append(const std::string& name, Done& done) {
  const vxArrayPtr file = open(name, "a");
  if (file == nullptr) return;
  appendImage(file.get(), done);
  appendImage(file.get(), done);
  close(file.get(), done);
}

void appendTagged(const std::string& name, Done& done) {
  const vxArrayPtr file = open(name, "a");
  if (file == nullptr) return;
  Done ofSubDirectories;
  appendImage(file.get(), done, 1, setTagsOfEveryKind);
  appendImage(file.get(), ofSubDirectories);
  close(file.get(), done);
}

void writeAnew(const std::string& name, Done& done) {
  const vxArrayPtr file = open(name, "w8");
  if (file == nullptr) return;
  appendImage(file.get(), done);
  appendImage(file.get(), done);
  close(file.get(), done);
}

// --- The end of all works

// One handle reads, the other has stored what the cleanup is to write.
void cleanUp(const std::string& name, Done& done) {
  const vxArrayPtr reader = open(name, "rm");
  const vxArrayPtr writer = open(name, "r+");
  if (writer != nullptr) {
    describe(writer.get());
    writeBlock(writer.get(), 0);
  }
  fuzz::attemptCleanup();
  disarm();
  Story ignored;
  const Telling telling(ignored);
  fuzz::attemptCleanup();
  for (const vxArray* file : {reader.get(), writer.get()})
    if (file != nullptr) done.closes &= attempt("close", {file}).error.empty();
}

constexpr Work kWorks[] = {
    {"read", readMapped},
    {"read unmapped", readUnmapped},
    {"edit", edit},
    {"edit and move", editAndMove},
    {"edit tags", editTags},
    {"edit sub-directory", editSubDirectory, true, "sub-directories"},
    {"append", append},
    {"append tagged", appendTagged},
    {"write anew", writeAnew, false},
    {"clean up", cleanUp},
};

// --- Files

fuzz::Bytes jpeg2000(const test::Layout& layout) {
  const fuzz::MemoryFile file({});
  test::writeJpeg2000(file.name(), layout);
  const std::string bytes = test::contentOf(file.name());
  return {bytes.begin(), bytes.end()};
}

}  // namespace

std::span<const Work> works() { return kWorks; }

std::span<const fuzz::StartingFile> startingFiles() {
  static const std::vector<fuzz::StartingFile> files = [] {
    std::vector<fuzz::StartingFile> made;
    for (const fuzz::StartingFile& file : fuzz::startingFiles())
      if (file.whole) made.push_back(file);
    const test::Layout strips{
        .width = 20, .length = 20, .compression = test::kJpeg2000, .rowsPerStrip = 10};
    const test::Layout tiles{.width = 20,
                             .length = 20,
                             .samples = 3,
                             .photometric = PHOTOMETRIC_RGB,
                             .compression = test::kJpeg2000Rgb,
                             .tileWidth = 16,
                             .tileLength = 16};
    made.push_back({"jpeg2000", jpeg2000(strips), true});
    made.push_back({"jpeg2000-tiles", jpeg2000(tiles), true});
    return made;
  }();
  return files;
}

}  // namespace tb::faults

#include "fuzz/sequence_model.h"

#include <algorithm>
#include <cstring>

#include "fuzz/gateway_session.h"
#include "fuzz/switches.h"
#include "host/tiff_utilities.h"
#include "tests/support/tiff_files.h"

namespace tb::fuzz {
namespace {

constexpr std::uint32_t kMostBlocks = 64;
constexpr tmsize_t kLargestBlock = 1 << 20;
constexpr std::uint16_t kMostSubPages = 8;
constexpr std::uint32_t kMostPages = 64;
constexpr std::uint64_t kHeaderEnd = 8;

// Where these tags stand in the layout of a page.
enum LayoutPlace : std::size_t { kWidth = 0, kTileWidth = 3, kBits = 5, kSamples = 8, kPlanar = 9 };

// libtiff's messages about files are of no interest.
class Silence {
 public:
  Silence() : error_(TIFFSetErrorHandler(nullptr)), warning_(TIFFSetWarningHandler(nullptr)) {
    if (isTraced()) TIFFSetErrorHandler(error_);
  }
  ~Silence() {
    TIFFSetErrorHandler(error_);
    TIFFSetWarningHandler(warning_);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  TIFFErrorHandler error_, warning_;
};

std::vector<std::uint32_t> layoutOf(TIFF* tif) {
  std::vector<std::uint32_t> numbers;
  for (const std::uint32_t tag : {256U, 257U, 278U, 322U, 323U}) {
    std::uint32_t value = 0;
    numbers.push_back(TIFFGetField(tif, tag, &value) ? value : 0);
  }
  for (const std::uint32_t tag : {258U, 259U, 262U, 277U, 284U, 339U}) {
    std::uint16_t value = 0;
    numbers.push_back(TIFFGetField(tif, tag, &value) ? value : 0U);
  }
  return numbers;
}

std::vector<std::byte> blockOf(TIFF* tif, std::uint32_t block, tmsize_t size) {
  std::vector<std::byte> bytes(static_cast<std::size_t>(size));
  const tmsize_t read = TIFFIsTiled(tif) != 0
                            ? TIFFReadEncodedTile(tif, block, bytes.data(), size)
                            : TIFFReadEncodedStrip(tif, block, bytes.data(), size);
  // A block without a place is read from the start of the file, whatever stands there.
  if (read < 0 || TIFFGetStrileOffset(tif, block) < kHeaderEnd) bytes.clear();
  return bytes;
}

std::vector<std::vector<std::byte>> blocksOf(TIFF* tif) {
  const bool tiled = TIFFIsTiled(tif) != 0;
  const std::uint32_t count = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
  const tmsize_t size = tiled ? TIFFTileSize(tif) : TIFFStripSize(tif);
  std::vector<std::vector<std::byte>> blocks;
  if (size <= 0 || size > kLargestBlock || count > kMostBlocks) return blocks;
  for (std::uint32_t block = 0; block < count; ++block) blocks.push_back(blockOf(tif, block, size));
  return blocks;
}

Page currentPage(TIFF* tif) {
  Page page;
  page.readable = true;
  page.layout = layoutOf(tif);
  const char* text = nullptr;
  if (TIFFGetField(tif, TIFFTAG_IMAGEDESCRIPTION, &text) && text != nullptr)
    page.description = text;
  page.blocks = blocksOf(tif);
  return page;
}

// Leaves another directory current.
Page currentPageWithSubPages(TIFF* tif) {
  Page page = currentPage(tif);
  std::uint16_t count = 0;
  const std::uint64_t* offsets = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets) || offsets == nullptr) return page;
  const std::vector<std::uint64_t> subPages(offsets, offsets + std::min(count, kMostSubPages));
  for (const std::uint64_t offset : subPages)
    page.subPages.push_back(TIFFSetSubDirectory(tif, offset) ? currentPage(tif) : Page{});
  return page;
}

// A sub-directory that was announced and never written may have come into being.
bool keepsSubPages(const Page& before, const Page& now) {
  return std::ranges::equal(before.subPages, now.subPages, [](const Page& was, const Page& is) {
    return !was.readable || was == is;
  });
}

void checkUnedited(const Page& before, const Page& now, const Expected& expected,
                   const std::string& where) {
  const bool untouched = expected.touchedBlocks.empty() && !expected.described;
  if (!before.readable) return;
  if (!now.readable) fail("libtiff can no longer read " + where);
  if (before.layout != now.layout) fail("the layout changed of " + where);
  if (!expected.described && before.description != now.description)
    fail("the description changed of " + where);
  if (before.blocks.size() != now.blocks.size()) fail("the blocks changed of " + where);
  for (std::size_t block = 0; block < before.blocks.size(); ++block) {
    if (expected.touchedBlocks.contains(static_cast<std::uint32_t>(block))) continue;
    if (before.blocks[block].empty()) continue;
    if (before.blocks[block] != now.blocks[block])
      fail("block " + std::to_string(block) + " changed of " + where);
  }
  if (untouched && !keepsSubPages(before, now)) fail("the sub-directories changed of " + where);
}

// Whether a decoded block holds the array in rows. Only blocks of whole bytes of one sample do.
bool holdsSamples(const Page& page, const std::vector<std::byte>& block, const vxArray* array) {
  const bool isInterleaved =
      page.layout[kSamples] > 1 && page.layout[kPlanar] != PLANARCONFIG_SEPARATE;
  const std::size_t size = vxGetElementSize(array);
  if (isInterleaved || page.layout[kBits] != 8 * size) return true;
  const std::uint32_t tileWidth = page.layout[kTileWidth];
  const std::size_t width = tileWidth > 0 ? tileWidth : page.layout[kWidth];
  const std::size_t rows = vxGetDimensions(array)[0];
  const auto* const elements = static_cast<const std::byte*>(vxGetData(array));
  for (std::size_t element = 0; element < vxGetNumberOfElements(array); ++element) {
    const std::size_t place = element % rows * width + element / rows;
    if ((place + 1) * size > block.size()) return false;
    if (std::memcmp(block.data() + place * size, elements + element * size, size) != 0)
      return false;
  }
  return true;
}

void checkDecoded(const Page& now, const Expected& expected, const std::string& where) {
  if (expected.stored.empty()) return;
  if (!now.readable) fail("libtiff cannot read " + where);
  if (now.blocks.empty()) return;  // the image is large
  for (const std::uint32_t block : expected.stored) {
    const std::string what = "block " + std::to_string(block) + " of " + where;
    if (block >= now.blocks.size()) fail("there is no " + what);
    if (now.blocks[block].empty()) fail("libtiff cannot decode " + what);
    const auto array = expected.blocks.find(block);
    if (array != expected.blocks.end() &&
        !holdsSamples(now, now.blocks[block], array->second.get()))
      fail("libtiff decodes other samples in " + what);
  }
}

void checkValues(const vxArray* file, const Expected& expected, const std::string& where) {
  const bool tiled = scalarOr(call("isTiled", {file}), 0) != 0;
  for (const auto& [block, array] : expected.blocks) {
    const auto outputs =
        call(tiled ? "readEncodedTile" : "readEncodedStrip", {file, number(block).get()});
    if (!outputs[0] || !sameArray(outputs[0].get(), array.get()))
      fail("block " + std::to_string(block) + " is not what was written to " + where);
  }
  for (const auto& [tag, text] : expected.texts) {
    const auto outputs = call("getField", {file, number(tag).get()});
    if (!outputs[0] || vxGetClassID(outputs[0].get()) != vxCHAR ||
        matrix::get_string(outputs[0].get()) != text)
      fail("tag " + std::to_string(tag) + " is not what was set in " + where);
  }
}

void checkWritten(const std::string& name, const std::vector<Expected>& pages) {
  // Whole strips, as they are stored.
  const auto opened = call("open", {matrix::create(name).get(), matrix::create("rc").get()});
  const Expected& first = pages[0];
  const bool sure =
      first.before ? first.before->readable && !first.layoutEdited : !first.blocks.empty();
  if (!opened[0] && sure) fail("the module cannot open the file that it wrote");
  if (!opened[0]) return;
  for (std::size_t page = 0; page < pages.size(); ++page) {
    // No image, or one whose layout was changed since: not readable.
    if (!pages[page].before && pages[page].stored.empty()) continue;
    if (pages[page].before && pages[page].layoutEdited) continue;
    if (pages[page].blocks.empty() && pages[page].texts.empty()) continue;
    const std::string where = "directory " + std::to_string(page);
    const Outcome moved =
        attempt("setDirectory", {opened[0].get(), number(static_cast<double>(page)).get()});
    if (!moved.error.empty()) fail("the module cannot read " + where);
    checkValues(opened[0].get(), pages[page], where);
  }
  call("close", {opened[0].get()});
}

}  // namespace

std::optional<std::vector<Page>> pagesOf(const std::string& name) {
  const Silence silence;
  registerJPEG2000Codecs();  // the cleanup takes away what decoded the blocks before
  // Whole strips, as they are stored; the first directory is loaded like the others. Without a map:
  // after a block that lay in one libtiff has no buffer in which to turn the bits of another.
  const test::TiffHandle tif = test::openTiff(name, "rchm");
  if (tif == nullptr) return std::nullopt;
  std::vector<Page> pages;
  const std::uint32_t count =
      std::min<std::uint32_t>(TIFFNumberOfDirectories(tif.get()), kMostPages);
  for (std::uint32_t page = 0; page < count; ++page)
    pages.push_back(TIFFSetDirectory(tif.get(), page) ? currentPageWithSubPages(tif.get())
                                                      : Page{});
  return pages;
}

bool sameArray(const vxArray* a, const vxArray* b) {
  const std::size_t dimensions = vxGetNumberOfDimensions(a);
  return vxGetClassID(a) == vxGetClassID(b) && dimensions == vxGetNumberOfDimensions(b) &&
         std::equal(vxGetDimensions(a), vxGetDimensions(a) + dimensions, vxGetDimensions(b)) &&
         std::memcmp(vxGetData(a), vxGetData(b), vxGetNumberOfElements(a) * vxGetElementSize(a)) ==
             0;
}

void checkPages(const std::string& name, const std::vector<Expected>& pages) {
  if (pages.empty() || isOff("check:file")) return;
  const auto now = pagesOf(name);
  if (!now && pages[0].layoutEdited && pages[0].stored.empty())
    return;  // libtiff opens no file whose first directory is odd
  if (!now) fail("libtiff can no longer open the file");
  if (now->size() < pages.size())
    fail("directories were lost: " + std::to_string(pages.size()) + " became " +
         std::to_string(now->size()));
  for (std::size_t page = 0; page < pages.size(); ++page) {
    const Expected& expected = pages[page];
    const std::string where = "directory " + std::to_string(page);
    if (expected.before && !expected.layoutEdited)
      checkUnedited(*expected.before, (*now)[page], expected, where);
    if (!isOff("check:decoded") && !(expected.before && expected.layoutEdited))
      checkDecoded((*now)[page], expected, where);
  }
  if (!isOff("check:values")) checkWritten(name, pages);
}

}  // namespace tb::fuzz

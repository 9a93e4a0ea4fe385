#include "fuzz/sequence_files.h"

#include <tiffio.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>

#include "fuzz/gateway_session.h"
#include "tests/support/codestreams.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/tiff_files.h"

namespace tb::fuzz {
namespace {

using test::Layout;
using test::RawEntry;

constexpr std::uint16_t kTagJpegStart = TIFFTAG_JPEGIFOFFSET;
constexpr std::uint16_t kTagJpegLength = TIFFTAG_JPEGIFBYTECOUNT;

template <class... Values>
std::function<void(TIFF*)> with(std::uint32_t tag, Values... values) {
  return [=](TIFF* tif) { TIFFSetField(tif, tag, values...); };
}

void setPalette(TIFF* tif) {
  static std::uint16_t map[3][256];
  for (unsigned i = 0; i < 256; ++i)
    for (unsigned band = 0; band < 3; ++band)
      map[band][i] = static_cast<std::uint16_t>(i * (251 + band));
  TIFFSetField(tif, TIFFTAG_COLORMAP, map[0], map[1], map[2]);
  TIFFSetField(tif, TIFFTAG_TRANSFERFUNCTION, map[0], nullptr, nullptr);
}

void setDescriptions(TIFF* tif) {
  static const unsigned char profile[40] = {1, 2, 3};
  TIFFSetField(tif, TIFFTAG_ICCPROFILE, std::uint32_t{sizeof profile}, profile);
  TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, "an image of stripes");
  TIFFSetField(tif, TIFFTAG_SOFTWARE, "tests");
  TIFFSetField(tif, TIFFTAG_XRESOLUTION, 72.0);
  TIFFSetField(tif, TIFFTAG_YRESOLUTION, 72.0);
}

// --- Images

const Layout kGrayStrips{.width = 40, .length = 30, .rowsPerStrip = 8, .more = setDescriptions};
const Layout kLzw{.width = 33,
                  .length = 20,
                  .samples = 3,
                  .photometric = PHOTOMETRIC_RGB,
                  .compression = COMPRESSION_LZW,
                  .rowsPerStrip = 7,
                  .more = with(TIFFTAG_PREDICTOR, 2)};
const Layout kGrayTiles{.width = 40, .length = 40, .tileWidth = 16, .tileLength = 16};
const Layout kWideTiles{.width = 40,
                        .length = 40,
                        .bits = 32,
                        .compression = COMPRESSION_ADOBE_DEFLATE,
                        .tileWidth = 32,
                        .tileLength = 32};
const Layout kPlanes{.width = 20,
                     .length = 20,
                     .bits = 16,
                     .samples = 3,
                     .planar = PLANARCONFIG_SEPARATE,
                     .photometric = PHOTOMETRIC_RGB,
                     .rowsPerStrip = 8};
const Layout kFloatTiles{.width = 20,
                         .length = 20,
                         .bits = 32,
                         .format = SAMPLEFORMAT_IEEEFP,
                         .compression = COMPRESSION_ADOBE_DEFLATE,
                         .tileWidth = 16,
                         .tileLength = 16,
                         .more = with(TIFFTAG_PREDICTOR, 3)};
const Layout kGrayJpeg{
    .width = 40, .length = 40, .compression = COMPRESSION_JPEG, .rowsPerStrip = 16};
const Layout kYcbcrJpegTiles{.width = 32,
                             .length = 32,
                             .samples = 3,
                             .photometric = PHOTOMETRIC_YCBCR,
                             .compression = COMPRESSION_JPEG,
                             .tileWidth = 16,
                             .tileLength = 16,
                             .horizontal = 2,
                             .vertical = 2};
const Layout kYcbcr{.width = 20,
                    .length = 20,
                    .samples = 3,
                    .photometric = PHOTOMETRIC_YCBCR,
                    .rowsPerStrip = 8,
                    .horizontal = 2,
                    .vertical = 2};
const Layout kFax3{.width = 40,
                   .length = 20,
                   .bits = 1,
                   .photometric = PHOTOMETRIC_MINISWHITE,
                   .compression = COMPRESSION_CCITTFAX3,
                   .rowsPerStrip = 8,
                   .more = with(TIFFTAG_GROUP3OPTIONS, GROUP3OPT_2DENCODING)};
const Layout kFax4{.width = 40,
                   .length = 20,
                   .bits = 1,
                   .photometric = PHOTOMETRIC_MINISWHITE,
                   .compression = COMPRESSION_CCITTFAX4,
                   .rowsPerStrip = 8};
const Layout kLogL{.width = 20,
                   .length = 20,
                   .bits = 16,
                   .format = SAMPLEFORMAT_INT,
                   .photometric = PHOTOMETRIC_LOGL,
                   .compression = COMPRESSION_SGILOG,
                   .rowsPerStrip = 8,
                   .more = with(TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_16BIT)};
const Layout kLogLuvTiles{.width = 20,
                          .length = 20,
                          .bits = 32,
                          .samples = 3,
                          .format = SAMPLEFORMAT_IEEEFP,
                          .photometric = PHOTOMETRIC_LOGLUV,
                          .compression = COMPRESSION_SGILOG,
                          .tileWidth = 16,
                          .tileLength = 16,
                          .more = with(TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT)};
const Layout kPixarLogTiles{.width = 40,
                            .length = 20,
                            .compression = COMPRESSION_PIXARLOG,
                            .tileWidth = 16,
                            .tileLength = 16};
const Layout kWebp{.width = 20,
                   .length = 20,
                   .samples = 3,
                   .photometric = PHOTOMETRIC_RGB,
                   .compression = COMPRESSION_WEBP,
                   .rowsPerStrip = 8,
                   .more = with(TIFFTAG_WEBP_LOSSLESS, 1)};
const Layout kZstd{.width = 20, .length = 20, .compression = COMPRESSION_ZSTD, .rowsPerStrip = 8};
const Layout kLerc{.width = 20, .length = 20, .compression = COMPRESSION_LERC, .rowsPerStrip = 8};
const Layout kPalette{.width = 20,
                      .length = 20,
                      .photometric = PHOTOMETRIC_PALETTE,
                      .compression = COMPRESSION_PACKBITS,
                      .rowsPerStrip = 8,
                      .more = setPalette};
const Layout kInks{.width = 20,
                   .length = 20,
                   .samples = 4,
                   .photometric = PHOTOMETRIC_SEPARATED,
                   .rowsPerStrip = 8,
                   .more = with(TIFFTAG_NUMBEROFINKS, 4)};
const Layout kJpeg2000Strips{
    .width = 40, .length = 30, .compression = test::kJpeg2000, .rowsPerStrip = 8};
const Layout kJpeg2000Tiles{.width = 30,
                            .length = 30,
                            .samples = 3,
                            .photometric = PHOTOMETRIC_RGB,
                            .compression = test::kJpeg2000Rgb,
                            .tileWidth = 16,
                            .tileLength = 16};

// --- Files

Bytes contentOf(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Bytes fileOf(const std::vector<Layout>& directories, const char* mode = "w") {
  const MemoryFile file({});
  test::writeTiff(file.name(), directories, mode);
  return contentOf(file.name());
}

Bytes rawFileOf(const std::vector<RawEntry>& entries, const std::vector<std::byte>& data) {
  const MemoryFile file({});
  test::writeRawTiff(file.name(), entries, data);
  return contentOf(file.name());
}

Bytes jpeg2000(const Layout& layout) {
  const MemoryFile file({});
  test::writeJpeg2000(file.name(), layout);
  return contentOf(file.name());
}

// A page with two sub-directories, and a page after it.
Bytes fileWithSubDirectories(const char* mode) {
  const MemoryFile file({});
  {
    const test::TiffHandle tif = test::openTiff(file.name(), mode);
    const std::uint64_t offsets[2] = {};
    Layout page = kGrayStrips;
    page.more = [&offsets](TIFF* handle) { TIFFSetField(handle, TIFFTAG_SUBIFD, 2, offsets); };
    for (const Layout& directory : {page, kLzw, kGrayTiles, kPalette}) {
      test::writeImage(tif.get(), directory);
      if (!TIFFWriteDirectory(tif.get())) throw std::runtime_error("no sub-directories");
    }
  }
  return contentOf(file.name());
}

// Three pages, the last of which is followed by the second.
Bytes fileWithLoop() {
  Bytes bytes = fileOf({kGrayStrips, kLzw, kGrayTiles});
  std::uint32_t second = 0;
  std::uint32_t place = 4;
  for (int page = 0; page <= 3; ++page) {
    std::uint32_t offset = 0;
    std::uint16_t entries = 0;
    std::memcpy(&offset, &bytes.at(place), sizeof offset);
    if (offset == 0) break;
    if (page == 1) second = offset;
    std::memcpy(&entries, &bytes.at(offset), sizeof entries);
    place = offset + 2 + 12U * entries;
  }
  std::memcpy(&bytes.at(place), &second, sizeof second);
  return bytes;
}

// A JPEG interchange stream, as one strip of JPEG without tables holds it.
std::vector<std::byte> jpegStream(const Layout& image) {
  const MemoryFile file({});
  Layout layout = image;
  layout.more = with(TIFFTAG_JPEGTABLESMODE, 0);
  test::writeTiff(file.name(), {layout});
  return test::encodedBlock(test::openTiff(file.name(), "r").get(), 0);
}

// An old-style JPEG file, which libtiff reads but does not write.
Bytes oldJpeg(bool withByteCounts) {
  const std::vector<std::byte> stream =
      jpegStream({.width = 32, .length = 32, .compression = COMPRESSION_JPEG});
  const auto size = static_cast<std::uint32_t>(stream.size());
  std::vector<RawEntry> entries = test::rawGray(32, 32);
  test::replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_OJPEG}});
  test::replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {size}});
  if (!withByteCounts) test::removeEntry(entries, TIFFTAG_STRIPBYTECOUNTS);
  test::replaceEntry(entries, {kTagJpegStart, TIFF_LONG, {test::kDataOffset}});
  test::replaceEntry(entries, {kTagJpegLength, TIFF_LONG, {size}});
  return rawFileOf(entries, stream);
}

// The second page is tiled and has no tiles: it cannot be loaded.
Bytes fileWithBadSecondPage() {
  Bytes bytes = fileOf({kGrayTiles, kGrayTiles});
  std::size_t changed = 0;
  for (std::size_t at = bytes.size() - 12; at > 8 && changed < 2; at -= 2) {
    std::uint16_t tag = 0;
    std::memcpy(&tag, &bytes[at], sizeof tag);
    if (tag != TIFFTAG_TILEOFFSETS && tag != TIFFTAG_TILEBYTECOUNTS) continue;
    tag = static_cast<std::uint16_t>(65000 + tag);
    std::memcpy(&bytes[at], &tag, sizeof tag);
    ++changed;
  }
  return bytes;
}

// A claim of many rows without data.
Bytes longClaim() {
  std::vector<RawEntry> entries = test::rawGray(1, 100'000'000);
  test::replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {64}});
  return rawFileOf(entries, std::vector<std::byte>(64));
}

// An RGBA read of this bilevel log image finds maps for one bit and turns to 8.
Bytes logWithSmallMap() {
  std::vector<RawEntry> entries = test::rawGray(16, 16);
  test::replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {1}});
  test::replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_SGILOG}});
  test::replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_LOGL}});
  test::replaceEntry(entries, {TIFFTAG_COLORMAP, TIFF_SHORT, {1, 2, 3, 4, 5, 6}});
  return rawFileOf(entries, std::vector<std::byte>(256, std::byte{0x11}));
}

struct Maker {
  const char* name;
  std::function<Bytes()> make;
  bool whole = true;
};

const Maker kMakers[] = {
    {"strips", [] { return fileOf({kGrayStrips}); }},
    {"tiles", [] { return fileOf({kGrayTiles}); }},
    {"wide-tiles", [] { return fileOf({kWideTiles}); }},
    {"planes", [] { return fileOf({kPlanes}); }},
    {"lzw", [] { return fileOf({kLzw}); }},
    {"float-tiles", [] { return fileOf({kFloatTiles}); }},
    {"jpeg", [] { return fileOf({kGrayJpeg}); }},
    {"jpeg-ycbcr", [] { return fileOf({kYcbcrJpegTiles}); }},
    {"ycbcr", [] { return fileOf({kYcbcr}); }},
    {"fax3", [] { return fileOf({kFax3}); }},
    {"fax4", [] { return fileOf({kFax4}); }},
    {"logl", [] { return fileOf({kLogL}); }},
    {"logluv", [] { return fileOf({kLogLuvTiles}); }},
    {"pixarlog", [] { return fileOf({kPixarLogTiles}); }},
    {"webp", [] { return fileOf({kWebp}); }},
    {"zstd", [] { return fileOf({kZstd}); }},
    {"lerc", [] { return fileOf({kLerc}); }},
    {"palette", [] { return fileOf({kPalette}); }},
    {"inks", [] { return fileOf({kInks}); }},
    {"pages",
     [] {
       return fileOf({kGrayStrips, kLzw, kGrayTiles, kPalette});
     }},
    {"pages-big-endian",
     [] {
       return fileOf({kPlanes, kFax4, kWideTiles}, "wb");
     }},
    {"pages-bigtiff",
     [] {
       return fileOf({kGrayStrips, kGrayTiles, kGrayJpeg}, "w8");
     }},
    {"pages-bigtiff-big-endian",
     [] {
       return fileOf({kLzw, kYcbcr}, "wb8");
     }},
    {"sub-directories", [] { return fileWithSubDirectories("w"); }},
    {"sub-directories-bigtiff", [] { return fileWithSubDirectories("w8"); }},
    {"old-jpeg", [] { return oldJpeg(true); }, false},
    {"old-jpeg-no-counts", [] { return oldJpeg(false); }, false},
    {"loop", fileWithLoop, false},
    {"bad-second-page", fileWithBadSecondPage, false},
    {"long-claim", longClaim, false},
    {"log-small-map", logWithSmallMap, false},
    {"jpeg2000", [] { return jpeg2000(kJpeg2000Strips); }},
    {"jpeg2000-tiles", [] { return jpeg2000(kJpeg2000Tiles); }},
};

}  // namespace

std::span<const StartingFile> startingFiles() {
  static const std::vector<StartingFile> files = [] {
    std::vector<StartingFile> made;
    for (const Maker& maker : kMakers) {
      try {
        made.push_back({maker.name, maker.make(), maker.whole});
      } catch (const std::runtime_error&) {
        // This libtiff lacks the codec.
      }
    }
    return made;
  }();
  return files;
}

}  // namespace tb::fuzz

// Files and arguments that would corrupt memory, hang or hand out foreign bytes if the read path
// trusted them. Much of this is worth its while under AddressSanitizer only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using testing::Each;
using testing::IsEmpty;
using testing::Not;

constexpr std::byte kDirt{0xA5};

class ReadHazards : public testing::Test {
 protected:
  // A handle open for writing, for directories that no file can have.
  OpenedFile fresh() const { return OpenedFile(path_, "w"); }
  void writeRaw(const std::vector<RawEntry>& entries, std::size_t dataSize = 4096) const {
    writeRawTiff(path_, entries, std::vector<std::byte>(dataSize, std::byte{0x11}));
  }
  static void set(const OpenedFile& file, std::uint32_t tag, std::uint32_t value) {
    TIFFSetField(file.handle(), tag, value);
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

// Leaves released memory full of a pattern, so that an array of that size that is handed out
// without being filled shows it.
void dirtyReleasedMemory(const Dimensions& dimensions, vxClassID classId) {
  std::vector<vxArrayPtr> arrays;
  for (int i = 0; i < 8; ++i) {
    arrays.push_back(zeros(classId, dimensions));
    const std::size_t size = vxGetNumberOfElements(arrays.back().get()) * elementSize(classId);
    std::memset(vxGetWritableData(arrays.back().get()), static_cast<int>(kDirt), size);
  }
}

// --- Arguments shorter than what is read

TEST_F(ReadHazards, ShortNumbersReadAsZero) {
  const Layout layout{.length = 20, .rowsPerStrip = 5};
  writeTiff(path_, {layout});
  const OpenedFile file(path_, "r");
  const vxArrayPtr numbers[] = {
      row({}),  zeros(vxUINT8, {1, 1}),  zeros(vxCELL, {2, 2}), structure(),
      text(""), zeros(vxLOGICAL, {0, 7})};
  for (const vxArrayPtr& number : numbers) {
    SCOPED_TRACE(vxGetClassName(number.get()));
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, number)) == hostBytes(layout, 0));
    EXPECT_EQ(numberFrom("computeStrip", file, number), 1);
    EXPECT_EQ(numberFrom("computeTile", file, number), 1);
    EXPECT_NO_THROW(call("setDirectory", file, number));
    EXPECT_NO_THROW(call("readRGBAStrip", file, number));
  }
}

TEST_F(ReadHazards, NanIsBlockZero) {
  const Layout strips{.length = 20, .rowsPerStrip = 5}, tiles{.tileWidth = 16, .tileLength = 16};
  writeTiff(path_, {strips, tiles});
  const OpenedFile file(path_, "r");
  EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, std::nan(""))) == hostBytes(strips, 0));
  call("setDirectory", file, 1);
  EXPECT_TRUE(bytesOf(call("readEncodedTile", file, -std::nan(""))) == hostBytes(tiles, 0));
}

// --- Sizes of zero

TEST_F(ReadHazards, ImageWithoutRowsGivesAnArrayWithoutRows) {
  const OpenedFile file = fresh();
  setLayout(file.handle(), {.width = 10, .length = 0});
  EXPECT_EQ(dimensionsOf(call("readEncodedStrip", file, 0)), (Dimensions{0, 10}));
  EXPECT_EQ(numberFrom("computeStrip", file, 0), 1);
}

TEST_F(ReadHazards, ImageWithoutColumnsGivesAnArrayWithoutColumns) {
  const OpenedFile file = fresh();
  setLayout(file.handle(), {.width = 0, .length = 10, .samples = 3, .rowsPerStrip = 5});
  const Dimensions dimensions = dimensionsOf(call("readEncodedStrip", file, 0));
  EXPECT_EQ(dimensions.at(1), 0U);
  EXPECT_EQ(dimensions.at(2), 3U);
}

TEST_F(ReadHazards, ImageWithoutRowsButWithRowsPerStripHasNoStrips) {
  const OpenedFile file = fresh();
  setLayout(file.handle(), {.width = 10, .length = 0, .rowsPerStrip = 1});
  expectError<Tiff::badStripNumber>({0}, [&] { call("readEncodedStrip", file, 0); });
}

// libtiff goes on counting the strips of the directory that it has loaded, and divides by their
// rows.
TEST_F(ReadHazards, ImageThatLostItsRowsGivesAnArrayWithoutRows) {
  writeTiff(path_, {{.width = 20}});
  const OpenedFile file(path_, "r+");
  set(file, TIFFTAG_ROWSPERSTRIP, 0xFFFFFFFF);
  set(file, TIFFTAG_IMAGELENGTH, 0);
  EXPECT_EQ(dimensionsOf(call("readEncodedStrip", file, 0)), (Dimensions{0, 20}));
}

TEST_F(ReadHazards, OnlyTileWidthSetMeansNoTiles) {
  const OpenedFile file = fresh();
  setLayout(file.handle(), {.width = 100, .length = 100});
  set(file, TIFFTAG_TILEWIDTH, 16);
  expectError<Tiff::badTileNumber>({0}, [&] { call("readEncodedTile", file, 0); });
  EXPECT_NO_THROW(call("computeTile", file, row({50, 50})));
}

// --- Geometry that contradicts itself

TEST_F(ReadHazards, TileDepthDoesNotMakeTilesLongerThanTheyAre) {
  const Layout layout{
      .width = 32, .length = 64, .tileWidth = 16, .tileLength = 16, .more = [](TIFF* tif) {
        TIFFSetField(tif, TIFFTAG_TILEDEPTH, 4);
      }};
  const OpenedFile file = fresh();
  setLayout(file.handle(), layout);
  set(file, TIFFTAG_IMAGEDEPTH, 4);
  const auto tiles = static_cast<std::uint32_t>(numberFrom("numberOfTiles", file));
  ASSERT_GT(tiles, 0U);
  for (std::uint32_t tile = 0; tile < tiles; ++tile) {
    const Dimensions dimensions = dimensionsOf(call("readEncodedTile", file, tile));
    EXPECT_LE(dimensions[0], 16U);
    EXPECT_LE(dimensions[1], 16U);
  }
}

TEST_F(ReadHazards, ImageDepthOfManyKeepsTilesWithinTheirSize) {
  const OpenedFile file = fresh();
  setLayout(file.handle(), {.width = 32, .length = 64, .tileWidth = 16, .tileLength = 16});
  for (const std::uint32_t depth : {2U, 3U, 65535U}) {
    SCOPED_TRACE(depth);
    set(file, TIFFTAG_IMAGEDEPTH, depth);
    const Dimensions dimensions = dimensionsOf(call("readEncodedTile", file, 0));
    EXPECT_LE(dimensions[0], 16U);
    EXPECT_LE(dimensions[1], 16U);
  }
}

// --- YCbCr

std::vector<RawEntry> rawYCbCr(std::uint32_t bits) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_YCBCR}});
  replaceEntry(entries, {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, {3}});
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {bits, bits, bits}});
  replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {4096}});
  replaceEntry(entries, {TIFFTAG_YCBCRSUBSAMPLING, TIFF_SHORT, {1, 1}});
  return entries;
}

// libtiff refuses to load directories with factors other than 1, 2 and 4, but not to set them.
Layout withFactors(std::uint16_t horizontal, std::uint16_t vertical) {
  return {.samples = 3,
          .photometric = PHOTOMETRIC_YCBCR,
          .horizontal = horizontal,
          .vertical = vertical};
}

TEST_F(ReadHazards, YCbCrFactorOfZeroIsUnsupported) {
  const OpenedFile file = fresh();
  for (const Layout& layout : {withFactors(0, 2), withFactors(2, 0), withFactors(0, 0)}) {
    setLayout(file.handle(), layout);
    expectError<Tiff::unsupportedYCbCrConfiguration>({},
                                                     [&] { call("readEncodedStrip", file, 0); });
  }
}

TEST_F(ReadHazards, YCbCrFactorsThatLibtiffHasNoSizeForGiveZeros) {
  const OpenedFile file = fresh();
  setLayout(file.handle(), withFactors(3, 65535));
  dirtyReleasedMemory({16, 16}, vxUINT8);
  const auto planes = callFor(3, "readEncodedStrip", file, 0);
  EXPECT_EQ(dimensionsOf(planes[0]), (Dimensions{16, 16}));
  EXPECT_EQ(dimensionsOf(planes[1]), (Dimensions{1, 6}));
  for (const vxArrayPtr& plane : planes) EXPECT_THAT(bytesOf(plane), Each(std::byte{0}));
}

TEST_F(ReadHazards, WideYCbCrClassesGetBytesAtTheStartAndZerosBehind) {
  for (const std::uint32_t bits : {16U, 32U}) {
    SCOPED_TRACE(bits);
    writeRaw(rawYCbCr(bits));
    const OpenedFile file(path_, "r");
    dirtyReleasedMemory({16, 16}, bits == 16 ? vxUINT16 : vxUINT32);
    const auto planes = callFor(3, "readEncodedStrip", file, 0);
    for (const vxArrayPtr& plane : planes) {
      const std::vector<std::byte> bytes = bytesOf(plane);
      ASSERT_EQ(bytes.size(), 256U * bits / 8);
      EXPECT_TRUE(std::all_of(bytes.begin(), bytes.begin() + 256,
                              [](std::byte b) { return b == std::byte{0x11}; }));
      EXPECT_TRUE(std::all_of(bytes.begin() + 256, bytes.end(),
                              [](std::byte b) { return b == std::byte{0}; }));
    }
  }
}

// Units of four bytes; the one row of the last strip has twelve bits, two bytes.
TEST_F(ReadHazards, OneBitYCbCrUnitThatEndsBeforeItsStripIsCompletedWithZeros) {
  std::vector<RawEntry> entries = rawGray(6, 3);
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {1, 1, 1}});
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_YCBCR}});
  replaceEntry(entries, {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, {3}});
  replaceEntry(entries, {TIFFTAG_ROWSPERSTRIP, TIFF_SHORT, {2}});
  replaceEntry(entries, {TIFFTAG_YCBCRSUBSAMPLING, TIFF_SHORT, {2, 1}});
  replaceEntry(entries, {TIFFTAG_STRIPOFFSETS, TIFF_LONG, {kDataOffset, kDataOffset + 4}});
  replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {4, 2}});
  writeRaw(entries, 6);
  const OpenedFile file(path_, "r");
  const std::vector<vxArrayPtr> planes = callFor(3, "readEncodedStrip", file, 1);
  EXPECT_EQ(elementsOf<bool>(planes[0]),
            (std::vector<bool>{true, true, false, false, false, false}));
  EXPECT_EQ(elementsOf<bool>(planes[1]), (std::vector<bool>{false, false, false}));
}

TEST_F(ReadHazards, OneBitYCbCrStoresTrueForAnyByteButZero) {
  writeRaw(rawYCbCr(1));
  const OpenedFile file(path_, "r");
  for (const vxArrayPtr& plane : callFor(3, "readEncodedStrip", file, 0)) {
    EXPECT_EQ(vxGetClassID(plane.get()), vxLOGICAL);
    for (const std::byte element : bytesOf(plane)) EXPECT_LE(element, std::byte{1});
  }
}

// --- Decoders that fail

// Overwrites the end of the file's first block.
void spoilFirstBlock(const std::filesystem::path& path) {
  const TiffHandle tif = openTiff(path, "r");
  const auto offset = static_cast<std::streamoff>(TIFFGetStrileOffset(tif.get(), 0));
  const auto count = static_cast<std::streamoff>(TIFFGetStrileByteCount(tif.get(), 0));
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  file.seekp(offset + count / 2);
  for (std::streamoff i = count / 2; i < count; ++i) file.put('\xFF');
}

class FailedDecode : public ReadHazards, public testing::WithParamInterface<std::uint16_t> {};

TEST_P(FailedDecode, IsSilentWithWhatWasDeliveredAndZerosAndAWarning) {
  for (const std::uint32_t tile : {0U, 64U}) {
    const Layout layout{.width = 64,
                        .length = 64,
                        .compression = GetParam(),
                        .tileWidth = tile,
                        .tileLength = tile};
    writeTiff(path_, {layout});
    spoilFirstBlock(path_);
    const std::vector<std::byte> delivered = readBlock(openTiff(path_, "r").get(), 0);

    const OpenedFile file(path_, "r");
    dirtyReleasedMemory({64, 64}, vxUINT8);
    const vxArrayPtr array = call(tile == 0 ? "readEncodedStrip" : "readEncodedTile", file, 0);
    EXPECT_THAT(libtiffMessages(), Not(IsEmpty()));
    const std::vector<std::byte> bytes = bytesOf(array);
    ASSERT_EQ(bytes.size(), delivered.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
      ASSERT_EQ(bytes[i % 64 * 64 + i / 64], delivered[i]) << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Schemes, FailedDecode,
                         testing::Values(COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE,
                                         COMPRESSION_ZSTD, COMPRESSION_LZMA, COMPRESSION_LERC,
                                         COMPRESSION_JPEG));

TEST_F(ReadHazards, StripOutsideTheFileIsZeros) {
  std::vector<RawEntry> entries = rawGray(32, 32);
  replaceEntry(entries, {TIFFTAG_STRIPOFFSETS, TIFF_LONG, {1000000}});
  writeRaw(entries);
  const OpenedFile file(path_, "r");
  dirtyReleasedMemory({32, 32}, vxUINT8);
  EXPECT_THAT(bytesOf(call("readEncodedStrip", file, 0)), Each(std::byte{0}));
  EXPECT_THAT(libtiffMessages(), Not(IsEmpty()));
}

TEST_F(ReadHazards, NothingUninitialisedFromAFileThatWasNeverWritten) {
  const Layout strips{.width = 32, .length = 32, .samples = 3, .photometric = PHOTOMETRIC_RGB};
  const OpenedFile file = fresh();
  setLayout(file.handle(), strips);
  dirtyReleasedMemory({32, 32, 3}, vxUINT8);
  EXPECT_THAT(bytesOf(call("readEncodedStrip", file, 0)), Each(std::byte{0}));
}

TEST_F(ReadHazards, EverySampleOfAWholeBlockIsFilled) {
  // The arrays of whole blocks are made uninitialised: none of the old bytes may survive.
  for (const std::uint16_t samples : std::vector<std::uint16_t>{1, 3}) {
    const Layout layout{.width = 33, .length = 31, .samples = samples};
    writeTiff(path_, {layout});
    const OpenedFile file(path_, "r");
    dirtyReleasedMemory({31, 33, samples}, vxUINT8);
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, 0)) == hostBytes(layout, 0));
  }
}

TEST_F(ReadHazards, PackBitsThatEndEarlyGiveWhatTheyHaveBetweenZeros) {
  dirtyReleasedMemory({8, 8}, vxUINT8);
  std::vector<RawEntry> entries = rawGray(8, 8);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_PACKBITS}});
  replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {3}});
  // 16 times 0x11, then a run without its byte.
  writeRawTiff(path_, entries, {std::byte{0xF1}, std::byte{0x11}, std::byte{0xF1}});
  const OpenedFile file(path_, "r");
  const std::vector<std::uint8_t> elements =
      elementsOf<std::uint8_t>(call("readEncodedStrip", file, 0));
  for (std::size_t element = 0; element < elements.size(); ++element) {
    EXPECT_EQ(elements[element], element % 8 < 2 ? 0x11 : 0) << element;
  }
  // That of the lacking byte and that of the lacking rows, each once.
  EXPECT_EQ(libtiffMessages().size(), 2U);
}

// The decoder leaves the rows that its data do not have as they were, and succeeds.
TEST_F(ReadHazards, JpegStripShorterThanItsDirectorySaysEndsInZeros) {
  writeTiff(path_, {{.width = 64, .length = 32, .compression = COMPRESSION_JPEG}});
  {
    const TiffHandle tif = openTiff(path_, "r+");
    TIFFSetField(tif.get(), TIFFTAG_IMAGELENGTH, 64);
    TIFFSetField(tif.get(), TIFFTAG_ROWSPERSTRIP, 64);
    TIFFRewriteDirectory(tif.get());
  }
  const OpenedFile file(path_, "r");
  dirtyReleasedMemory({64, 64}, vxUINT8);
  const auto elements = elementsOf<std::uint8_t>(call("readEncodedStrip", file, 0));
  ASSERT_EQ(elements.size(), 64U * 64);
  for (std::size_t element = 0; element < elements.size(); ++element) {
    if (element % 64 < 32) continue;
    ASSERT_EQ(elements[element], 0) << element;
  }
}

// --- The world around the file

TEST_F(ReadHazards, FileTruncatedUnderAHandleWithoutMapIsReadAsZeros) {
  const Layout layout{.width = 64, .length = 64};
  writeTiff(path_, {layout});
  const OpenedFile file(path_, "rm");
  std::filesystem::resize_file(path_, 100);
  dirtyReleasedMemory({64, 64}, vxUINT8);
  const std::vector<std::byte> bytes = bytesOf(call("readEncodedStrip", file, 0));
  EXPECT_THAT(libtiffMessages(), Not(IsEmpty()));
  ASSERT_EQ(bytes.size(), 64U * 64);
  // The header is eight bytes: what is left of the strip are its first row and a part of the next.
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i / 64 + i % 64 * 64 < 92) continue;
    ASSERT_EQ(bytes[i], std::byte{0}) << i;
  }
}

TEST_F(ReadHazards, ThousandsOfMessagesAreCollectedWithoutHarm) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  for (std::uint16_t tag = 40000; tag < 44000; ++tag) entries.push_back({tag, TIFF_SHORT, {1}});
  writeRaw(entries);
  const OpenedFile file(path_, "r");
  EXPECT_GT(libtiffMessages().size(), 10U);
  EXPECT_EQ(dimensionsOf(call("readEncodedStrip", file, 0)), (Dimensions{4, 4}));
}

}  // namespace
}  // namespace tb::test

// Reads of strips and tiles, compared with the formula that made the files, or with the blocks that
// libtiff itself delivers put in order by the test's own arithmetic.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/block_reads.h"
#include "tests/support/raw_tiff.h"

namespace tb::test {
namespace {

Dimensions expectedDimensions(const Layout& layout, std::uint32_t block) {
  const BlockPlace place = placeOf(layout, block);
  Dimensions dimensions{place.rows, place.columns};
  if (layout.samplesPerBlock() > 1) dimensions.push_back(layout.samplesPerBlock());
  return dimensions;
}

// Reads every block of the current directory and compares it with the formula.
void expectBlocks(const Input& file, const Layout& layout, vxClassID classId) {
  for (std::uint32_t block = 0; block < blockCount(layout); ++block) {
    SCOPED_TRACE(testing::Message() << readOperation(layout) << ' ' << block);
    const vxArrayPtr array = call(readOperation(layout), file, block);
    EXPECT_EQ(vxGetClassID(array.get()), classId);
    EXPECT_EQ(dimensionsOf(array), expectedDimensions(layout, block));
    EXPECT_TRUE(bytesOf(array) == hostBytes(layout, block));
  }
}

// --- Every kind of sample in every layout

struct Kind {
  const char* name;
  std::uint16_t bits, format;
  vxClassID classId;
};
void PrintTo(const Kind& value, std::ostream* out) { *out << value.name; }

constexpr Kind kKinds[] = {
    {"Bit", 1, SAMPLEFORMAT_UINT, vxLOGICAL},
    {"Uint8", 8, SAMPLEFORMAT_UINT, vxUINT8},
    {"Int8", 8, SAMPLEFORMAT_INT, vxINT8},
    {"Void8", 8, SAMPLEFORMAT_VOID, vxUINT8},
    {"Uint16", 16, SAMPLEFORMAT_UINT, vxUINT16},
    {"Int16", 16, SAMPLEFORMAT_INT, vxINT16},
    {"Void16", 16, SAMPLEFORMAT_VOID, vxUINT16},
    {"Uint32", 32, SAMPLEFORMAT_UINT, vxUINT32},
    {"Int32", 32, SAMPLEFORMAT_INT, vxINT32},
    {"Single", 32, SAMPLEFORMAT_IEEEFP, vxSINGLE},
    {"Void32", 32, SAMPLEFORMAT_VOID, vxUINT32},
    {"Double", 64, SAMPLEFORMAT_IEEEFP, vxDOUBLE},
    {"BitOfIntegers", 1, SAMPLEFORMAT_INT, vxLOGICAL},
};

// Strips and tiles that divide the image and that do not.
std::vector<Layout> layoutsOf(const Layout& kind) {
  std::vector<Layout> layouts;
  for (const auto& [width, length] : {Size{100, 100}, Size{64, 64}, Size{1, 1}, Size{67, 35}})
    for (const std::uint32_t tile : {0U, 16U, 64U}) {
      Layout layout = kind;
      layout.width = width;
      layout.length = length;
      if (tile == 0) layout.rowsPerStrip = 30;
      layout.tileWidth = tile;
      layout.tileLength = tile == 64 ? 32 : tile;
      layouts.push_back(layout);
    }
  return layouts;
}

class ReadKind : public ReadBlocks, public testing::WithParamInterface<Kind> {
 protected:
  void expectAllLayouts(std::uint16_t samples, std::uint16_t planar) const {
    const Layout kind{
        .bits = GetParam().bits, .samples = samples, .format = GetParam().format, .planar = planar};
    const std::vector<Layout> layouts = layoutsOf(kind);
    const OpenedFile file(write(layouts), "r");
    for (std::size_t directory = 0; directory < layouts.size(); ++directory) {
      SCOPED_TRACE(testing::Message() << "directory " << directory);
      call("setDirectory", file, directory);
      expectBlocks(file, layouts[directory], GetParam().classId);
    }
  }
};

TEST_P(ReadKind, OneSampleAPixel) { expectAllLayouts(1, PLANARCONFIG_CONTIG); }
TEST_P(ReadKind, TwoSamplesInterleaved) { expectAllLayouts(2, PLANARCONFIG_CONTIG); }
TEST_P(ReadKind, ThreeSamplesInterleaved) { expectAllLayouts(3, PLANARCONFIG_CONTIG); }
TEST_P(ReadKind, FiveSamplesInterleaved) { expectAllLayouts(5, PLANARCONFIG_CONTIG); }
TEST_P(ReadKind, ThreePlanes) { expectAllLayouts(3, PLANARCONFIG_SEPARATE); }

INSTANTIATE_TEST_SUITE_P(Kinds, ReadKind, testing::ValuesIn(kKinds),
                         [](const auto& test) { return std::string(test.param.name); });

class ReadMode : public ReadBlocks, public testing::WithParamInterface<const char*> {};

TEST_P(ReadMode, ByteOrderAndFileSizeMakeNoDifference) {
  const std::vector<Layout> layouts{{.width = 33,
                                     .length = 20,
                                     .bits = 16,
                                     .samples = 3,
                                     .photometric = PHOTOMETRIC_RGB,
                                     .rowsPerStrip = 7},
                                    {.width = 33,
                                     .length = 20,
                                     .bits = 64,
                                     .format = SAMPLEFORMAT_IEEEFP,
                                     .tileWidth = 16,
                                     .tileLength = 16}};
  const OpenedFile file(write(layouts, GetParam()), "r");
  expectBlocks(file, layouts[0], vxUINT16);
  call("readDirectory", file);
  expectBlocks(file, layouts[1], vxDOUBLE);
}

INSTANTIATE_TEST_SUITE_P(Modes, ReadMode, testing::Values("wl", "wb", "wl8", "wb8"));

class ReadCompression : public ReadBlocks, public testing::WithParamInterface<std::uint16_t> {};

TEST_P(ReadCompression, LosslessOnesGiveTheSamplesBack) {
  const std::uint16_t bits =
      GetParam() == COMPRESSION_CCITTFAX3 || GetParam() == COMPRESSION_CCITTFAX4 ? 1 : 8;
  std::vector<Layout> layouts{
      {.width = 67, .length = 45, .bits = bits, .compression = GetParam(), .rowsPerStrip = 13},
      {.width = 67,
       .length = 45,
       .bits = bits,
       .compression = GetParam(),
       .tileWidth = 32,
       .tileLength = 16}};
  const OpenedFile file(write(layouts), "r");
  expectBlocks(file, layouts[0], bits == 1 ? vxLOGICAL : vxUINT8);
  call("readDirectory", file);
  expectBlocks(file, layouts[1], bits == 1 ? vxLOGICAL : vxUINT8);
}

INSTANTIATE_TEST_SUITE_P(Schemes, ReadCompression,
                         testing::Values(COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS,
                                         COMPRESSION_DEFLATE, COMPRESSION_ADOBE_DEFLATE,
                                         COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4));

// Sample s of pixel (row, column) of a raw block of 8-bit samples, in the order of the host array.
std::vector<std::byte> columnMajor(const std::vector<std::byte>& raw, const Layout& layout,
                                   std::uint32_t block) {
  const BlockPlace place = placeOf(layout, block);
  const std::size_t samples = layout.samplesPerBlock();
  std::vector<std::byte> bytes;
  for (std::size_t s = 0; s < samples; ++s)
    for (std::size_t column = 0; column < place.columns; ++column)
      for (std::size_t row = 0; row < place.rows; ++row)
        bytes.push_back(raw.at((row * layout.blockWidth() + column) * samples + s));
  return bytes;
}

TEST_F(ReadBlocks, LossyBlocksAreWhatLibtiffDelivers) {
  const std::vector<Layout> layouts{
      {.width = 50, .length = 40, .compression = COMPRESSION_JPEG, .rowsPerStrip = 16},
      {.width = 50,
       .length = 40,
       .samples = 3,
       .photometric = PHOTOMETRIC_RGB,
       .compression = COMPRESSION_JPEG,
       .tileWidth = 32,
       .tileLength = 32}};
  const OpenedFile file(write(layouts), "r");
  const TiffHandle tif = openTiff(path_, "r");
  for (std::uint32_t directory = 0; directory < layouts.size(); ++directory) {
    TIFFSetDirectory(tif.get(), directory);
    call("setDirectory", file, directory);
    for (std::uint32_t block = 0; block < blockCount(layouts[directory]); ++block) {
      const std::vector<std::byte> raw = readBlock(tif.get(), block);
      EXPECT_TRUE(bytesOf(call(readOperation(layouts[directory]), file, block)) ==
                  columnMajor(raw, layouts[directory], block));
    }
  }
}

// --- Geometry

std::vector<std::size_t> rowsOfBlocks(const OpenedFile& file, const Layout& layout) {
  std::vector<std::size_t> rows;
  for (std::uint32_t block = 0; block < blockCount(layout); ++block)
    rows.push_back(dimensionsOf(call(readOperation(layout), file, block))[0]);
  return rows;
}

TEST_F(ReadBlocks, LastStripHasTheRowsThatRemain) {
  const Layout layout{.length = 100, .rowsPerStrip = 30};
  const OpenedFile file(write({layout}), "r");
  EXPECT_EQ(rowsOfBlocks(file, layout), (std::vector<std::size_t>{30, 30, 30, 10}));
}

TEST_F(ReadBlocks, LastStripOfEveryPlaneHasTheRowsThatRemain) {
  const Layout layout{.length = 100,
                      .samples = 3,
                      .planar = PLANARCONFIG_SEPARATE,
                      .photometric = PHOTOMETRIC_RGB,
                      .rowsPerStrip = 30};
  const OpenedFile file(write({layout}), "r");
  EXPECT_EQ(rowsOfBlocks(file, layout),
            (std::vector<std::size_t>{30, 30, 30, 10, 30, 30, 30, 10, 30, 30, 30, 10}));
}

TEST_F(ReadBlocks, EdgeTilesEndWithTheImage) {
  const Layout layout{.width = 100, .length = 100, .tileWidth = 64, .tileLength = 64};
  const OpenedFile file(write({layout}), "r");
  const Dimensions expected[] = {{64, 64}, {64, 36}, {36, 64}, {36, 36}};
  for (std::uint32_t tile = 0; tile < 4; ++tile)
    EXPECT_EQ(dimensionsOf(call("readEncodedTile", file, tile)), expected[tile]) << tile;
}

TEST_F(ReadBlocks, EdgeTilesOfEveryPlaneEndWithTheImage) {
  const Layout layout{.width = 100,
                      .length = 70,
                      .samples = 2,
                      .planar = PLANARCONFIG_SEPARATE,
                      .tileWidth = 64,
                      .tileLength = 64};
  const OpenedFile file(write({layout}), "r");
  const Dimensions expected[] = {{64, 64}, {64, 36}, {6, 64}, {6, 36}};
  for (std::uint32_t tile = 0; tile < 8; ++tile)
    EXPECT_EQ(dimensionsOf(call("readEncodedTile", file, tile)), expected[tile % 4]) << tile;
}

TEST_F(ReadBlocks, PixelNineOfAOneBitRowIsBitSixOfItsSecondByte) {
  // Every row: 0b00000000 0b01000000.
  std::vector<std::byte> rows;
  for (int row = 0; row < 3; ++row) {
    rows.push_back(std::byte{0x00});
    rows.push_back(std::byte{0x40});
  }
  std::vector<RawEntry> entries = rawGray(10, 3);
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {1}});
  replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {6}});
  writeRawTiff(path_, entries, rows);

  const OpenedFile file(path_, "r");
  std::vector<bool> expected(30, false);
  std::fill(expected.begin() + 27, expected.end(), true);
  EXPECT_EQ(elementsOf<bool>(call("readEncodedStrip", file, 0)), expected);
}

TEST_F(ReadBlocks, BlockNumberIsTruncated) {
  const Layout strips{.length = 100, .rowsPerStrip = 30};
  const Layout tiles{.width = 100, .length = 100, .tileWidth = 64, .tileLength = 64};
  const OpenedFile file(write({strips, tiles}), "r");
  EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, 2.7)) == hostBytes(strips, 2));
  EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, -0.9)) == hostBytes(strips, 0));
  call("readDirectory", file);
  EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 2.7)) == hostBytes(tiles, 2));
}

TEST_F(ReadBlocks, ThirdInputOfATileReadIsIgnored) {
  const Layout layout{.tileWidth = 16, .tileLength = 16};
  const OpenedFile file(write({layout}), "r");
  for (const auto& ignored : {row({5}), structure(), text("x")})
    EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 0, ignored)) == hostBytes(layout, 0));
}

}  // namespace
}  // namespace tb::test

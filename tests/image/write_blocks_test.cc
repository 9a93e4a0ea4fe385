// Blocks written through the module, compared byte for byte with blocks that the test packs itself,
// as libtiff finds them in the file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/block_writes.h"

namespace tb::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// --- Every kind of sample in every layout

struct Kind {
  const char* name;
  std::uint16_t bits, format;
};
void PrintTo(const Kind& value, std::ostream* out) { *out << value.name; }

class WriteKind : public WriteBlocks, public testing::WithParamInterface<Kind> {
 protected:
  void expectAllLayouts(std::uint16_t samples, std::uint16_t planar) {
    for (const auto& [width, length] : {Size{64, 64}, Size{67, 35}, Size{1, 1}})
      for (const std::uint32_t tile : {0U, 16U, 64U}) {
        Layout layout{.width = width,
                      .length = length,
                      .bits = GetParam().bits,
                      .samples = samples,
                      .format = GetParam().format,
                      .planar = planar,
                      .rowsPerStrip = tile == 0 ? 30U : 0U,
                      .tileWidth = tile,
                      .tileLength = tile};
        SCOPED_TRACE(testing::Message() << width << " x " << length << ", tile " << tile);
        const OpenedFile& file = fresh(layout);
        writeBlocks(file, layout);
        expectBlocks(reopened(file), layout);
      }
  }

  static void expectBlocks(const TiffHandle& tif, const Layout& layout) {
    for (std::uint32_t block = 0; block < blockCount(layout); ++block) {
      Bytes expected = blockBytes(layout, block, 0);
      // The last strip is encoded as a whole one, its rows past the image zero.
      expected.resize(readBlock(tif.get(), block).size());
      EXPECT_TRUE(encodedBlock(tif.get(), block) == expected) << "block " << block;
    }
  }
};

// Bits have one sample a pixel only.
class WriteSamples : public WriteKind {};

TEST_P(WriteKind, OneSampleAPixel) { expectAllLayouts(1, PLANARCONFIG_CONTIG); }
TEST_P(WriteSamples, ThreeSamplesInterleaved) { expectAllLayouts(3, PLANARCONFIG_CONTIG); }
TEST_P(WriteSamples, FiveSamplesInterleaved) { expectAllLayouts(5, PLANARCONFIG_CONTIG); }
TEST_P(WriteSamples, TwoPlanes) { expectAllLayouts(2, PLANARCONFIG_SEPARATE); }

const Kind kWholeByteKinds[] = {{"Uint8", 8, 1},   {"Int8", 8, 2},    {"Uint16", 16, 1},
                                {"Int16", 16, 2},  {"Uint32", 32, 1}, {"Int32", 32, 2},
                                {"Single", 32, 3}, {"Double", 64, 3}};
std::string nameOf(const testing::TestParamInfo<Kind>& test) { return test.param.name; }

INSTANTIATE_TEST_SUITE_P(Bits, WriteKind, testing::Values(Kind{"Bit", 1, 1}), nameOf);
INSTANTIATE_TEST_SUITE_P(Kinds, WriteKind, testing::ValuesIn(kWholeByteKinds), nameOf);
INSTANTIATE_TEST_SUITE_P(Kinds, WriteSamples, testing::ValuesIn(kWholeByteKinds), nameOf);

// --- Data that is smaller or larger than the block

// What a block of the numbered image holds when `rows` x `columns` of it are there.
Bytes numberedBlock(std::size_t length, std::size_t width, std::size_t rows, std::size_t columns) {
  Bytes bytes;
  for (std::size_t r = 0; r < length; ++r)
    for (std::size_t c = 0; c < width; ++c)
      bytes.push_back(r < rows && c < columns ? static_cast<std::byte>(r * 7 + c * 3 + 1)
                                              : std::byte{0});
  return bytes;
}

TEST_F(WriteBlocks, ShortLastStripIsAWholeStripWithZeroRows) {
  const Layout layout{.width = 100, .length = 100, .rowsPerStrip = 30};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 3, numbered(10, 100));
  EXPECT_THAT(warnings(), IsEmpty());
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 3) == numberedBlock(30, 100, 10, 100));
}

TEST_F(WriteBlocks, SmallDataLeavesTheRestOfATileZero) {
  const Layout layout{.width = 100, .length = 100, .tileWidth = 64, .tileLength = 64};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedTile", file, 0, numbered(5, 9));
  EXPECT_THAT(warnings(), IsEmpty());
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == numberedBlock(64, 64, 5, 9));
}

TEST_F(WriteBlocks, EmptyDataWritesZeros) {
  const Layout layout{.width = 16, .length = 16};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {0, 0}));
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == Bytes(256));
}

TEST_F(WriteBlocks, RowsPastTheStripAreCutWithAWarning) {
  const Layout layout{.width = 100, .length = 100, .rowsPerStrip = 30};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 0, numbered(40, 100));
  EXPECT_THAT(warnings(), ElementsAre(warningOf(Warning::dataLengthExceedsRowsPerStrip, {30, 40})));
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == numberedBlock(30, 100, 30, 100));
}

TEST_F(WriteBlocks, ColumnsPastTheImageAreCutWithAWarning) {
  const Layout layout{.width = 10, .length = 10};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 0, numbered(10, 12));
  EXPECT_THAT(warnings(), ElementsAre(warningOf(Warning::dataWidthExceedsImageWidth, {10, 12})));
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == numberedBlock(10, 10, 10, 10));
}

TEST_F(WriteBlocks, DataPastATileIsCutWithAWarningForEachDirection) {
  const Layout layout{.width = 100, .length = 100, .tileWidth = 64, .tileLength = 64};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedTile", file, 0, numbered(70, 70));
  EXPECT_THAT(warnings(), ElementsAre(warningOf(Warning::dataLengthExceedsTileLength, {64, 70}),
                                      warningOf(Warning::dataWidthExceedsTileWidth, {64, 70})));
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == numberedBlock(64, 64, 64, 64));
}

TEST_F(WriteBlocks, EdgeTileMayBeGivenWholeWithoutAWarning) {
  const Layout layout{.width = 100, .length = 100, .tileWidth = 64, .tileLength = 64};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedTile", file, 3, numbered(64, 64));
  EXPECT_THAT(warnings(), IsEmpty());
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 3) == numberedBlock(64, 64, 64, 64));
}

TEST_F(WriteBlocks, CutDataOfSeveralSamplesKeepsItsPixelsTogether) {
  const Layout layout{.width = 4, .length = 3, .samples = 3, .photometric = PHOTOMETRIC_RGB};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 0, numbered(5, 6, 3));
  Bytes expected;
  for (std::size_t i = 0; i < 36; ++i)
    expected.push_back(static_cast<std::byte>(i / 12 * 7 + i / 3 % 4 * 3 + i % 3 * 101 + 1));
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == expected);
}

TEST_F(WriteBlocks, PlanesBeyondTheSamplesAreIgnored) {
  const Layout layout{.width = 4, .length = 3, .samples = 3, .photometric = PHOTOMETRIC_RGB};
  const OpenedFile& exact = fresh(layout);
  const OpenedFile& more = fresh(layout);
  call("writeEncodedStrip", exact, 0, numbered(3, 4, 3));
  call("writeEncodedStrip", more, 0, numbered(3, 4, 5));
  EXPECT_TRUE(encodedBlock(reopened(exact).get(), 0) == encodedBlock(reopened(more).get(), 0));
}

TEST_F(WriteBlocks, BlockNumberIsTruncated) {
  const Layout layout{.length = 16, .rowsPerStrip = 4};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 2.9, numbered(4, 16));
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 2) == numberedBlock(4, 16, 4, 16));
}

// --- Bits

Layout bits(std::uint32_t width, std::uint32_t length) {
  return {.width = width, .length = length, .bits = 1};
}

TEST_F(WriteBlocks, BitsArePackedFromTheTopAndPaddedWithZeros) {
  const OpenedFile& file = fresh(bits(10, 2));
  std::vector<bool> elements(20, true);
  elements[1] = false;  // row 1, column 0
  call("writeEncodedStrip", file, 0, arrayOf<bool>({2, 10}, elements));
  EXPECT_THAT(encodedBlock(reopened(file).get(), 0),
              ElementsAre(std::byte{0xFF}, std::byte{0xC0}, std::byte{0x7F}, std::byte{0xC0}));
}

TEST_F(WriteBlocks, BitsOfATallArrayAreReadAsIfItHadTheBlocksRows) {
  // 6 rows into a strip of 4: column c of the strip starts at element 4*c of the array.
  const OpenedFile& file = fresh(bits(3, 4));
  std::vector<bool> elements(18);
  for (std::size_t i = 0; i < elements.size(); ++i) elements[i] = i % 3 == 0;
  call("writeEncodedStrip", file, 0, arrayOf<bool>({6, 3}, elements));
  EXPECT_THAT(moduleWarnings(),
              ElementsAre(warningOf(Warning::dataLengthExceedsRowsPerStrip, {4, 6})));
  Bytes expected(4);
  for (std::size_t r = 0; r < 4; ++r)
    for (std::size_t c = 0; c < 3; ++c)
      if (elements[r + c * 4]) expected[r] |= static_cast<std::byte>(0x80 >> c);
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == expected);
}

TEST_F(WriteBlocks, AnyNonzeroByteOfALogicalArraySetsTheBit) {
  vxArrayPtr array = zeros(vxLOGICAL, {1, 8});
  std::memset(vxGetWritableData(array.get()), 0x80, 8);
  const OpenedFile& file = fresh(bits(8, 1));
  call("writeEncodedStrip", file, 0, array);
  EXPECT_THAT(encodedBlock(reopened(file).get(), 0), ElementsAre(std::byte{0xFF}));
}

// --- Rewriting

TEST_F(WriteBlocks, WritingABlockAgainReplacesIt) {
  const Layout layout{.length = 16, .rowsPerStrip = 8};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {8, 16}));
  call("writeEncodedStrip", file, 1, zeros(vxUINT8, {8, 16}));
  call("writeEncodedStrip", file, 0, numbered(8, 16));
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), bytesOf(numbered(8, 16)));
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 1)), Bytes(128));
}

TEST_F(WriteBlocks, OutputSlotsStayEmpty) {
  const OpenedFile& file = fresh(Layout{});
  EXPECT_EQ(callFor(2, "writeEncodedStrip", file, 0, numbered(16, 16))[0], nullptr);
}

}  // namespace
}  // namespace tb::test

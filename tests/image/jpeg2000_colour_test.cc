// The colours of JPEG 2000 files: what YCbCr codestreams become under each photometric
// interpretation, computed here with floating-point numbers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/codestreams.h"
#include "tests/support/gateway_call.h"
#include "tests/support/host_value.h"
#include "tests/support/scene.h"
#include "tests/support/subsampling.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// To the nearest, whichever of two it is when both are as near.
constexpr double kRounding = 0.505;

constexpr Subsampling kSubsamplings[] = {{1, 1}, {2, 1}, {2, 2}, {4, 1}, {1, 2}, {4, 4}, {4, 2}};

// Odd sizes: the last units are not full.
Layout layoutWith(std::uint16_t photometric, Subsampling subsampling, std::uint32_t tile) {
  return {.width = 39,
          .length = 29,
          .samples = 3,
          .photometric = photometric,
          .compression = kJpeg2000YCbCr,
          .rowsPerStrip = tile == 0 ? 12U : 0U,
          .tileWidth = tile,
          .tileLength = tile,
          .horizontal = subsampling.horizontal,
          .vertical = subsampling.vertical};
}

Recode subsampled(Subsampling subsampling) {
  return [=](Coding& coding) {
    coding.dx = subsampling.horizontal;
    coding.dy = subsampling.vertical;
  };
}

// Red, green or blue of the pixel at (row, column) of a block, not rounded.
double rgbOf(const Layout& layout, const BlockPlace& place, std::uint32_t row, std::uint32_t column,
             std::uint32_t component) {
  const double most = (1 << layout.bits) - 1, middle = 1 << (layout.bits - 1);
  const auto sample = [&](std::uint32_t r, std::uint32_t c, std::uint32_t s) {
    return static_cast<double>(sampleBits(layout, place.firstRow + r, place.firstColumn + c, s));
  };
  const std::uint32_t chromaRow = row / layout.vertical * layout.vertical;
  const std::uint32_t chromaColumn = column / layout.horizontal * layout.horizontal;
  const double y = sample(row, column, 0);
  const double cb = sample(chromaRow, chromaColumn, 1) - middle;
  const double cr = sample(chromaRow, chromaColumn, 2) - middle;
  const double rgb[] = {y + 1.402 * cr, y - 0.344136286 * cb - 0.714136286 * cr, y + 1.772 * cb};
  return std::clamp(rgb[component], 0.0, most);
}

class Jpeg2000Colour : public testing::Test {
 protected:
  template <class T>
  void expectRgb(const Layout& layout) const {
    const OpenedFile file(path_, "r");
    for (std::uint32_t block = 0; block < blockCount(layout); ++block) {
      const BlockPlace place = placeOf(layout, block);
      const std::vector<T> read =
          elementsOf<T>(call(layout.tiled() ? "readEncodedTile" : "readEncodedStrip", file, block));
      ASSERT_EQ(read.size(), std::size_t{place.rows} * place.columns * layout.samples);
      auto next = read.begin();
      for (std::uint32_t s = 0; s < 3; ++s)
        for (std::uint32_t column = 0; column < place.columns; ++column)
          for (std::uint32_t row = 0; row < place.rows; ++row)
            ASSERT_NEAR(*next++, rgbOf(layout, place, row, column, s), kRounding)
                << "block " << block << ", " << row << ", " << column << ", " << s;
    }
  }

  void expectPlanes(const Input& file, const Layout& layout) const {
    for (std::uint32_t block = 0; block < blockCount(layout); ++block) {
      const std::vector<vxArrayPtr> expected = arraysOf(layout, block);
      const auto read =
          callFor(3, layout.tiled() ? "readEncodedTile" : "readEncodedStrip", file, block);
      EXPECT_THAT(libtiffMessages(), IsEmpty());
      for (std::size_t plane = 0; plane < 3; ++plane)
        EXPECT_EQ(valueOf(read[plane]), valueOf(expected[plane])) << block << ", " << plane;
    }
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

class Jpeg2000Subsampling : public Jpeg2000Colour,
                            public testing::WithParamInterface<Subsampling> {};

TEST_P(Jpeg2000Subsampling, YCbCrBecomesRgbUnderPhotometric2) {
  for (const std::uint32_t tile : {0U, 32U}) {
    Layout layout = layoutWith(PHOTOMETRIC_RGB, GetParam(), tile);
    writeJpeg2000(path_, layout, subsampled(GetParam()));
    expectRgb<std::uint8_t>(layout);
    layout.bits = 16;
    writeJpeg2000(path_, layout, subsampled(GetParam()));
    expectRgb<std::uint16_t>(layout);
  }
}

TEST_P(Jpeg2000Subsampling, IsDeliveredInUnitsUnderPhotometric6) {
  for (const std::uint16_t compression : {kJpeg2000YCbCr, kJpeg2000})
    for (const std::uint32_t tile : {0U, 32U}) {
      Layout layout = layoutWith(PHOTOMETRIC_YCBCR, GetParam(), tile);
      layout.compression = compression;
      writeJpeg2000(path_, layout, subsampled(GetParam()));
      expectPlanes(OpenedFile(path_, "r"), layout);
    }
}

TEST_P(Jpeg2000Subsampling, IsTakenFromTheCodestreamWhereTheTagIsMissing) {
  Layout layout = layoutWith(PHOTOMETRIC_YCBCR, GetParam(), 0);
  layout.rowsPerStrip = 0;
  std::vector<RawEntry> entries{{TIFFTAG_IMAGEWIDTH, TIFF_LONG, {layout.width}},
                                {TIFFTAG_IMAGELENGTH, TIFF_LONG, {layout.length}},
                                {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {8, 8, 8}},
                                {TIFFTAG_COMPRESSION, TIFF_SHORT, {kJpeg2000YCbCr}},
                                {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_YCBCR}},
                                {TIFFTAG_STRIPOFFSETS, TIFF_LONG, {kDataOffset}},
                                {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, {3}},
                                {TIFFTAG_ROWSPERSTRIP, TIFF_LONG, {layout.length}},
                                {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {}}};
  for (const bool isInBoxes : {false, true}) {
    const Bytes strip =
        codestreamOf(layout, 0, [&](Coding& coding) { coding.isInBoxes = isInBoxes; });
    entries.back().values = {static_cast<std::uint32_t>(strip.size())};
    writeRawTiff(path_, entries, strip);
    const OpenedFile file(path_, isInBoxes ? "rm" : "r");
    EXPECT_THAT(libtiffMessages(), IsEmpty());
    EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_YCBCRSUBSAMPLING)),
              aRow({double(GetParam().horizontal), double(GetParam().vertical)}));
    expectPlanes(file, layout);
  }
}

INSTANTIATE_TEST_SUITE_P(Factors, Jpeg2000Subsampling, testing::ValuesIn(kSubsamplings));

TEST_F(Jpeg2000Colour, ATagThatContradictsTheCodestreamIsCorrectedWithAWarning) {
  Layout layout = layoutWith(PHOTOMETRIC_YCBCR, {2, 2}, 32);
  writeJpeg2000(path_, layout, subsampled({2, 1}));
  const OpenedFile file(path_, "r");
  EXPECT_THAT(libtiffMessages(), ElementsAre(HasSubstr("YCbCrSubSampling is 2,2")));
  layout.vertical = 1;
  expectPlanes(file, layout);
}

TEST_F(Jpeg2000Colour, SubsamplingIsFoundBehindALongBox) {
  const Layout layout{.samples = 3,
                      .photometric = PHOTOMETRIC_YCBCR,
                      .compression = kJpeg2000,
                      .horizontal = 2,
                      .vertical = 1};
  Bytes strip = codestreamOf(layout, 0, [](Coding& coding) { coding.isInBoxes = true; });
  // Behind the signature, as a colour profile may be: 10000 bytes.
  Bytes box(10000);
  const unsigned char head[] = {0, 0, 0x27, 0x10, 'u', 'u', 'i', 'd'};
  std::ranges::transform(head, box.begin(), [](unsigned char c) { return std::byte{c}; });
  strip.insert(strip.begin() + 12, box.begin(), box.end());
  writeCodestreams(path_, layout, {strip});
  expectPlanes(OpenedFile(path_, "r"), layout);
}

TEST_F(Jpeg2000Colour, AlphaStaysAsItIsBesideConvertedColours) {
  Layout layout = layoutWith(PHOTOMETRIC_RGB, {2, 1}, 32);
  layout.samples = 4;
  writeJpeg2000(path_, layout, subsampled({2, 1}));
  expectRgb<std::uint8_t>(layout);
  const std::vector<std::byte> read = bytesOf(call("readEncodedTile", OpenedFile(path_, "r"), 0));
  const std::vector<std::byte> coded = hostBytes(layout, 0);
  constexpr std::ptrdiff_t kColours = std::ptrdiff_t{3} * 29 * 32;
  EXPECT_TRUE(std::equal(read.begin() + kColours, read.end(), coded.begin() + kColours));
}

TEST_F(Jpeg2000Colour, RgbCompressionLeavesColoursAsTheyAreCoded) {
  Layout layout = layoutWith(PHOTOMETRIC_RGB, {1, 1}, 32);
  layout.compression = kJpeg2000Rgb;
  writeJpeg2000(path_, layout);
  const OpenedFile file(path_, "r");
  for (std::uint32_t tile = 0; tile < blockCount(layout); ++tile)
    EXPECT_TRUE(bytesOf(call("readEncodedTile", file, tile)) == hostBytes(layout, tile));
}

// libtiff's own conversion starts from the units.
TEST_F(Jpeg2000Colour, RgbaOfUnitsIsThatOfTheUncompressedImage) {
  for (const Subsampling subsampling : {Subsampling{1, 1}, {2, 1}, {2, 2}, {4, 2}})
    for (const std::uint32_t tile : {0U, 32U}) {
      Layout layout = layoutWith(PHOTOMETRIC_YCBCR, subsampling, tile);
      layout.compression = COMPRESSION_NONE;
      writeTiff(path_, {layout});
      const auto plain = bytesOf(call("readRGBAImage", OpenedFile(path_, "r")));
      layout.compression = kJpeg2000YCbCr;
      writeJpeg2000(path_, layout, subsampled(subsampling));
      EXPECT_TRUE(bytesOf(call("readRGBAImage", OpenedFile(path_, "r"))) == plain)
          << testing::PrintToString(subsampling) << ' ' << tile;
    }
}

TEST_F(Jpeg2000Colour, RgbaUnderPhotometric2IsThatOfTheStrips) {
  const Layout layout = layoutWith(PHOTOMETRIC_RGB, {2, 1}, 0);
  writeJpeg2000(path_, layout, subsampled({2, 1}));
  const auto rgba = elementsOf<std::uint8_t>(call("readRGBAImage", OpenedFile(path_, "r")));
  const BlockPlace whole{0, 0, 0, layout.length, layout.width};
  for (std::uint32_t row = 0; row < layout.length; row += 12)  // units begin with a strip
    for (std::uint32_t column = 0; column < layout.width; ++column)
      for (std::uint32_t s = 0; s < 3; ++s)
        EXPECT_NEAR(rgba[4 * ((layout.length - 1 - row) * layout.width + column) + s],
                    rgbOf(layout, whole, row, column, s), kRounding);
}

}  // namespace
}  // namespace tb::test

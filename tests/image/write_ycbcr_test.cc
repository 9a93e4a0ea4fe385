// Blocks of YCbCr written through the module, compared byte for byte with units that the test packs
// itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/block_writes.h"
#include "tests/support/subsampling.h"

namespace tb::test {
namespace {

using testing::ElementsAre;

// Element (row, column) of a column-major array of bytes.
std::byte at(const vxArrayPtr& array, std::size_t row, std::size_t column) {
  const std::size_t rows = vxGetDimensions(array.get())[0];
  return bytesOf(array).at(row + column * rows);
}

// Luma positions past the array wrap round to its start.
std::byte wrapped(const vxArrayPtr& y, std::size_t row, std::size_t column) {
  const Bytes bytes = bytesOf(y);
  return bytes.at((row + column * vxGetDimensions(y.get())[0]) % bytes.size());
}

// The units of a block as the module must build them, in a buffer of the size that libtiff wants.
// A row of units is as many units long as whole ones fit the width, so that at odd widths the last
// unit of a row is overwritten by the first of the next.
Bytes unitsOf(const std::vector<vxArrayPtr>& images, const Layout& layout, std::size_t size) {
  const std::size_t h = layout.horizontal, v = layout.vertical;
  const Dimensions luma = dimensionsOf(images[0]);
  Bytes buffer(size);
  for (std::size_t ur = 0; ur * v < luma[0]; ++ur)
    for (std::size_t uc = 0; uc * h < luma[1]; ++uc) {
      std::size_t position = (h * v + 2) * (uc + ur * (layout.blockWidth() / h));
      const auto store = [&](std::byte value) {
        if (position < size) buffer[position] = value;
        ++position;
      };
      for (std::size_t k = 0; k < h * v; ++k)
        store(wrapped(images[0], k / h + ur * v, k % h + uc * h));
      store(at(images[1], ur, uc));
      store(at(images[2], ur, uc));
    }
  return buffer;
}

class WriteYCbCr : public WriteBlocks, public testing::WithParamInterface<Subsampling> {
 protected:
  static Layout layout(std::uint32_t width, std::uint32_t length, bool tiled) {
    return subsampledLayout(GetParam(), width, length, tiled);
  }
};

TEST_P(WriteYCbCr, UnitsAreThoseOfAnIndependentPacking) {
  for (const auto& [width, length] :
       {Size{64, 32}, Size{15, 16}, Size{33, 37}, Size{17, 3}, Size{1, 1}})
    for (const bool tiled : {false, true}) {
      SCOPED_TRACE(testing::Message() << width << " x " << length << (tiled ? ", tiles" : ""));
      const Layout kind = layout(width, length, tiled);
      const OpenedFile& file = fresh(kind);
      writeBlocks(file, kind);
      const TiffHandle tif = reopened(file);
      for (std::uint32_t block = 0; block < blockCount(kind); ++block) {
        const Bytes encoded = encodedBlock(tif.get(), block);
        EXPECT_TRUE(encoded == unitsOf(arraysOf(kind, block), kind, encoded.size()))
            << "block " << block;
      }
    }
}

INSTANTIATE_TEST_SUITE_P(Factors, WriteYCbCr,
                         testing::Values(Subsampling{1, 1}, Subsampling{2, 1}, Subsampling{2, 2},
                                         Subsampling{4, 1}, Subsampling{1, 2}, Subsampling{4, 2},
                                         Subsampling{4, 4}),
                         [](const auto& test) {
                           return std::to_string(test.param.horizontal) + "By" +
                                  std::to_string(test.param.vertical);
                         });

TEST_F(WriteBlocks, YCbCrLargerThanTheBlockIsCutAtWholeUnits) {
  const Layout layout{.width = 8,
                      .length = 8,
                      .samples = 3,
                      .photometric = PHOTOMETRIC_YCBCR,
                      .rowsPerStrip = 4,
                      .horizontal = 2,
                      .vertical = 2};
  const OpenedFile& file = fresh(layout);
  call("writeEncodedStrip", file, 0, numbered(6, 10), numbered(3, 5), numbered(3, 5));
  EXPECT_THAT(moduleWarnings(),
              ElementsAre(warningOf(Warning::dataLengthExceedsRowsPerStrip, {4, 6}),
                          warningOf(Warning::dataWidthExceedsImageWidth, {8, 10})));
  Bytes expected;
  const vxArrayPtr y = numbered(6, 10), chroma = numbered(3, 5);
  for (std::size_t ur = 0; ur < 2; ++ur)
    for (std::size_t uc = 0; uc < 4; ++uc) {
      for (std::size_t k = 0; k < 4; ++k) expected.push_back(at(y, ur * 2 + k / 2, uc * 2 + k % 2));
      expected.insert(expected.end(), 2, at(chroma, ur, uc));
    }
  EXPECT_TRUE(encodedBlock(reopened(file).get(), 0) == expected);
}

// How many bytes of a JPEG-compressed YCbCr strip are encoded depends on the array's size.
struct JpegCount {
  std::uint16_t horizontal, vertical;
  std::uint32_t rowsPerStrip;
  std::size_t factor;  // bytes for each luma sample of an array smaller than the image
};

class WriteJpegYCbCr : public WriteBlocks, public testing::WithParamInterface<JpegCount> {};

TEST_P(WriteJpegYCbCr, SmallArraysAreEncodedByTheirOwnSize) {
  const auto& [h, v, rowsPerStrip, factor] = GetParam();
  const Layout layout{.width = 64,
                      .length = 48,
                      .samples = 3,
                      .photometric = PHOTOMETRIC_YCBCR,
                      .compression = COMPRESSION_JPEG,
                      .rowsPerStrip = rowsPerStrip,
                      .horizontal = h,
                      .vertical = v};
  const OpenedFile& file = fresh(layout);
  writeBlock(file, layout, 0);
  const TiffHandle written = reopened(file);

  // The same strip, encoded with libtiff alone.
  const std::filesystem::path path = scene_.folder() / "libtiff.tif";
  {
    const TiffHandle tif = openTiff(path, "w");
    setLayout(tif.get(), layout);
    const auto size = static_cast<std::size_t>(TIFFStripSize(tif.get()));
    Bytes units = unitsOf(arraysOf(layout, 0), layout, size);
    const std::size_t count = std::min(size, std::size_t{64} * rowsPerStrip * factor);
    ASSERT_GE(TIFFWriteEncodedStrip(tif.get(), 0, units.data(), static_cast<tmsize_t>(count)), 0);
  }
  EXPECT_TRUE(encodedBlock(written.get(), 0) == encodedBlock(openTiff(path, "r").get(), 0));
}

INSTANTIATE_TEST_SUITE_P(Factors, WriteJpegYCbCr,
                         testing::Values(JpegCount{1, 1, 16, 3}, JpegCount{2, 1, 16, 2},
                                         JpegCount{2, 2, 16, 1}, JpegCount{4, 1, 16, 1},
                                         JpegCount{1, 2, 16, 2}),
                         [](const auto& test) {
                           return std::to_string(test.param.horizontal) + "By" +
                                  std::to_string(test.param.vertical);
                         });

TEST_F(WriteBlocks, JpegYCbCrOfTheWholeImageIsEncodedAsAWhole) {
  const Layout layout{.width = 64,
                      .length = 32,
                      .samples = 3,
                      .photometric = PHOTOMETRIC_YCBCR,
                      .compression = COMPRESSION_JPEG,
                      .horizontal = 2,
                      .vertical = 2};
  const OpenedFile& file = fresh(layout);
  writeBlock(file, layout, 0);
  const TiffHandle tif = reopened(file);
  // All 32 rows are there: a decoder that knows nothing of the module converts them.
  std::vector<std::uint32_t> raster(64 * 32);
  EXPECT_EQ(TIFFReadRGBAStrip(tif.get(), 0, raster.data()), 1);
}

}  // namespace
}  // namespace tb::test

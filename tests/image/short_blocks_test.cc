// Blocks shorter than the directory says: the transfer routines stop at their end. Much of this is
// worth its while under AddressSanitizer only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/image_metadata.h"
#include "image/block_geometry.h"
#include "image/read_transfer.h"
#include "image/ycbcr_transfer.h"
#include "tests/support/gateway_call.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using testing::Each;

TiffImageMetaData_ blockOf(std::uint16_t bits, std::uint16_t samples) {
  return {.bitsPerSample = bits,
          .samplesPerPixel = samples,
          .planarConfig = PLANARCONFIG_CONTIG,
          .sampleFormat =
              bits == 64 ? std::uint16_t{SAMPLEFORMAT_IEEEFP} : std::uint16_t{SAMPLEFORMAT_UINT},
          .blockWidth = 5,
          .blockLength = 4,
          .samplesPerBlock = samples};
}

TEST(ShortBlocks, OfOneSampleFillTheRowsTheyHave) {
  const std::vector<std::byte> block(12, std::byte{7});  // two rows of five and a part of a third
  const vxArrayPtr array = zeros(vxUINT8, {4, 5});
  transferBlockToVx(block, *array, blockOf(8, 1));
  const std::vector<std::uint8_t> elements = elementsOf<std::uint8_t>(array);
  for (std::size_t column = 0; column < 5; ++column) {
    EXPECT_EQ(elements[column * 4 + 0], 7);
    EXPECT_EQ(elements[column * 4 + 1], 7);
    EXPECT_EQ(elements[column * 4 + 3], 0);
  }
}

TEST(ShortBlocks, AreNeverReadPastTheirEnd) {
  for (const std::uint16_t bits : std::vector<std::uint16_t>{1, 8, 16, 32, 64})
    for (const std::uint16_t samples : std::vector<std::uint16_t>{1, 2, 3, 5})
      for (std::size_t size = 0; size <= 4U * 5 * samples * bits / 8 + 4; ++size) {
        const std::vector<std::byte> block(size, std::byte{0xFF});
        const TiffImageMetaData_ record = blockOf(bits, samples);
        const vxArrayPtr array = zeros(determineClassId(record), {4, 5, samples});
        if (bits == 1)
          transferLogicalBlockToVx(block, *array, record);
        else
          transferBlockToVx(block, *array, record);
      }
}

TEST(ShortBlocks, SmallerThanAPixelCopyNothing) {
  const std::vector<std::byte> block(5, std::byte{9});
  const vxArrayPtr array = zeros(vxUINT16, {4, 5, 3});
  transferBlockToVx(block, *array, blockOf(16, 3));
  EXPECT_THAT(elementsOf<std::uint16_t>(array), Each(0));
}

TEST(ShortBlocks, WithoutRowsCopyNothing) {
  TiffImageMetaData_ record = blockOf(8, 3);
  record.blockLength = 0;
  const std::vector<std::byte> block(60, std::byte{9});
  const vxArrayPtr array = zeros(vxUINT8, {4, 5, 3});
  transferBlockToVx(block, *array, record);
  EXPECT_THAT(elementsOf<std::uint8_t>(array), Each(0));
}

TEST(ShortBlocks, WidthsWithoutARoutineAreNamed) {
  const vxArrayPtr array = zeros(vxUINT8, {4, 5});
  clearRecord();
  expectError<Tiff::unhandledBitsPerSample>({12},
                                            [&] { transferBlockToVx({}, *array, blockOf(12, 1)); });
}

TEST(ShortBlocks, OfYCbCrUnitsAreNeverReadPastTheirEnd) {
  for (const std::uint16_t h : std::vector<std::uint16_t>{1, 2, 3, 4, 65535})
    for (const std::uint16_t v : std::vector<std::uint16_t>{1, 2, 3, 4, 65535})
      for (std::size_t size = 0; size <= 70; ++size) {
        TiffImageMetaData_ record = blockOf(8, 3);
        record.ycbcrSubsampling[0] = h;
        record.ycbcrSubsampling[1] = v;
        const std::vector<std::byte> block(size, std::byte{0xFF});
        vxArrayPtr slots[3];
        transferYCbCrContigBlockToVx(block, {4, 5}, {3, slots}, record);
        EXPECT_EQ(dimensionsOf(slots[0]), (Dimensions{4, 5}));
      }
}

TEST(BlockGeometry, QuotientsAndRemaindersByZeroAreZero) {
  // A directory without rows, columns or tiles: no division may fault.
  const TemporaryFolder folder;
  const TiffHandle tif = openTiff(folder / "new.tif", "w");
  for (const std::uint32_t depth : {0U, 1U})
    for (const std::uint32_t tile : {0U, 1U, 4294967295U}) {
      TiffImageMetaData_ record{.tif = tif.get()};
      record.imageDepth = depth;
      const BlockExtent extent = tileExtent(record, tile, 0);
      EXPECT_EQ(extent.rows, 0U);
      EXPECT_EQ(extent.columns, 0U);
      EXPECT_EQ(stripExtent(record, tile).rows, 0U);
    }
}

}  // namespace
}  // namespace tb::test

// Reads of YCbCr, LogL and LogLuv, whose blocks are not simply samples.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/block_reads.h"
#include "tests/support/subsampling.h"

namespace tb::test {
namespace {

// What the three outputs of a block must hold.
std::vector<std::byte> expectedPlane(const Layout& layout, std::uint32_t block,
                                     std::uint32_t plane) {
  const BlockPlace place = placeOf(layout, block);
  const std::uint32_t down = plane == 0 ? 1 : layout.vertical;
  const std::uint32_t across = plane == 0 ? 1 : layout.horizontal;
  std::vector<std::byte> bytes;
  for (std::uint32_t column = 0; column < place.columns; column += across)
    for (std::uint32_t row = 0; row < place.rows; row += down)
      bytes.push_back(static_cast<std::byte>(
          sampleBits(layout, place.firstRow + row, place.firstColumn + column, plane)));
  return bytes;
}

class ReadYCbCr : public ReadBlocks, public testing::WithParamInterface<Subsampling> {
 protected:
  static Layout layout(std::uint32_t width, std::uint32_t length, bool tiled) {
    return subsampledLayout(GetParam(), width, length, tiled);
  }
};

TEST_P(ReadYCbCr, UnitsAreTakenApartIntoThreeArrays) {
  std::vector<Layout> layouts;
  for (const auto& [width, length] : {Size{64, 32}, Size{15, 16}, Size{33, 37}, Size{1, 1}})
    for (const bool tiled : {false, true}) layouts.push_back(layout(width, length, tiled));
  const OpenedFile file(write(layouts), "r");
  for (std::size_t directory = 0; directory < layouts.size(); ++directory) {
    call("setDirectory", file, directory);
    for (std::uint32_t block = 0; block < blockCount(layouts[directory]); ++block) {
      const auto planes = callFor(3, readOperation(layouts[directory]), file, block);
      for (std::uint32_t plane = 0; plane < 3; ++plane) {
        SCOPED_TRACE(testing::Message() << directory << ' ' << block << ' ' << plane);
        EXPECT_EQ(vxGetClassID(planes[plane].get()), vxUINT8);
        EXPECT_TRUE(bytesOf(planes[plane]) == expectedPlane(layouts[directory], block, plane));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Factors, ReadYCbCr,
                         testing::Values(Subsampling{1, 1}, Subsampling{2, 1}, Subsampling{2, 2},
                                         Subsampling{4, 1}, Subsampling{4, 2}, Subsampling{4, 4},
                                         Subsampling{1, 2}, Subsampling{1, 4}),
                         [](const auto& test) {
                           return std::to_string(test.param.horizontal) + "By" +
                                  std::to_string(test.param.vertical);
                         });

const Layout kYCbCr420{.width = 15,
                       .length = 16,
                       .samples = 3,
                       .photometric = PHOTOMETRIC_YCBCR,
                       .rowsPerStrip = 16,
                       .horizontal = 2,
                       .vertical = 2};

TEST_F(ReadBlocks, ChromaOfOddSizesIsRoundedUp) {
  const OpenedFile file(write({kYCbCr420}), "r");
  const auto planes = callFor(3, "readEncodedStrip", file, 0);
  EXPECT_EQ(dimensionsOf(planes[0]), (Dimensions{16, 15}));
  EXPECT_EQ(dimensionsOf(planes[1]), (Dimensions{8, 8}));
  EXPECT_EQ(dimensionsOf(planes[2]), (Dimensions{8, 8}));
}

TEST_F(ReadBlocks, PlanesWithoutSlotsAreDropped) {
  const OpenedFile file(write({kYCbCr420}), "r");
  for (int slots = 0; slots < 4; ++slots) {
    const auto planes = callFor(slots, "readEncodedStrip", file, 0);
    for (std::uint32_t plane = 0; plane < planes.size() && plane < 3; ++plane)
      EXPECT_TRUE(bytesOf(planes[plane]) == expectedPlane(kYCbCr420, 0, plane));
  }
}

TEST_F(ReadBlocks, FourSamplesOfYCbCrAreUnsupported) {
  const OpenedFile file(path_, "w");
  setLayout(file.handle(), {.samples = 4, .photometric = PHOTOMETRIC_YCBCR});
  expectError<Tiff::unsupportedYCbCrConfiguration>({}, [&] { call("readEncodedStrip", file, 0); });
}

TEST_F(ReadBlocks, JpegYCbCrIsReadAsYCbCrUnlessTheCodecConverts) {
  Layout layout = kYCbCr420;
  layout.horizontal = layout.vertical = 1;
  layout.compression = COMPRESSION_JPEG;
  const OpenedFile file(write({layout}), "r");
  const std::vector<std::byte> raw = readBlock(openTiff(path_, "r").get(), 0);
  const auto planes = callFor(3, "readEncodedStrip", file, 0);
  std::vector<std::byte> cb;
  for (std::size_t column = 0; column < 15; ++column)
    for (std::size_t row = 0; row < 16; ++row) cb.push_back(raw.at((row * 15 + column) * 3 + 1));
  EXPECT_TRUE(bytesOf(planes[1]) == cb);

  TIFFSetField(file.handle(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  expectError<Tiff::readWithJpegColorModeRGB>({}, [&] { call("readEncodedStrip", file, 0); });
}

// --- LogL and LogLuv

TEST_F(ReadBlocks, LogLuvIsReadOnlyInAChosenFormat) {
  const auto asFloats = [](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
  };
  const Layout layout{.width = 10,
                      .length = 4,
                      .bits = 32,
                      .samples = 3,
                      .format = SAMPLEFORMAT_IEEEFP,
                      .photometric = PHOTOMETRIC_LOGLUV,
                      .compression = COMPRESSION_SGILOG,
                      .more = asFloats};
  const OpenedFile file(write({layout}), "r");
  expectError<Tiff::luvCodecNotSet>({}, [&] { call("readEncodedStrip", file, 0); });

  asFloats(file.handle());
  const TiffHandle tif = openTiff(path_, "r");
  asFloats(tif.get());
  const std::vector<std::byte> raw = readBlock(tif.get(), 0);
  const vxArrayPtr array = call("readEncodedStrip", file, 0);
  ASSERT_EQ(dimensionsOf(array), (Dimensions{4, 10, 3}));
  const std::vector<float> elements = elementsOf<float>(array);
  std::vector<float> interleaved(120);
  std::memcpy(interleaved.data(), raw.data(), raw.size());
  for (std::size_t s = 0; s < 3; ++s)
    for (std::size_t i = 0; i < 40; ++i)
      EXPECT_EQ(elements[i % 10 * 4 + i / 10 + s * 40], interleaved[i * 3 + s]);
}

}  // namespace
}  // namespace tb::test

// What the photometric interpretation asks of images, the three of YCbCr among them.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "image/write_checks.h"
#include "tests/support/image_records.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

vxClassID check(const TiffImageMetaData_& image, const std::vector<const vxArrayPtr*>& arrays) {
  std::vector<const vxArray*> inputs;
  for (const vxArrayPtr* array : arrays) inputs.push_back(array->get());
  return validatePhotometric(image, inputs);
}

class ValidatePhotometric : public testing::Test {
 protected:
  const vxArrayPtr gray_ = zeros(vxUINT8, {16, 16});
  const vxArrayPtr rgb_ = zeros(vxUINT8, {16, 16, 3});
  const vxArrayPtr chroma_ = zeros(vxUINT8, {8, 8});
  const vxArrayPtr wrong_ = zeros(vxCHAR, {16, 16});
};

TEST_F(ValidatePhotometric, OneImageUnlessYCbCr) {
  for (const auto photometric :
       std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 32844, 32845, 999})
    for (const auto& images : std::vector<std::vector<const vxArrayPtr*>>{
             {&wrong_, &wrong_}, {&wrong_, &wrong_, &wrong_}})
      expectRefusal<Tiff::wrongNumberOfInputImages>({},
                                                    [&] { check(record(photometric, 1), images); });
}

TEST_F(ValidatePhotometric, LogImagesNeedAFormatBelowEightBits) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_LOGLUV, 3);
  image.bitsPerSample = 16;
  image.sampleFormat = SAMPLEFORMAT_INT;
  const vxArrayPtr signed16 = zeros(vxINT16, {16, 16, 3});
  for (const std::int32_t format : {-1, 0, 1, 2}) {
    image.sgiLogDataFmt = format;
    EXPECT_EQ(check(image, {&signed16}), vxINT16);
  }
  image.sgiLogDataFmt = 3;
  expectRefusal<Tiff::eightBitSgiFormatNotAllowedWhenWriting>({}, [&] { check(image, {&wrong_}); });
  image.sgiLogDataFmt = 4;
  expectRefusal<Tiff::luvCodecNotSet>({}, [&] { check(image, {&wrong_}); });
}

TEST_F(ValidatePhotometric, RgbNeedsThreeSamplesBeforeTheImageIsLookedAt) {
  for (const auto samples : std::vector<std::uint16_t>{0, 1, 2})
    expectRefusal<Tiff::badRgbSamplesPerPixelConfiguration>(
        {}, [&] { check(record(PHOTOMETRIC_RGB, samples), {&wrong_}); });
  EXPECT_EQ(check(record(PHOTOMETRIC_RGB, 3), {&rgb_}), vxUINT8);
}

TEST_F(ValidatePhotometric, PaletteImageIsUint8OrUint16OfTheSameBits) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_PALETTE, 1);
  const vxArrayPtr wide = zeros(vxUINT16, {16, 16});
  expectRefusal<Tiff::badDatatypeForPaletteImage>({8, 8}, [&] { check(image, {&wide}); });
  image.bitsPerSample = 16;
  expectRefusal<Tiff::badDatatypeForPaletteImage>({16, 16}, [&] { check(image, {&gray_}); });
  for (const auto bits : std::vector<std::uint16_t>{1, 4, 32, 64}) {
    image.bitsPerSample = bits;
    expectRefusal<Tiff::badPaletteWriteConfiguration>({}, [&] { check(image, {&gray_}); });
  }
}

TEST_F(ValidatePhotometric, PaletteNeedsUnsignedSamplesThenAColorMap) {
  Scene scene;
  const OpenedFile& file = scene.fresh(stripTags(PHOTOMETRIC_PALETTE, 8, 1));
  call("setField", file, TIFFTAG_SAMPLEFORMAT, 3);
  expectError<Tiff::badPaletteWriteConfiguration>(
      {}, [&] { call("writeEncodedStrip", file, 0, gray_); });
  call("setField", file, TIFFTAG_SAMPLEFORMAT, 1);
  expectError<Tiff::colorMapShouldbeSet>({}, [&] { call("writeEncodedStrip", file, 0, gray_); });
  call("setField", file, TIFFTAG_COLORMAP, zeros(vxDOUBLE, {256, 3}));
  EXPECT_NO_THROW(call("writeEncodedStrip", file, 0, gray_));
}

// --- YCbCr

TEST_F(ValidatePhotometric, YCbCrNeedsThreeImagesUnlessTheCodecConverts) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  EXPECT_EQ(check(image, {&gray_, &chroma_, &chroma_}), vxUINT8);
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&gray_}); });
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&gray_, &chroma_}); });

  image.jpegColorMode = JPEGCOLORMODE_RGB;
  EXPECT_EQ(check(image, {&rgb_}), vxUINT8);
  EXPECT_EQ(check(image, {&rgb_, &wrong_}), vxUINT8) << "only the first is looked at";
}

TEST_F(ValidatePhotometric, ConvertingCodecNeedsThreeSamples) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 1);
  image.jpegColorMode = JPEGCOLORMODE_RGB;
  expectRefusal<Tiff::badRgbSamplesPerPixelConfiguration>({}, [&] { check(image, {&wrong_}); });
}

TEST_F(ValidatePhotometric, ConvertingCodecNeedsAllThreePlanesOfTheOneImage) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  image.jpegColorMode = JPEGCOLORMODE_RGB;
  expectRefusal<Tiff::badContigImageMultipleSpp>({}, [&] { check(image, {&gray_}); });
}

TEST_F(ValidatePhotometric, ColourModesThatDoNotExistNeedThreeImagesToo) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  image.jpegColorMode = 2;
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&rgb_}); });
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&rgb_, &rgb_}); });
  expectRefusal<Tiff::badContigImageMultipleSpp>({}, [&] {
    check(image, {&gray_, &chroma_, &chroma_});
  });
}

TEST_F(ValidatePhotometric, EveryYCbCrImageIsValidatedBeforeThePlanarConfiguration) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  image.planarConfig = PLANARCONFIG_SEPARATE;
  image.samplesPerBlock = 1;
  for (const auto& images : std::vector<std::vector<const vxArrayPtr*>>{
           {&wrong_, &chroma_, &chroma_}, {&gray_, &wrong_, &chroma_}, {&gray_, &chroma_, &wrong_}})
    expectRefusal<Tiff::imageDatatypeNot8bit>({"char"}, [&] { check(image, images); });
  expectRefusal<Tiff::unsupportedYCbCrConfiguration>({}, [&] {
    check(image, {&gray_, &gray_, &gray_});
  });
}

struct ChromaCase {
  Dimensions y, cb, cr;
  std::uint16_t horizontal, vertical;
  bool fits;
};

TEST_F(ValidatePhotometric, ChromaSizeIsTheLumaSizeOverTheFactorsRoundedUp) {
  const ChromaCase cases[] = {
      {{16, 15}, {8, 8}, {8, 8}, 2, 2, true},     {{16, 15}, {8, 7}, {8, 8}, 2, 2, false},
      {{16, 15}, {8, 8}, {8, 7}, 2, 2, false},    {{16, 15}, {7, 8}, {8, 8}, 2, 2, false},
      {{16, 15}, {8, 8}, {9, 8}, 2, 2, false},    {{7, 9}, {7, 3}, {7, 3}, 4, 1, true},
      {{7, 9}, {2, 9}, {2, 9}, 1, 4, true},       {{1, 1}, {1, 1}, {1, 1}, 4, 4, true},
      {{16, 16}, {16, 16}, {16, 16}, 1, 1, true}, {{0, 0}, {0, 0}, {0, 0}, 2, 2, true},
      {{16, 16}, {0, 0}, {0, 0}, 0, 0, false},    {{16, 16}, {8, 8}, {8, 8}, 0, 2, false},
      {{16, 16}, {8, 8}, {8, 8}, 2, 0, false},    {{16, 16}, {1, 1}, {1, 1}, 65535, 65535, true},
  };
  for (const auto& [y, cb, cr, h, v, fits] : cases) {
    TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
    image.ycbcrSubsampling[0] = h;
    image.ycbcrSubsampling[1] = v;
    const vxArrayPtr arrays[] = {zeros(vxUINT8, y), zeros(vxUINT8, cb), zeros(vxUINT8, cr)};
    const auto act = [&, &record = image] { check(record, {&arrays[0], &arrays[1], &arrays[2]}); };
    if (fits) {
      EXPECT_NO_THROW(act());
    } else {
      expectRefusal<Tiff::badYCbCrDimensions>({y[0], y[1], cb[0], cb[1], cr[0], cr[1], h, v}, act);
    }
  }
}

}  // namespace
}  // namespace tb::test

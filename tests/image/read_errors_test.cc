// Reads of blocks that are refused: the errors, and which comes first.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/block_reads.h"

namespace tb::test {
namespace {

class ReadErrors : public ReadBlocks {};

TEST_F(ReadErrors, StripReadOfATiledImageAndTheReverse) {
  const OpenedFile file(write({Layout{.tileWidth = 16, .tileLength = 16}, Layout{}}), "r");
  expectError<Tiff::strippedOperationOnTiledImage>({}, [&] { call("readEncodedStrip", file, -1); });
  call("readDirectory", file);
  expectError<Tiff::tiledOperationOnStrippedImage>({}, [&] { call("readEncodedTile", file, -1); });
}

TEST_F(ReadErrors, BlockNumberPastTheLastNamesTheCount) {
  const OpenedFile file(
      write({Layout{.length = 100, .rowsPerStrip = 30},
             Layout{.width = 100, .length = 100, .tileWidth = 64, .tileLength = 64}}),
      "r");
  for (const double strip : {4.0, 4.9, 4294967295.0})
    expectError<Tiff::badStripNumber>({4}, [&] { call("readEncodedStrip", file, strip); });
  call("readDirectory", file);
  for (const double tile : {4.0, 4294967295.0})
    expectError<Tiff::badTileNumber>({4}, [&] { call("readEncodedTile", file, tile); });
}

TEST_F(ReadErrors, BlockNumberOutOfRange) {
  const OpenedFile file(write({Layout{}, Layout{.tileWidth = 16, .tileLength = 16}}), "r");
  for (const double number : {-1.0, 4294967296.0})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("readEncodedStrip", file, number); });
  call("readDirectory", file);
  for (const double number : {-1.0, 4294967296.0})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("readEncodedTile", file, number); });
}

TEST_F(ReadErrors, ImageDepthIsBlamedForAStripNumberPastTheLast) {
  const OpenedFile file(
      write({Layout{.more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_IMAGEDEPTH, 2); }}}), "r");
  EXPECT_NO_THROW(call("readEncodedStrip", file, 0));
  expectError<Tiff::imageDepthStrippedLayoutMismatch>({2},
                                                      [&] { call("readEncodedStrip", file, 1); });
}

// A 64-bit integer image, which no class holds.
void writeLongIntegers(const std::filesystem::path& path, bool tiled) {
  const std::uint32_t side = tiled ? 16 : 0;
  writeTiff(path, {Layout{.bits = 64, .tileWidth = side, .tileLength = side}});
}

TEST_F(ReadErrors, ClassOfATileIsJudgedBeforeItsNumberIsComparedAndAfterItIsConverted) {
  writeLongIntegers(path_, true);
  const OpenedFile file(path_, "r");
  expectError<Tiff::sampleFormatMustBeIeeeFpFor64Bits>({},
                                                       [&] { call("readEncodedTile", file, 99); });
  expectError<validate::argumentOutOfBounds>({}, [&] { call("readEncodedTile", file, -1); });
}

TEST_F(ReadErrors, ClassOfAStripIsJudgedAfterItsNumber) {
  writeLongIntegers(path_, false);
  const OpenedFile file(path_, "r");
  expectError<Tiff::badStripNumber>({1}, [&] { call("readEncodedStrip", file, 99); });
  expectError<Tiff::sampleFormatMustBeIeeeFpFor64Bits>({},
                                                       [&] { call("readEncodedStrip", file, 0); });
}

TEST_F(ReadErrors, SampleLayoutsWithoutAClass) {
  const auto layout = [](std::uint16_t bits, std::uint16_t format) {
    return Layout{.more = [=](TIFF* tif) {
      TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bits);
      TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, format);
    }};
  };
  const auto expect = [&]<class Id>(Id, std::uint16_t bits, std::uint16_t format,
                                    const Arguments& arguments) {
    const OpenedFile file(folder_ / "fresh.tif", "w");
    setLayout(file.handle(), layout(bits, format));
    expectError<Id>(arguments, [&] { call("readEncodedStrip", file, 0); });
  };
  expect(Tiff::unhandledBitsPerSample{}, 12, 1, {12});
  expect(Tiff::complexSampleFormat{}, 32, 6, {});
  expect(Tiff::badSampleFormatBitsPerSampleCombination{}, 8, 3, {3, 8});
}

TEST_F(ReadErrors, SeparateYCbCrIsRefusedBeforeLayoutAndNumber) {
  const OpenedFile file(path_, "w");
  setLayout(file.handle(), {.samples = 3,
                            .planar = PLANARCONFIG_SEPARATE,
                            .photometric = PHOTOMETRIC_YCBCR,
                            .tileWidth = 16,
                            .tileLength = 16});
  expectError<Tiff::unsupportedYCbCrConfiguration>({}, [&] { call("readEncodedStrip", file, -1); });
  expectError<Tiff::unsupportedYCbCrConfiguration>({}, [&] { call("readEncodedTile", file, -1); });
}

TEST_F(ReadErrors, MissingTagsComeBeforeEverythingElse) {
  const OpenedFile file(path_, "w");
  for (const char* operation : {"readEncodedStrip", "readEncodedTile"})
    expectError<Tiff::tagRetrievalFailed>({"ImageLength"}, [&] { call(operation, file, -1); });
}

TEST_F(ReadErrors, JpegColorModeIsLookedAtBeforeTheLayout) {
  const OpenedFile file(path_, "w");
  setLayout(file.handle(), {.samples = 3,
                            .photometric = PHOTOMETRIC_YCBCR,
                            .compression = COMPRESSION_JPEG,
                            .tileWidth = 16,
                            .tileLength = 16});
  TIFFSetField(file.handle(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  expectError<Tiff::readWithJpegColorModeRGB>({}, [&] { call("readEncodedStrip", file, -1); });
}

}  // namespace
}  // namespace tb::test

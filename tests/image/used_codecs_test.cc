// Codecs that are asked for what they were not set up for, or cannot be.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/scene.h"

namespace tb::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;

TEST(LoadedJpeg, OfTilesThatAreNoWholeUnitsIsReadAndNotWritten) {
  Scene scene;
  const auto path = scene.folder() / "units.tif";
  writeTiff(path, {{.width = 64,
                    .length = 64,
                    .samples = 3,
                    .photometric = PHOTOMETRIC_YCBCR,
                    .compression = COMPRESSION_JPEG,
                    .tileWidth = 16,
                    .tileLength = 16}});
  {
    const TiffHandle tif = openTiff(path, "r+");
    TIFFSetField(tif.get(), TIFFTAG_YCBCRSUBSAMPLING, 4, 1);
    TIFFRewriteDirectory(tif.get());
  }
  const OpenedFile file(path, "r+");
  call("readEncodedTile", file, 0);
  const vxArrayPtr y = zeros(vxUINT8, {16, 16}), chroma = zeros(vxUINT8, {16, 4});
  expectError<Tiff::tileWritefailure>(
      {1}, [&] { call("writeEncodedTile", file, 0, y, chroma, chroma); });
}

// The decoder converts to what the interpretation asked for when it was set up.
TEST(LogLuvTiles, AreNotReadOnceTheyAreCalledRgb) {
  Scene scene;
  const Layout layout{
      .width = 32,
      .length = 32,
      .bits = 32,
      .samples = 3,
      .format = SAMPLEFORMAT_IEEEFP,
      .photometric = PHOTOMETRIC_LOGLUV,
      .compression = COMPRESSION_SGILOG,
      .tileWidth = 32,
      .tileLength = 32,
      .more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT); }};
  const OpenedFile& file = scene.written({layout}, "r+");
  call("setField", file, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
  EXPECT_THAT(bytesOf(call("readEncodedTile", file, 0)), Contains(testing::Ne(std::byte{0})));
  call("setField", file, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  EXPECT_THAT(bytesOf(call("readEncodedTile", file, 0)), Each(std::byte{0}));
  EXPECT_THAT(libtiffMessages(), Contains(HasSubstr("The layout of the directory was changed")));
}

// libtiff's encoder chooses a format before it refuses these samples, and the directory would have
// that format from then on.
TEST(LogLOfEightBits, IsNotEncoded) {
  Scene scene;
  const OpenedFile& file = scene.fresh(
      also(stripTags(PHOTOMETRIC_MINISBLACK, 8, 1),
           {{TIFFTAG_COMPRESSION, COMPRESSION_SGILOG}, {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGL}}));
  for (int turn = 0; turn < 2; ++turn) {
    expectError<Tiff::stripWriteFailure>({1}, [&] {
      call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
    });
  }
}

}  // namespace
}  // namespace tb::test

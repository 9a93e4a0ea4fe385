// RGBA reads, compared with what libtiff's own functions give for the same file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#include "runtime/loader.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

using testing::Each;
using testing::IsEmpty;

using Raster = std::vector<std::uint32_t>;

struct Kind {
  const char* name;
  Layout layout;  // its size and blocks are chosen by the tests
};
void PrintTo(const Kind& value, std::ostream* out) { *out << value.name; }

void setColorMap(TIFF* tif) {
  std::vector<std::uint16_t> red(256), green(256), blue(256);
  for (std::uint16_t i = 0; i < 256; ++i) {
    red[i] = static_cast<std::uint16_t>(i * 257);
    green[i] = static_cast<std::uint16_t>(i * 31);
    blue[i] = static_cast<std::uint16_t>(65535 - i * 257);
  }
  TIFFSetField(tif, TIFFTAG_COLORMAP, red.data(), green.data(), blue.data());
}
void setAlpha(TIFF* tif) {
  const std::uint16_t alpha = EXTRASAMPLE_ASSOCALPHA;
  TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &alpha);
}
void setFloatFormat(TIFF* tif) { TIFFSetField(tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT); }

const Kind kKinds[] = {
    {"MinIsWhite", {.photometric = PHOTOMETRIC_MINISWHITE}},
    {"MinIsBlack", {}},
    {"Bits", {.bits = 1}},
    {"Gray16", {.bits = 16}},
    {"GrayWithAlpha", {.samples = 2, .more = setAlpha}},
    {"Rgb", {.samples = 3, .photometric = PHOTOMETRIC_RGB, .compression = COMPRESSION_LZW}},
    {"Rgb16", {.bits = 16, .samples = 3, .photometric = PHOTOMETRIC_RGB}},
    {"Rgba", {.samples = 4, .photometric = PHOTOMETRIC_RGB, .more = setAlpha}},
    {"RgbPlanes", {.samples = 3, .planar = PLANARCONFIG_SEPARATE, .photometric = PHOTOMETRIC_RGB}},
    {"Palette", {.photometric = PHOTOMETRIC_PALETTE, .more = setColorMap}},
    {"Cmyk", {.samples = 4, .photometric = PHOTOMETRIC_SEPARATED}},
    {"YCbCr444", {.samples = 3, .photometric = PHOTOMETRIC_YCBCR}},
    {"YCbCr420", {.samples = 3, .photometric = PHOTOMETRIC_YCBCR, .horizontal = 2, .vertical = 2}},
    {"YCbCrJpeg",
     {.samples = 3, .photometric = PHOTOMETRIC_YCBCR, .compression = COMPRESSION_JPEG}},
    {"CieLab", {.samples = 3, .photometric = PHOTOMETRIC_CIELAB}},
    {"LogLuv",
     {.bits = 32,
      .samples = 3,
      .format = SAMPLEFORMAT_IEEEFP,
      .photometric = PHOTOMETRIC_LOGLUV,
      .compression = COMPRESSION_SGILOG,
      .more = setFloatFormat}},
};

class Rgba : public testing::TestWithParam<Kind> {
 protected:
  static Layout layout(bool tiled) {
    Layout result = GetParam().layout;
    result.width = 100;
    result.length = 100;
    result.rowsPerStrip = tiled ? 0 : 32;
    result.tileWidth = result.tileLength = tiled ? 64 : 0;
    return result;
  }
  // The file through the module, and the same through libtiff alone.
  void open(bool tiled) {
    file_ = &scene_.written({layout(tiled)});
    tif_ = openTiff(TIFFFileName(file_->handle()), "r");
  }
  const OpenedFile& file() const { return *file_; }

  Scene scene_;
  const OpenedFile* file_ = nullptr;
  TiffHandle tif_;
};

TEST_P(Rgba, ImageIsThatOfLibtiff) {
  for (const bool tiled : {false, true}) {
    SCOPED_TRACE(tiled);
    open(tiled);
    Raster expected(100 * 100);
    ASSERT_EQ(
        TIFFReadRGBAImageOriented(tif_.get(), 100, 100, expected.data(), ORIENTATION_BOTLEFT, 1),
        1);
    const vxArrayPtr array = call("readRGBAImage", file());
    EXPECT_EQ(vxGetClassID(array.get()), vxUINT8);
    EXPECT_EQ(dimensionsOf(array), (Dimensions{4, 100, 100}));
    EXPECT_TRUE(rgbaEntriesOf(array) == expected);
  }
}

TEST_P(Rgba, StripsAreThoseOfLibtiffWithZerosPastTheImage) {
  open(false);
  for (const std::uint32_t first : {0U, 32U, 64U, 96U}) {
    SCOPED_TRACE(first);
    Raster expected(100 * 32);
    ASSERT_EQ(TIFFReadRGBAStrip(tif_.get(), first, expected.data()), 1);
    std::fill(expected.begin() + std::min(100U - first, 32U) * 100, expected.end(), 0U);
    const vxArrayPtr array = call("readRGBAStrip", file(), first + 1);
    EXPECT_EQ(dimensionsOf(array), (Dimensions{4, 100, 32}));
    EXPECT_TRUE(rgbaEntriesOf(array) == expected);
  }
}

TEST_P(Rgba, TilesAreThoseOfLibtiff) {
  open(true);
  for (const std::uint32_t y : {0U, 64U})
    for (const std::uint32_t x : {0U, 64U}) {
      SCOPED_TRACE(testing::Message() << x << ' ' << y);
      Raster expected(64 * 64);
      ASSERT_EQ(TIFFReadRGBATile(tif_.get(), x, y, expected.data()), 1);
      const vxArrayPtr array = call("readRGBATile", file(), x + 6, y + 10);
      EXPECT_EQ(dimensionsOf(array), (Dimensions{4, 64, 64}));
      EXPECT_TRUE(rgbaEntriesOf(array) == expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, Rgba, testing::ValuesIn(kKinds),
                         [](const auto& test) { return std::string(test.param.name); });

class RgbaReads : public testing::Test {
 protected:
  // A gray image of 100 rows: strips of 30, or tiles of 64 x 64.
  const OpenedFile& strips() {
    return scene_.written({Layout{.width = 20, .length = 100, .rowsPerStrip = 30}});
  }
  const OpenedFile& tiles() {
    return scene_.written({Layout{.width = 100, .length = 100, .tileWidth = 64, .tileLength = 64}});
  }

  Scene scene_;
};

// --- Geometry

TEST_F(RgbaReads, RowMeansTheStripThatHoldsIt) {
  const OpenedFile& file = strips();
  EXPECT_TRUE(bytesOf(call("readRGBAStrip", file, 45)) == bytesOf(call("readRGBAStrip", file, 30)));
  EXPECT_TRUE(bytesOf(call("readRGBAStrip", file, 59.9)) ==
              bytesOf(call("readRGBAStrip", file, 30)));
  EXPECT_FALSE(bytesOf(call("readRGBAStrip", file, 60)) ==
               bytesOf(call("readRGBAStrip", file, 30)));
}

TEST_F(RgbaReads, LastStripHasTheSizeOfAllAndZerosWhereTheFileEnds) {
  const OpenedFile& file = strips();
  const std::vector<std::byte> dirt(4 * 20 * 30, std::byte{0xA5});
  for (int i = 0; i < 8; ++i) {
    const vxArrayPtr array = zeros(vxUINT8, {4, 20, 30});
    std::memcpy(vxGetWritableData(array.get()), dirt.data(), dirt.size());
  }
  const vxArrayPtr array = call("readRGBAStrip", file, 95);
  EXPECT_EQ(dimensionsOf(array), (Dimensions{4, 20, 30}));
  const std::vector<std::byte> bytes = bytesOf(array);
  EXPECT_THAT(std::vector(bytes.begin() + 4 * 20 * 10, bytes.end()), Each(std::byte{0}));
  // Alpha is 255 wherever there is a pixel.
  for (std::size_t pixel = 0; pixel < 200; ++pixel) ASSERT_EQ(bytes[pixel * 4 + 3], std::byte{255});
}

TEST_F(RgbaReads, FirstRowOfTheArrayIsTheBottomRowOfTheImage) {
  const Layout layout{.width = 3, .length = 2};
  const vxArrayPtr array = call("readRGBAImage", scene_.written({layout}));
  const std::vector<std::byte> bytes = bytesOf(array);
  for (std::uint32_t column = 0; column < 3; ++column)
    EXPECT_EQ(bytes[column * 4], static_cast<std::byte>(sampleBits(layout, 1, column, 0)));
}

TEST_F(RgbaReads, TilePositionIsColumnThenRow) {
  const OpenedFile& file = tiles();
  EXPECT_TRUE(bytesOf(call("readRGBATile", file, 70, 10)) ==
              bytesOf(call("readRGBATile", file, 64, 0)));
  EXPECT_FALSE(bytesOf(call("readRGBATile", file, 70, 10)) ==
               bytesOf(call("readRGBATile", file, 10, 70)));
}

// --- What the read leaves behind

const Layout kYCbCrJpeg{.width = 32,
                        .length = 32,
                        .samples = 3,
                        .photometric = PHOTOMETRIC_YCBCR,
                        .compression = COMPRESSION_JPEG,
                        .rowsPerStrip = 16};

TEST_F(RgbaReads, JpegColorModeStaysAsItWas) {
  const OpenedFile& file = scene_.written({kYCbCrJpeg});
  const std::vector<std::byte> before = bytesOf(call("readEncodedStrip", file, 0));
  for (const char* operation : {"readRGBAStrip", "readRGBAImage"}) {
    Inputs inputs{operation, file};
    if (std::string(operation) == "readRGBAStrip") inputs.emplace_back(0);
    callGateway(1, inputs);
    int mode = -1;
    TIFFGetField(file.handle(), TIFFTAG_JPEGCOLORMODE, &mode);
    EXPECT_EQ(mode, JPEGCOLORMODE_RAW) << operation;
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, 0)) == before) << operation;
  }
}

TEST_F(RgbaReads, JpegColorModeStaysAsItWasAfterAFailure) {
  const OpenedFile& file = scene_.written({kYCbCrJpeg});
  expectError<Tiff::stripReadErrorRGBA>({49}, [&] { call("readRGBAStrip", file, 50); });
  EXPECT_NO_THROW(call("readEncodedStrip", file, 0));
}

TEST_F(RgbaReads, CodecThatConvertsAlreadyGoesOnConverting) {
  const Layout layout{.width = 32,
                      .length = 32,
                      .samples = 3,
                      .photometric = PHOTOMETRIC_YCBCR,
                      .compression = COMPRESSION_JPEG};
  const OpenedFile& file = scene_.written({layout});
  call("setField", file, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  call("readRGBAImage", file);
  expectError<Tiff::readWithJpegColorModeRGB>({}, [&] { call("readEncodedStrip", file, 0); });
}

// --- Errors

TEST_F(RgbaReads, StripOfATiledImageAndTheReverse) {
  expectError<Tiff::strippedOperationOnTiledImage>({}, [&] { call("readRGBAStrip", tiles(), -1); });
  expectError<Tiff::tiledOperationOnStrippedImage>({},
                                                   [&] { call("readRGBATile", strips(), -1, -1); });
}

TEST_F(RgbaReads, NumbersOutOfRange) {
  for (const double number : {-1.0, 4294967296.0}) {
    expectError<validate::argumentOutOfBounds>({},
                                               [&] { call("readRGBAStrip", strips(), number); });
    expectError<validate::argumentOutOfBounds>({},
                                               [&] { call("readRGBATile", tiles(), number, 0); });
    expectError<validate::argumentOutOfBounds>({},
                                               [&] { call("readRGBATile", tiles(), 0, number); });
  }
}

TEST_F(RgbaReads, RowsAndTilesPastTheImageFailWithTheirFirstRowAndColumn) {
  expectError<Tiff::stripReadErrorRGBA>({121}, [&] { call("readRGBAStrip", strips(), 140); });
  expectError<Tiff::stripReadErrorRGBA>({4294967281},
                                        [&] { call("readRGBAStrip", strips(), 4294967295.0); });
  expectError<Tiff::tileReadErrorRGBA>({1, 129}, [&] { call("readRGBATile", tiles(), 150, 10); });
  expectError<Tiff::tileReadErrorRGBA>({129, 1}, [&] { call("readRGBATile", tiles(), 10, 150); });
}

// It would compute sizes below zero, and say that there is no such block.
TEST_F(RgbaReads, OfRowsAndTilesPastTheImageDoNotReachLibtiff) {
  const OpenedFile& stripped = strips();
  EXPECT_ANY_THROW(call("readRGBAStrip", stripped, 140));
  EXPECT_THAT(runtime::collectedDiagnostics(), IsEmpty());
  const OpenedFile& tiled = tiles();
  for (const auto& [row, column] : {std::pair{10, 150}, std::pair{150, 10}}) {
    EXPECT_ANY_THROW(call("readRGBATile", tiled, row, column));
    EXPECT_THAT(runtime::collectedDiagnostics(), IsEmpty());
  }
}

TEST_F(RgbaReads, KindsThatLibtiffCannotConvertFail) {
  const Layout strips{.length = 100, .bits = 64, .format = SAMPLEFORMAT_IEEEFP, .rowsPerStrip = 30};
  const Layout tiles{.bits = 64, .format = SAMPLEFORMAT_IEEEFP, .tileWidth = 16, .tileLength = 16};
  const OpenedFile& file = scene_.written({strips, tiles});
  expectError<Tiff::stripReadErrorRGBA>({31}, [&] { call("readRGBAStrip", file, 45); });
  expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
  call("readDirectory", file);
  expectError<Tiff::tileReadErrorRGBA>({1, 1}, [&] { call("readRGBATile", file, 5, 5); });
  expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
}

TEST_F(RgbaReads, MissingTagsAreNamed) {
  const OpenedFile& file = scene_.fresh();
  expectError<Tiff::tagRetrievalFailed>({"ImageLength"}, [&] { call("readRGBAStrip", file, -1); });
  expectError<Tiff::tagRetrievalFailed>({"ImageLength"},
                                        [&] { call("readRGBATile", file, -1, -1); });
  expectError<Tiff::tagRetrievalFailed>({"ImageLength"}, [&] { call("readRGBAImage", file); });
}

// --- Sizes of zero: libtiff would divide by them, or the bands would never advance

TEST_F(RgbaReads, ImagesWithoutRowsOrColumnsFail) {
  for (const auto& [width, length] : {std::pair{10, 0}, std::pair{0, 10}}) {
    const OpenedFile& file = scene_.fresh();
    TIFFSetField(file.handle(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(file.handle(), TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(file.handle(), TIFFTAG_IMAGELENGTH, length);
    expectError<Tiff::stripReadErrorRGBA>(
        {1}, [&, &handle = file] { call("readRGBAStrip", handle, 0); });
    expectError<Tiff::imageReadErrorRGBA>({},
                                          [&, &handle = file] { call("readRGBAImage", handle); });
  }
}

// Other code has had 16 bits of it decoded, which libtiff would take for 8.
TEST(RgbaOfALogLuvBeingWritten, IsRefusedWhenTheCodecCannotBeSwitched) {
  const TemporaryFolder folder;
  {
    const OpenedFile file(folder / "a.tif", "w");
    setFields(file, {{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGLUV},
                     {TIFFTAG_IMAGEWIDTH, 16},
                     {TIFFTAG_IMAGELENGTH, 16},
                     {TIFFTAG_ROWSPERSTRIP, 16},
                     {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG},
                     {TIFFTAG_COMPRESSION, COMPRESSION_SGILOG},
                     {TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT}});
    call("writeEncodedStrip", file, 0, zeros(vxSINGLE, {16, 16, 3}));
  }
  const OpenedFile file(folder / "a.tif", "r+");
  std::vector<std::byte> block(1536);
  TIFFSetField(file.handle(), TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_16BIT);
  EXPECT_EQ(TIFFReadEncodedStrip(file.handle(), 0, block.data(), 1536), 1536);
  EXPECT_EQ(TIFFWriteEncodedStrip(file.handle(), 0, block.data(), 1536), -1);
  expectError<Tiff::stripReadErrorRGBA>({1}, [&] { call("readRGBAStrip", file, 0); });
  expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
}

TEST_F(RgbaReads, TileWidthWithoutTileLengthFails) {
  const OpenedFile& file = scene_.fresh({{TIFFTAG_PHOTOMETRIC, 1},
                                         {TIFFTAG_IMAGEWIDTH, 100},
                                         {TIFFTAG_IMAGELENGTH, 100},
                                         {TIFFTAG_TILEWIDTH, 16}});
  expectError<Tiff::tileReadErrorRGBA>({51, 33}, [&] { call("readRGBATile", file, 40, 50); });
}

TEST_F(RgbaReads, ImageOfTilesWithoutRowsFails) {
  const OpenedFile& file = scene_.fresh({{TIFFTAG_PHOTOMETRIC, 1},
                                         {TIFFTAG_IMAGEWIDTH, 100},
                                         {TIFFTAG_IMAGELENGTH, 100},
                                         {TIFFTAG_TILEWIDTH, 16}});
  expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
}

}  // namespace
}  // namespace tb::test

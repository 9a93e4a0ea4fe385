// Reads of strips and tiles, compared with the formula that made the files, or with the blocks that
// libtiff itself delivers put in order by the test's own arithmetic.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

const char* readOperation(const Layout& layout) {
  return layout.tiled() ? "readEncodedTile" : "readEncodedStrip";
}

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

class ReadBlocks : public testing::Test {
 protected:
  std::filesystem::path write(const std::vector<Layout>& layouts, const char* mode = "w") const {
    writeTiff(path_, layouts, mode);
    return path_;
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

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

struct Size {
  std::uint32_t width, length;
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

// --- YCbCr

struct Subsampling {
  std::uint16_t horizontal, vertical;
};
void PrintTo(const Subsampling& value, std::ostream* out) {
  *out << value.horizontal << ':' << value.vertical;
}

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
    return {.width = width,
            .length = length,
            .samples = 3,
            .photometric = PHOTOMETRIC_YCBCR,
            .rowsPerStrip = tiled ? 0U : 16U,
            .tileWidth = tiled ? 32U : 0U,
            .tileLength = tiled ? 16U : 0U,
            .horizontal = GetParam().horizontal,
            .vertical = GetParam().vertical};
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

// --- Errors, and which comes first

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

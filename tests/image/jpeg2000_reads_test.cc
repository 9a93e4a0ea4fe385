// Strips and tiles that are JPEG 2000 codestreams, read through the gateway. Lossless ones must
// give back the samples of the formula that made them, lossy ones what OpenJPEG alone decodes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/codestreams.h"
#include "tests/support/gateway_call.h"
#include "tests/support/scene.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using testing::IsEmpty;

const char* readOperation(const Layout& layout) {
  return layout.tiled() ? "readEncodedTile" : "readEncodedStrip";
}

void expectBlocks(const Input& file, const Layout& layout) {
  for (std::uint32_t block = 0; block < blockCount(layout); ++block) {
    SCOPED_TRACE(testing::Message() << readOperation(layout) << ' ' << block);
    const vxArrayPtr array = call(readOperation(layout), file, block);
    EXPECT_THAT(libtiffMessages(), IsEmpty());
    EXPECT_EQ(vxGetClassID(array.get()), classOf(layout));
    EXPECT_TRUE(bytesOf(array) == hostBytes(layout, block));
  }
}

struct Size {
  std::uint32_t width, length;
};

// Strips and tiles that divide the image and that do not.
std::vector<Layout> layoutsOf(Layout kind) {
  std::vector<Layout> layouts;
  for (const auto& [width, length] : {Size{100, 90}, Size{64, 64}, Size{1, 1}, Size{67, 35}})
    for (const std::uint32_t tile : {0U, 16U, 64U}) {
      kind.width = width;
      kind.length = length;
      kind.rowsPerStrip = tile == 0 ? 30 : 0;
      kind.tileWidth = tile;
      kind.tileLength = tile == 64 ? 32 : tile;
      layouts.push_back(kind);
    }
  return layouts;
}

class ReadJpeg2000 : public testing::Test {
 protected:
  void expectRead(const Layout& layout, const Recode& recode = {}, const char* mode = "w") const {
    writeJpeg2000(path_, layout, recode, mode);
    const OpenedFile file(path_, "r");
    expectBlocks(file, layout);
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

// --- Every kind of sample in every layout

struct Kind {
  const char* name;
  std::uint16_t bits, format, samples, planar, photometric;
};
void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

constexpr std::uint16_t kContig = PLANARCONFIG_CONTIG, kApart = PLANARCONFIG_SEPARATE;
constexpr std::uint16_t kGray = PHOTOMETRIC_MINISBLACK, kRgb = PHOTOMETRIC_RGB;
constexpr Kind kKinds[] = {
    {"Gray8", 8, SAMPLEFORMAT_UINT, 1, kContig, kGray},
    {"Signed8", 8, SAMPLEFORMAT_INT, 1, kContig, kGray},
    {"Void8", 8, SAMPLEFORMAT_VOID, 1, kContig, kGray},
    {"Gray16", 16, SAMPLEFORMAT_UINT, 1, kContig, kGray},
    {"Signed16", 16, SAMPLEFORMAT_INT, 1, kContig, kGray},
    {"TwoSamples8", 8, SAMPLEFORMAT_UINT, 2, kContig, kGray},
    {"Rgb8", 8, SAMPLEFORMAT_UINT, 3, kContig, kRgb},
    {"Rgb16", 16, SAMPLEFORMAT_UINT, 3, kContig, kRgb},
    {"SignedRgb16", 16, SAMPLEFORMAT_INT, 3, kContig, kRgb},
    {"Rgba8", 8, SAMPLEFORMAT_UINT, 4, kContig, kRgb},
    {"Rgba16", 16, SAMPLEFORMAT_UINT, 4, kContig, kRgb},
    {"FiveSamples16", 16, SAMPLEFORMAT_UINT, 5, kContig, kGray},
    {"RgbPlanes8", 8, SAMPLEFORMAT_UINT, 3, kApart, kRgb},
    {"RgbPlanes16", 16, SAMPLEFORMAT_UINT, 3, kApart, kRgb},
};

class ReadJpeg2000Kind : public ReadJpeg2000, public testing::WithParamInterface<Kind> {};

TEST_P(ReadJpeg2000Kind, GivesTheSamplesBackInEveryLayout) {
  const auto& [name, bits, format, samples, planar, photometric] = GetParam();
  const Layout kind{.bits = bits,
                    .samples = samples,
                    .format = format,
                    .planar = planar,
                    .photometric = photometric,
                    .compression = kJpeg2000};
  for (const Layout& layout : layoutsOf(kind)) {
    SCOPED_TRACE(testing::Message()
                 << layout.width << " x " << layout.length << ", tiles " << layout.tileWidth);
    expectRead(layout);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReadJpeg2000Kind, testing::ValuesIn(kKinds),
                         [](const auto& test) { return std::string(test.param.name); });

// --- Every compression, file and coding

const Layout kRgbTiles{.width = 67,
                       .length = 50,
                       .bits = 16,
                       .samples = 3,
                       .photometric = PHOTOMETRIC_RGB,
                       .compression = kJpeg2000Rgb,
                       .tileWidth = 48,
                       .tileLength = 48};

class ReadJpeg2000Mode : public ReadJpeg2000, public testing::WithParamInterface<const char*> {};

TEST_P(ReadJpeg2000Mode, ByteOrderAndFileSizeMakeNoDifference) {
  expectRead(kRgbTiles, {}, GetParam());
  Layout strips = kRgbTiles;
  strips.tileWidth = 0;
  strips.rowsPerStrip = 20;
  expectRead(strips, {}, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Modes, ReadJpeg2000Mode, testing::Values("wl", "wb", "wl8", "wb8"));

struct CodingRow {
  const char* name;
  Recode recode;
};
void PrintTo(const CodingRow& row, std::ostream* out) { *out << row.name; }

class ReadJpeg2000Coding : public ReadJpeg2000, public testing::WithParamInterface<CodingRow> {};

TEST_P(ReadJpeg2000Coding, GivesTheSamplesBack) {
  for (const std::uint16_t bits : {std::uint16_t{8}, std::uint16_t{16}}) {
    Layout layout = kRgbTiles;
    layout.bits = bits;
    expectRead(layout, GetParam().recode);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Codings, ReadJpeg2000Coding,
    testing::Values(CodingRow{"ColourTransform", [](Coding& c) { c.hasColourTransform = true; }},
                    CodingRow{"OneResolution", [](Coding& c) { c.resolutions = 1; }},
                    CodingRow{"SixResolutions", [](Coding& c) { c.resolutions = 6; }},
                    CodingRow{"ThreeLayers", [](Coding& c) { c.layers = 3; }},
                    CodingRow{"SmallPrecincts", [](Coding& c) { c.precinct = 16; }},
                    CodingRow{"SmallCodeBlocks", [](Coding& c) { c.codeBlock = 4; }},
                    CodingRow{"FourTiles", [](Coding& c) { c.tileWidth = c.tileHeight = 24; }},
                    CodingRow{"OddTiles", [](Coding& c) { c.tileWidth = 17, c.tileHeight = 31; }},
                    CodingRow{"TilePartsByResolution", [](Coding& c) { c.tilePartsBy = 'R'; }},
                    CodingRow{"TilePartsByLayer",
                              [](Coding& c) {
                                c.layers = 3;
                                c.tilePartsBy = 'L';
                                c.tileWidth = c.tileHeight = 24;
                              }},
                    CodingRow{"ImageCornerOffTheOrigin", [](Coding& c) { c.x0 = 5, c.y0 = 9; }},
                    CodingRow{"Jp2Boxes", [](Coding& c) { c.isInBoxes = true; }},
                    CodingRow{"Everything",
                              [](Coding& c) {
                                c.hasColourTransform = c.isInBoxes = true;
                                c.layers = 2;
                                c.precinct = 32;
                                c.tileWidth = c.tileHeight = 24;
                                c.x0 = 3;
                              }}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(ReadJpeg2000, GivesTheSamplesBackUnderEachCompression) {
  // YCbCr that is gray has no colour to convert.
  for (const std::uint16_t compression : {kJpeg2000YCbCr, kJpeg2000Rgb, kJpeg2000})
    expectRead({.compression = compression});
}

TEST_F(ReadJpeg2000, FillOrderMakesNoDifference) {
  for (const std::uint32_t tile : {0U, 16U})
    expectRead(
        {.bits = 16,
         .compression = kJpeg2000,
         .tileWidth = tile,
         .tileLength = tile,
         .more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB); }});
}

TEST_F(ReadJpeg2000, FillOrderOfTheModeMakesNoDifference) {
  const Layout layout{.compression = kJpeg2000};
  writeJpeg2000(path_, layout);
  for (const char* mode : {"rL", "rB", "rm", "rmL"}) {
    const OpenedFile file(path_, mode);
    expectBlocks(file, layout);
  }
}

TEST_F(ReadJpeg2000, ShallowerSamplesStandIn16BitsAsTheyAre) {
  for (std::uint32_t precision = 9; precision <= 16; ++precision) {
    const Layout layout{.bits = 16, .compression = kJpeg2000};
    writeJpeg2000(path_, layout, [=](Coding& coding) { coding.precision = precision; });
    const OpenedFile file(path_, "r");
    const std::vector<std::uint16_t> read =
        elementsOf<std::uint16_t>(call("readEncodedStrip", file, 0));
    ASSERT_EQ(read.size(), 256U);
    const std::uint64_t mask = (std::uint64_t{1} << precision) - 1;
    for (std::uint32_t i = 0; i < 256; ++i)
      EXPECT_EQ(read[i], sampleBits(layout, i % 16, i / 16, 0) & mask);
  }
}

TEST_F(ReadJpeg2000, LossyOnesGiveWhatOpenJpegDecodes) {
  const Layout layout{.width = 90, .length = 70, .compression = kJpeg2000};
  const Bytes codestream = codestreamOf(layout, 0, [](Coding& c) { c.compression = 4; });
  writeCodestreams(path_, layout, {codestream});
  const std::vector<int> plane = decodePlanes(codestream).front();
  const OpenedFile file(path_, "r");
  const std::vector<std::uint8_t> read =
      elementsOf<std::uint8_t>(call("readEncodedStrip", file, 0));
  ASSERT_EQ(read.size(), plane.size());
  for (std::size_t i = 0; i < read.size(); ++i)
    EXPECT_EQ(read[i], plane[i % 70 * 90 + i / 70]) << i;
}

TEST_F(ReadJpeg2000, ATallerCodestreamInTheLastStripIsCut) {
  const Layout layout{.length = 25, .compression = kJpeg2000, .rowsPerStrip = 10};
  const auto stretched = [](Coding& coding) { coding.height = 10; };
  expectRead(layout, stretched);
}

TEST_F(ReadJpeg2000, BytesBehindTheEndAreIgnored) {
  const Layout layout{.compression = kJpeg2000};
  Bytes codestream = codestreamOf(layout, 0);
  codestream.resize(codestream.size() + 5);
  writeCodestreams(path_, layout, {codestream});
  const OpenedFile file(path_, "r");
  expectBlocks(file, layout);
}

TEST_F(ReadJpeg2000, AnyOrderOfBlocksGivesTheSame) {
  const Layout layout{.length = 40, .compression = kJpeg2000, .rowsPerStrip = 8};
  writeJpeg2000(path_, layout);
  const OpenedFile file(path_, "r");
  for (const std::uint32_t strip : {4U, 0U, 0U, 3U, 4U, 1U})
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, strip)) == hostBytes(layout, strip));
}

// --- RGBA

TEST_F(ReadJpeg2000, RgbaOfStripsAndTilesIsThatOfTheUncompressedImage) {
  for (Layout layout :
       {Layout{.width = 40, .length = 50, .samples = 3, .photometric = kRgb, .rowsPerStrip = 16},
        Layout{.width = 40,
        .length = 50,
        .samples = 3,
        .photometric = kRgb,
        .tileWidth = 32,
        .tileLength = 32},
        Layout{.width = 40,
        .length = 50,
        .samples = 3,
        .planar = kApart,
        .photometric = kRgb,
        .rowsPerStrip = 16},
        Layout{.width = 40, .length = 50, .bits = 16, .rowsPerStrip = 16}}) {
    writeTiff(path_, {layout});
    const std::vector<std::byte> plain = bytesOf(call("readRGBAImage", OpenedFile(path_, "r")));
    layout.compression = kJpeg2000;
    writeJpeg2000(path_, layout);
    const OpenedFile file(path_, "r");
    EXPECT_TRUE(bytesOf(call("readRGBAImage", file)) == plain);
    EXPECT_THAT(libtiffMessages(), IsEmpty());
  }
}

}  // namespace
}  // namespace tb::test

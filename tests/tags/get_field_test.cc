// getField on files that plain libtiff made: every tag that it serves, present in each kind of
// container and absent, and every tag that it refuses.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <span>

#include "tags/tag_table.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

constexpr float kWhite[] = {0.3127F, 0.329F};
constexpr float kSix[] = {0.64F, 0.33F, 0.3F, 0.6F, 0.15F, 0.06F};
constexpr float kThree[] = {0.299F, 0.587F, 0.114F};
constexpr std::uint8_t kBytes[] = {'<', 0xE9, 0, 255, '>', 1, 2};
constexpr double kDoubles[] = {1.5, -2.25, 1e300, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
constexpr std::uint16_t kKeys[] = {1, 1, 0, 3, 1024, 0, 1, 2, 1025, 0, 1, 1, 2048, 0, 1, 4326};
constexpr std::uint16_t kKinds[] = {2, 1};

std::vector<double> widened(std::span<const float> floats) {
  return {floats.begin(), floats.end()};
}

// One tag in a gray or RGB image, and what a host is to read.
struct Case {
  const char* name;
  std::uint32_t tag;
  std::function<void(TIFF*)> store;
  HostValue expected;
  std::uint16_t samples = 1;
  std::uint16_t compression = COMPRESSION_NONE;
  std::uint16_t bits = 8;
};

const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      {"SubfileType", 254, stores(254, 3U), aDouble(3)},
      {"ImageWidth", 256, stores(256, 16U), aDouble(16)},
      {"ImageLength", 257, stores(257, 16U), aDouble(16)},
      {"BitsPerSample", 258, [](TIFF*) {}, aDouble(16), 1, COMPRESSION_NONE, 16},
      {"Compression", 259, [](TIFF*) {}, aDouble(5), 1, COMPRESSION_LZW},
      {"Photometric", 262, stores(262, 0), aDouble(0)},
      {"Thresholding", 263, stores(263, 2), aDouble(2)},
      {"FillOrder", 266, stores(266, 2), aDouble(2)},
      {"DocumentName", 269, stores(269, "page \xE9"), aText("page \xE9")},
      {"ImageDescription", 270, stores(270, "a\nb"), aText("a\nb")},
      {"Make", 271, stores(271, "maker"), aText("maker")},
      {"Model", 272, stores(272, "model"), aText("model")},
      {"EmptyText", 272, stores(272, ""), aText("")},
      {"Orientation", 274, stores(274, 8), aDouble(8)},
      {"SamplesPerPixel", 277, stores(277, 3), aDouble(3), 3},
      {"RowsPerStrip", 278, stores(278, 16U), aDouble(16)},
      {"MinSampleValue", 280, stores(280, 3), aDouble(3)},
      {"MaxSampleValue", 281, stores(281, 200), aDouble(200)},
      {"XResolution", 282, stores(282, 72.5), aDouble(72.5)},
      {"YResolution", 283, stores(283, 300.25), aDouble(300.25)},
      {"PlanarConfiguration", 284, stores(284, 1), aDouble(1), 3},
      {"PageName", 285, stores(285, "p"), aText("p")},
      {"XPosition", 286, stores(286, 1.25), aDouble(1.25)},
      {"YPosition", 287, stores(287, 2.5), aDouble(2.5)},
      {"ResolutionUnit", 296, stores(296, 3), aDouble(3)},
      {"PageNumber", 297, stores(297, 2, 5), aRow({2, 5})},
      {"Software", 305, stores(305, "soft"), aText("soft")},
      {"DateTime", 306, stores(306, "2024:01:02 03:04:05"), aText("2024:01:02 03:04:05")},
      {"Artist", 315, stores(315, "artist"), aText("artist")},
      {"HostComputer", 316, stores(316, "host"), aText("host")},
      {"Predictor", 317, stores(317, 2), aDouble(2), 1, COMPRESSION_LZW},
      {"WhitePoint", 318, stores(318, +kWhite), aRow(widened(kWhite))},
      {"PrimaryChromaticities", 319, stores(319, +kSix), aRow(widened(kSix))},
      {"HalftoneHints", 321, stores(321, 10, 240), aRow({10, 240})},
      {"InkSet", 332, stores(332, 2), aDouble(2)},
      {"NumberOfInks", 334, stores(334, 1), aDouble(1)},
      {"DotRange", 336, stores(336, 1, 254), aRow({1, 254})},
      {"TargetPrinter", 337, stores(337, "press"), aText("press")},
      {"ExtraSamples", 338, stores(338, 2, +kKinds), aRow({2, 1}), 3},
      {"SampleFormat", 339, stores(339, 2), aDouble(2)},
      {"SMinSampleValue", 340, stores(340, 5.0), aDouble(5)},
      {"SMaxSampleValue", 341, stores(341, 250.0), aDouble(250)},
      {"YCbCrCoefficients", 529, stores(529, +kThree), aRow(widened(kThree))},
      {"YCbCrSubsampling", 530, stores(530, 4, 2), aRow({4, 2}), 3},
      {"YCbCrPositioning", 531, stores(531, 2), aDouble(2)},
      {"ReferenceBlackWhite", 532, stores(532, +kSix), aRow(widened(kSix))},
      {"XmlPacket", 700, stores(700, 7U, +kBytes), aRowOf(vxCHAR, {'<', 0xE9, 0, 255, '>', 1, 2})},
      {"ImageDepth", 32997, stores(32997, 1U), aDouble(1)},
      {"Copyright", 33432, stores(33432, "c"), aText("c")},
      {"ModelPixelScale", 33550, stores(33550, 3, +kDoubles), aRow({1.5, -2.25, 1e300})},
      {"Iptc", 33723, stores(33723, 3U, +kBytes), aRowOf(vxUINT8, {'<', 0xE9, 0})},
      {"ModelTiepoint", 33922, stores(33922, 12, kDoubles + 3),
       aMatrix(2, 6, {4, 10, 5, 11, 6, 12, 7, 13, 8, 14, 9, 15})},
      {"ModelTransformation", 34264, stores(34264, 16, +kDoubles),
       aRow({std::begin(kDoubles), std::end(kDoubles)})},
      {"Photoshop", 34377, stores(34377, 7U, +kBytes),
       aRowOf(vxUINT8, {'<', 0xE9, 0, 255, '>', 1, 2})},
      {"IccProfile", 34675, stores(34675, 4U, +kBytes), aRowOf(vxUINT8, {'<', 0xE9, 0, 255})},
      {"GeoKeyDirectory", 34735, stores(34735, 16, +kKeys),
       aMatrix(4, 4, {1, 1024, 1025, 2048, 1, 0, 0, 0, 0, 1, 1, 1, 3, 2, 1, 4326})},
      {"GeoDoubleParams", 34736, stores(34736, 2, +kDoubles), aRow({1.5, -2.25})},
      {"GeoAsciiParams", 34737, stores(34737, "WGS 84|"), aText("WGS 84|")},
      {"StoNits", 37439, stores(37439, 179.5), aDouble(179.5)},
      {"Group3Options", 292, stores(292, 4U), aDouble(4), 1, COMPRESSION_CCITTFAX3, 1},
      {"Group4Options", 293, stores(293, 2U), aDouble(2), 1, COMPRESSION_CCITTFAX4, 1},
      // Settings of a codec: these are what it starts with.
      {"JpegQuality", 65537, [](TIFF*) {}, aDouble(75), 1, COMPRESSION_JPEG},
      {"ZipQuality", 65557, [](TIFF*) {}, aDouble(4294967295), 1, COMPRESSION_ADOBE_DEFLATE},
  };
  return all;
}

struct Container {
  const char* name;
  const char* mode;
};

class EveryTag : public testing::TestWithParam<std::tuple<Case, Container>> {};

TEST_P(EveryTag, ReadsAsItsHostValue) {
  const auto& [row, container] = GetParam();
  const TemporaryFolder folder;
  writeTiff(folder / "a.tif",
            {{.bits = row.bits,
              .samples = row.samples,
              .photometric = row.samples == 1 ? std::uint16_t{PHOTOMETRIC_MINISBLACK}
                                              : std::uint16_t{PHOTOMETRIC_RGB},
              .compression = row.compression,
              .more = row.store}},
            container.mode);
  const OpenedFile file(folder / "a.tif", "r");
  EXPECT_EQ(valueOf(call("getField", file, row.tag)), row.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Containers, EveryTag,
    testing::Combine(testing::ValuesIn(cases()),
                     testing::ValuesIn(std::vector<Container>{
                         Container{"Classic", "wl"}, Container{"BigEndian", "wb"},
                         Container{"BigTiff", "w8l"}, Container{"BigTiffBigEndian", "w8b"}})),
    [](const auto& test) {
      return std::string(std::get<Case>(test.param).name) + std::get<Container>(test.param).name;
    });

// A handle of a new file has no tag but Compression. What libtiff can default never fails.
const std::map<std::uint32_t, HostValue>& defaults() {
  static const std::map<std::uint32_t, HostValue> all = {
      {254, aDouble(0)},   {258, aDouble(1)},   {259, aDouble(1)},          {274, aDouble(1)},
      {277, aDouble(1)},   {280, aDouble(0)},   {278, aDouble(4294967295)}, {281, aDouble(1)},
      {284, aDouble(1)},   {296, aDouble(2)},   {334, aDouble(4)},          {339, aDouble(1)},
      {530, aRow({2, 2})}, {32997, aDouble(1)},
  };
  return all;
}

class EveryAbsentTag : public testing::TestWithParam<TagRow> {};

TEST_P(EveryAbsentTag, ReadsAsItsDefaultOrFailsWithItsName) {
  const std::uint32_t tag = GetParam().tag;
  const std::string name(GetParam().name);
  const TemporaryFolder folder;
  const OpenedFile file(folder / "new.tif", "w");
  const auto read = [&file, tag] { return call("getField", file, tag); };

  if (const auto found = defaults().find(tag); found != defaults().end())
    EXPECT_EQ(valueOf(read()), found->second);
  else if (tag == 32995 || tag == 32996 || tag == 32998)
    expectError<Tiff::unsupportedTag>({name, tag}, read);
  else if (GetParam().reading.read == nullptr)
    expectError<Tiff::unhandledTagId>({tag}, read);
  else if (tag == 324 || tag == 325)
    expectError<Tiff::tiledOperationOnStrippedImage>({}, read);
  else
    expectError<Tiff::tagRetrievalFailed>({name}, read);
}

INSTANTIATE_TEST_SUITE_P(Names, EveryAbsentTag, testing::ValuesIn(tagTable()),
                         [](const auto& test) { return "Tag" + std::to_string(test.param.tag); });

class GetField : public testing::Test {
 protected:
  // A file of one 8-bit gray image with further tags.
  Input image(const std::function<void(TIFF*)>& more = [](TIFF*) {}) {
    writeTiff(folder_ / "a.tif", {{.more = more}});
    file_ = std::make_unique<OpenedFile>(folder_ / "a.tif", "r");
    return *file_;
  }
  TemporaryFolder folder_;
  std::unique_ptr<OpenedFile> file_;
};

TEST_F(GetField, CutsTheFractionOfATagNumber) {
  EXPECT_EQ(numberFrom("getField", image(), 256.7), 16);
}

TEST_F(GetField, TakesMinusOneHalfForTagZero) {
  const Input file = image();
  expectError<Tiff::unrecognizedTagNumber>({0}, [&] { call("getField", file, -0.5); });
}

TEST_F(GetField, TakesNanForTagZero) {
  const Input file = image();
  expectError<Tiff::unrecognizedTagNumber>({0}, [&] { call("getField", file, NAN); });
}

TEST_F(GetField, RefusesTagNumbersBeyond32Bits) {
  const Input file = image();
  for (const double tag : {-1.0, 4294967296.0, -HUGE_VAL, HUGE_VAL})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("getField", file, tag); });
}

TEST_F(GetField, ReadsATagNumberShorterThanADouble) {
  const Input file = image();
  expectError<Tiff::unrecognizedTagNumber>(
      {0}, [&] { call("getField", file, scalar<std::uint8_t>(0)); });
  expectError<Tiff::unrecognizedTagNumber>({0}, [&] { call("getField", file, row({})); });
  expectError<Tiff::unrecognizedTagNumber>({0},
                                           [&] { call("getField", file, cellOfTexts({"256"})); });
}

TEST_F(GetField, ReadsWidthsBeyondTwoToThe31AsUnsigned) {
  const OpenedFile file(folder_ / "new.tif", "w");
  ASSERT_EQ(TIFFSetField(file.handle(), TIFFTAG_IMAGEWIDTH, 3000000000U), 1);
  EXPECT_EQ(numberFrom("getField", file, 256), 3000000000.0);
}

TEST_F(GetField, NamesAnAbsentTextTag) {
  const Input file = image();
  expectError<Tiff::tagRetrievalFailed>({"Artist"}, [&] { call("getField", file, 315); });
}

TEST_F(GetField, RefusesGeoKeysThatAreNoMultipleOfFour) {
  const Input file = image(stores(34735, 14, +kKeys));
  expectError<Tiff::badMultipleTagValueRetrieved>({14, "GeoKeyDirectoryTag", 4},
                                                  [&] { call("getField", file, 34735); });
}

TEST_F(GetField, ReadsTheOffsetsOfSubDirectories) {
  const std::uint64_t none[2] = {};
  writeTiff(folder_ / "sub.tif", {{.more = stores(330, 2, +none)}, {}, {}});
  const OpenedFile file(folder_ / "sub.tif", "r");
  const HostValue offsets = valueOf(call("getField", file, 330));
  EXPECT_EQ(offsets.classId, vxUINT64);
  EXPECT_EQ(offsets.dimensions, (Dimensions{1, 2}));
  EXPECT_LT(offsets.elements[0], offsets.elements[1]);
}

TEST_F(GetField, LooksTheNameUpBeforeTheTag) {
  const Input file = image();
  for (const int tag : {0, 253, 260, 701, 65536})
    expectError<Tiff::unrecognizedTagNumber>({tag}, [&] { call("getField", file, tag); });
}

TEST_F(GetField, ChecksTheFileBeforeTheTagNumber) {
  expectError<Tiff::badFileId>({}, [] { call("getField", scalar<std::uint64_t>(0), -1); });
}

TEST_F(GetField, RunsWithoutAnOutputSlot) {
  const Input file = image();
  EXPECT_TRUE(callFor(0, "getField", file, 256).empty());
}

TEST_F(GetField, ReadsTheLogFormatAsUnchosen) {
  writeTiff(
      folder_ / "log.tif",
      {{.bits = 16,
        .format = SAMPLEFORMAT_INT,
        .photometric = PHOTOMETRIC_LOGL,
        .compression = COMPRESSION_SGILOG,
        .more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_16BIT); }}});
  const OpenedFile file(folder_ / "log.tif", "r");
  EXPECT_EQ(numberFrom("getField", file, 65560), 4294967295.0);
}

TEST_F(GetField, ReadsAPaletteWithoutMapAsGray) {
  auto entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_PALETTE}});
  writeRawTiff(folder_ / "p.tif", entries, std::vector<std::byte>(16));
  const OpenedFile file(folder_ / "p.tif", "r");
  EXPECT_EQ(numberFrom("getField", file, 262), PHOTOMETRIC_MINISBLACK);
}

}  // namespace
}  // namespace tb::test

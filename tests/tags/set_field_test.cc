// setField on the tags that stand alone: every row accepted and refused, in the order of its
// checks.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "tags/tag_table.h"
#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

std::vector<double> counting(std::size_t count, double first = 1) {
  std::vector<double> values(count);
  std::iota(values.begin(), values.end(), first);
  return values;
}

// A tag of one number that comes back as it is stored.
template <class T>
Accepted number(const char* name, std::uint32_t tag, double value, double held,
                const std::vector<Tag>& setup = {}) {
  return {name, setup, tag, value, fetchesOne<T>(tag), {held}, aDouble(held)};
}
Accepted text(const char* name, std::uint32_t tag, const std::string& value,
              const std::string& held, const std::vector<Tag>& setup = {}) {
  return {name, setup, tag, value, fetchesText(tag), aText(held).elements, aText(held)};
}
Accepted pair(const char* name, std::uint32_t tag, const std::vector<Tag>& setup = {}) {
  return {name, setup, tag, row({2, 65535}), fetchesPair(tag), {2, 65535}, aRow({2, 65535})};
}

const std::vector<Tag> kLzw = {{262, 1}, {259, 5}};
const std::vector<Tag> kJpeg = {{262, 1}, {259, 7}};
const std::vector<Tag> kDeflate = {{262, 1}, {259, 8}};
const std::vector<Tag> kFax3 = {{262, 1}, {259, 3}};
const std::vector<Tag> kFax4 = {{262, 1}, {259, 4}};

class AcceptedValues : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedValues, AreHeldByLibtiffAndReadBack) { expectStored(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Numbers, AcceptedValues,
    testing::Values(number<std::uint32_t>("SubfileType", 254, 3, 3),
                    number<std::uint32_t>("ImageWidth", 256, 640.9, 640),
                    number<std::uint32_t>("ImageLength", 257, 4294967295, 4294967295),
                    number<std::uint16_t>("FillOrder", 266, 2, 2),
                    number<std::uint16_t>("OrientationCutTo3", 274, 3.9, 3),
                    number<std::uint32_t>("RowsPerStrip", 278, 16, 16),
                    number<std::uint16_t>("MinSampleValue", 280, 65535, 65535),
                    number<std::uint16_t>("MinSampleValueOfNan", 280, NAN, 0),
                    number<std::uint16_t>("MinSampleValueAboveMinusOne", 280, -0.99, 0),
                    number<std::uint16_t>("MaxSampleValue", 281, 65535.9, 65535),
                    number<float>("XResolution", 282, 72, 72),
                    number<float>("YResolution", 283, 300.5, 300.5),
                    number<float>("XPosition", 286, 1e-3, static_cast<double>(1e-3F)),
                    number<float>("YPositionOfTheLargestSingle", 287, 3.4028234663852886e38,
                                  3.4028234663852886e38),
                    number<std::uint32_t>("Group3Options", 292, 5, 5, kFax3),
                    number<std::uint32_t>("Group4Options", 293, 2, 2, kFax4),
                    number<std::uint16_t>("ResolutionUnit", 296, 3, 3),
                    number<std::uint16_t>("Predictor", 317, 2, 2, kLzw),
                    number<std::uint32_t>("TileWidth", 322, 32, 32),
                    number<std::uint32_t>("TileLength", 323, 48.5, 48),
                    number<std::uint16_t>("InkSet", 332, 2, 2, separated()),
                    number<std::uint16_t>("YCbCrPositioning", 531, 2, 2),
                    number<double>("StoNits", 37439, 179.123456789, 179.123456789),
                    number<std::uint32_t>("JpegQuality", 65537, 90, 90, kJpeg),
                    number<std::uint32_t>("ZipQuality", 65557, 9, 9, kDeflate)),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Texts, AcceptedValues,
    testing::Values(
        text("DocumentName", 269, "d\xFF", "d\xFF"), text("ImageDescription", 270, "", ""),
        text("Make", 271, "maker", "maker"), text("Model", 272, "model", "model"),
        text("PageName", 285, "page", "page"), text("Software", 305, "soft", "soft"),
        text("DateTimeOf19", 306, "2024:01:02 03:04:05", "2024:01:02 03:04:05"),
        text("DateTimeOf10", 306, "2024:01:02", "2024:01:02         "),
        text("DateTimeOf0", 306, "", "                   "),
        text("Artist", 315, "artist", "artist"), text("HostComputer", 316, "host", "host"),
        text("TargetPrinter", 337, "press", "press", separated()),
        text("Copyright", 33432, "c", "c"), text("GeoAsciiParams", 34737, "WGS 84|", "WGS 84|"),
        text("TextUpToItsFirstNul", 270, std::string("ab\0cd", 5), "ab")),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Arrays, AcceptedValues,
    testing::Values(pair("PageNumber", 297), pair("HalftoneHints", 321),
                    pair("YCbCrSubsampling", 530), pair("DotRange", 336, separated()),
                    Accepted{"PairAsColumn",
                             {},
                             297,
                             arrayOf<double>({2, 1}, {7, 8}),
                             fetchesPair(297),
                             {7, 8},
                             aRow({7, 8})},
                    Accepted{"SubIfdOf3",
                             {},
                             330,
                             3,
                             fetchesCounted<std::uint16_t, std::uint64_t>(330),
                             {0, 0, 0},
                             aRowOf(vxUINT64, {0, 0, 0})},
                    Accepted{"SubIfdOfAnyClass",
                             {},
                             330,
                             arrayOf<std::int8_t>({2, 1}, {2, 9}),
                             fetchesCounted<std::uint16_t, std::uint64_t>(330),
                             {0, 0},
                             aRowOf(vxUINT64, {0, 0})},
                    Accepted{"SubIfdOfAnEmptyArray",
                             {},
                             330,
                             row({}),
                             fetchesCounted<std::uint16_t, std::uint64_t>(330),
                             {},
                             aRowOf(vxUINT64, {})},
                    Accepted{"ExtraSamples",
                             rgb(),
                             338,
                             row({2, 1}),
                             fetchesCounted<std::uint16_t, std::uint16_t>(338),
                             {2, 1},
                             aRow({2, 1})},
                    Accepted{"NoExtraSamples",
                             rgb(),
                             338,
                             row({}),
                             fetchesCounted<std::uint16_t, std::uint16_t>(338),
                             {},
                             aRow({})},
                    Accepted{"YCbCrCoefficients",
                             {},
                             529,
                             row({0.25, 0.5, 0.125}),
                             fetchesArray<float>(529, 3),
                             {0.25, 0.5, 0.125},
                             aRow({0.25, 0.5, 0.125})},
                    Accepted{"XmlPacketOf5",
                             {},
                             700,
                             "<\xFF/x>",
                             fetchesCounted<std::uint32_t, std::uint8_t>(700),
                             {'<', 255, '/', 'x', '>'},
                             aRowOf(vxCHAR, {'<', 255, '/', 'x', '>'})},
                    Accepted{"XmlPacketWithNuls",
                             {},
                             700,
                             std::string("a\0b\0c\0", 6),
                             fetchesCounted<std::uint32_t, std::uint8_t>(700),
                             {'a', 0, 'b', 0, 'c', 0},
                             aRowOf(vxCHAR, {'a', 0, 'b', 0, 'c', 0})},
                    Accepted{"ModelPixelScale",
                             {},
                             33550,
                             row({1, 1e300, -0.5}),
                             fetchesCounted<std::uint16_t, double>(33550),
                             {1, 1e300, -0.5},
                             aRow({1, 1e300, -0.5})},
                    Accepted{"ModelTiepointRowByRow",
                             {},
                             33922,
                             arrayOf<double>({2, 6}, {1, 7, 2, 8, 3, 9, 4, 10, 5, 11, 6, 12}),
                             fetchesCounted<std::uint16_t, double>(33922),
                             counting(12),
                             aMatrix(2, 6, {1, 7, 2, 8, 3, 9, 4, 10, 5, 11, 6, 12})},
                    Accepted{"ModelTransformationInStorageOrder",
                             {},
                             34264,
                             arrayOf<double>({4, 4}, counting(16)),
                             fetchesCounted<std::uint16_t, double>(34264),
                             counting(16),
                             aRow(counting(16))},
                    Accepted{"GeoKeysRowByRow",
                             {},
                             34735,
                             arrayOf<double>({2, 4}, {1, 5, 2, 6, 3, 7, 4, 8}),
                             fetchesCounted<std::uint16_t, std::uint16_t>(34735),
                             counting(8),
                             aMatrix(2, 4, {1, 5, 2, 6, 3, 7, 4, 8})},
                    Accepted{"GeoDoubleParams",
                             {},
                             34736,
                             row(counting(7)),
                             fetchesCounted<std::uint16_t, double>(34736),
                             counting(7),
                             aRow(counting(7))},
                    Accepted{"RpcCoefficients",
                             {},
                             50844,
                             row(counting(92)),
                             fetchesCounted<std::uint16_t, double>(50844),
                             counting(92),
                             aRow(counting(92))}),
    nameOf<Accepted>);

class SetField : public testing::Test {
 protected:
  TemporaryFolder folder_;
};

TEST_F(SetField, TakesOnlyCodecSettingsInAFileOpenForReading) {
  writeTiff(folder_ / "a.tif", {{.compression = COMPRESSION_JPEG}});
  const OpenedFile file(folder_ / "a.tif", "r");
  call("setField", file, 65538, 1);
  call("setField", file, 65537, 50);
  EXPECT_EQ(numberFrom("getField", file, 65537), 50);
  for (const TagRow& row : tagTable())
    if (row.writing.write != nullptr && row.tag < 65536)
      expectRefused<Tiff::cannotWriteInReadMode>(file, row.tag, 1, {});
}

TEST_F(SetField, LooksAtTheModeBeforeTheName) {
  writeTiff(folder_ / "a.tif", {{}});
  const OpenedFile file(folder_ / "a.tif", "r");
  for (const int tag : {0, 1, 65536})
    expectError<Tiff::cannotWriteInReadMode>({}, [&] { call("setField", file, tag, 1); });
}

TEST_F(SetField, RefusesEveryNamedTagWithoutARow) {
  const OpenedFile file(folder_ / "new.tif", "w");
  for (const TagRow& row : tagTable())
    if (row.writing.write == nullptr)
      expectError<Tiff::unrecognizedTagNumber>({row.tag},
                                               [&] { call("setField", file, row.tag, 1); });
  for (const int tag : {0, 1, 255, 273, 65536})
    expectError<Tiff::unrecognizedTagNumber>({tag}, [&] { call("setField", file, tag, 1); });
}

TEST_F(SetField, CutsTheFractionOfATagNumber) {
  const OpenedFile file(folder_ / "new.tif", "w");
  call("setField", file, 256.9, 12);
  EXPECT_EQ(numberFrom("getField", file, 256), 12);
  for (const double tag : {-1.0, 4294967296.0})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("setField", file, tag, 1); });
}

TEST_F(SetField, WritesInUpdateAndAppendMode) {
  writeTiff(folder_ / "a.tif", {{}});
  for (const char* mode : {"r+", "a"}) {
    const OpenedFile file(folder_ / "a.tif", mode);
    call("setField", file, 305, mode);
    EXPECT_EQ(textOf(call("getField", file, 305)), mode);
  }
}

TEST_F(SetField, StoresASecondTextInPlaceOfTheFirst) {
  const OpenedFile file(folder_ / "new.tif", "w");
  call("setField", file, 270, "the first, longer one");
  call("setField", file, 270, "second");
  EXPECT_EQ(textOf(call("getField", file, 270)), "second");
}

TEST_F(SetField, KeepsAZipQualityThatLibtiffRefuses) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, kDeflate);
  expectError<Tiff::unableToWriteTag>({"ZIPQuality"}, [&] { call("setField", file, 65557, 99); });
  EXPECT_EQ(numberFrom("getField", file, 65557), 99);
}

TEST_F(SetField, MakesTheOtherOfTwoDimensionsReadAsZero) {
  // libtiff marks both of a pair as set; write checks see the 0.
  const OpenedFile file(folder_ / "new.tif", "w");
  call("setField", file, 322, 32);
  EXPECT_EQ(numberFrom("getField", file, 323), 0);
}

TEST_F(SetField, StoresANegativePositionThatCannotBeWritten) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, gray() + std::vector<Tag>{{256, 4}, {257, 4}, {278, 4}, {286, -1}});
  EXPECT_EQ(numberFrom("getField", file, 286), -1);
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {4, 4}));
  expectError<Tiff::unableToWriteCurrentDir>({}, [&] { call("writeDirectory", file); });
}

TEST_F(SetField, RefusesLayoutTagsOnceDataAreWritten) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, gray() + std::vector<Tag>{{256, 4},
                                            {257, 4},
                                            {278, 4},
                                            {700, "<xmp/>"},
                                            {34675, arrayOf<std::uint8_t>({1, 3}, {1, 2, 3})}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {4, 4}));
  const Tag frozen[] = {
      {256, 4},           {258, 8},     {258, 16},
      {259, 1},           {262, 1},     {266, 1},
      {274, 1},           {277, 1},     {278, 4},
      {284, 1},           {322, 16},    {339, 1},
      {530, row({1, 1})}, {531, 1},     {529, row({1, 2, 3})},
      {700, "<xmp2/>"},   {37439, 1.0}, {34675, arrayOf<std::uint8_t>({1, 1}, {9})}};
  for (const Tag& tag : frozen)
    expectRefused<Tiff::unableToWriteTag>(
        file, tag.number, tag.value,
        {tag_num_to_tag_name(nullptr, static_cast<std::uint32_t>(tag.number))});
}

TEST_F(SetField, ChangesTextAndResolutionOnceDataAreWritten) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, gray() + std::vector<Tag>{{256, 4}, {257, 4}, {278, 4}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {4, 4}));
  setFields(file, {{257, 4}, {270, "late"}, {282, 10}, {33550, row({1, 2, 3})}});
  EXPECT_EQ(textOf(call("getField", file, 270)), "late");
}

}  // namespace
}  // namespace tb::test

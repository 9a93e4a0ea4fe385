// setField on the tags that stand alone: every row accepted and refused, in the order of its
// checks.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "host/tiff_utilities.h"
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

const std::vector<Tag> kLzw = {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_COMPRESSION, 5}};
const std::vector<Tag> kJpeg = {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_COMPRESSION, 7}};
const std::vector<Tag> kDeflate = {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_COMPRESSION, 8}};
const std::vector<Tag> kFax3 = {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_COMPRESSION, 3}};
const std::vector<Tag> kFax4 = {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_COMPRESSION, 4}};

class AcceptedValues : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedValues, AreHeldByLibtiffAndReadBack) { expectStored(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Numbers, AcceptedValues,
    testing::Values(
        number<std::uint32_t>("SubfileType", TIFFTAG_SUBFILETYPE, 3, 3),
        number<std::uint32_t>("ImageWidth", TIFFTAG_IMAGEWIDTH, 640.9, 640),
        number<std::uint32_t>("ImageLength", TIFFTAG_IMAGELENGTH, 4294967295, 4294967295),
        number<std::uint16_t>("FillOrder", TIFFTAG_FILLORDER, 2, 2),
        number<std::uint16_t>("OrientationCutTo3", TIFFTAG_ORIENTATION, 3.9, 3),
        number<std::uint32_t>("RowsPerStrip", TIFFTAG_ROWSPERSTRIP, 16, 16),
        number<std::uint16_t>("MinSampleValue", TIFFTAG_MINSAMPLEVALUE, 65535, 65535),
        number<std::uint16_t>("MinSampleValueOfNan", TIFFTAG_MINSAMPLEVALUE, NAN, 0),
        number<std::uint16_t>("MinSampleValueAboveMinusOne", TIFFTAG_MINSAMPLEVALUE, -0.99, 0),
        number<std::uint16_t>("MaxSampleValue", TIFFTAG_MAXSAMPLEVALUE, 65535.9, 65535),
        number<float>("XResolution", TIFFTAG_XRESOLUTION, 72, 72),
        number<float>("YResolution", TIFFTAG_YRESOLUTION, 300.5, 300.5),
        number<float>("XPosition", TIFFTAG_XPOSITION, 1e-3, static_cast<double>(1e-3F)),
        number<float>("YPositionOfTheLargestSingle", TIFFTAG_YPOSITION, 3.4028234663852886e38,
                      3.4028234663852886e38),
        number<std::uint32_t>("Group3Options", TIFFTAG_GROUP3OPTIONS, 5, 5, kFax3),
        number<std::uint32_t>("Group4Options", TIFFTAG_GROUP4OPTIONS, 2, 2, kFax4),
        number<std::uint16_t>("ResolutionUnit", TIFFTAG_RESOLUTIONUNIT, 3, 3),
        number<std::uint16_t>("Predictor", TIFFTAG_PREDICTOR, 2, 2, kLzw),
        number<std::uint32_t>("TileWidth", TIFFTAG_TILEWIDTH, 32, 32),
        number<std::uint32_t>("TileLength", TIFFTAG_TILELENGTH, 48.5, 48),
        number<std::uint16_t>("InkSet", TIFFTAG_INKSET, 2, 2, separated()),
        number<std::uint16_t>("YCbCrPositioning", TIFFTAG_YCBCRPOSITIONING, 2, 2),
        number<double>("StoNits", TIFFTAG_STONITS, 179.123456789, 179.123456789),
        number<std::uint32_t>("JpegQuality", TIFFTAG_JPEGQUALITY, 90, 90, kJpeg),
        number<std::uint32_t>("ZipQuality", TIFFTAG_ZIPQUALITY, 9, 9, kDeflate)),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Texts, AcceptedValues,
    testing::Values(
        text("DocumentName", TIFFTAG_DOCUMENTNAME, "d\xFF", "d\xFF"),
        text("ImageDescription", TIFFTAG_IMAGEDESCRIPTION, "", ""),
        text("Make", TIFFTAG_MAKE, "maker", "maker"),
        text("Model", TIFFTAG_MODEL, "model", "model"),
        text("PageName", TIFFTAG_PAGENAME, "page", "page"),
        text("Software", TIFFTAG_SOFTWARE, "soft", "soft"),
        text("DateTimeOf19", TIFFTAG_DATETIME, "2024:01:02 03:04:05", "2024:01:02 03:04:05"),
        text("DateTimeOf10", TIFFTAG_DATETIME, "2024:01:02", "2024:01:02         "),
        text("DateTimeOf0", TIFFTAG_DATETIME, "", "                   "),
        text("Artist", TIFFTAG_ARTIST, "artist", "artist"),
        text("HostComputer", TIFFTAG_HOSTCOMPUTER, "host", "host"),
        text("TargetPrinter", TIFFTAG_TARGETPRINTER, "press", "press", separated()),
        text("Copyright", TIFFTAG_COPYRIGHT, "c", "c"),
        text("GeoAsciiParams", tiffutils::kGeoAsciiParamsTag, "WGS 84|", "WGS 84|"),
        text("TextUpToItsFirstNul", TIFFTAG_IMAGEDESCRIPTION, std::string("ab\0cd", 5), "ab")),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Arrays, AcceptedValues,
    testing::Values(
        pair("PageNumber", TIFFTAG_PAGENUMBER), pair("HalftoneHints", TIFFTAG_HALFTONEHINTS),
        pair("YCbCrSubsampling", TIFFTAG_YCBCRSUBSAMPLING),
        pair("DotRange", TIFFTAG_DOTRANGE, separated()),
        Accepted{"PairAsColumn",
                 {},
                 TIFFTAG_PAGENUMBER,
                 arrayOf<double>({2, 1}, {7, 8}),
                 fetchesPair(TIFFTAG_PAGENUMBER),
                 {7, 8},
                 aRow({7, 8})},
        counted<std::uint16_t, std::uint64_t>("SubIfdOf3", TIFFTAG_SUBIFD, 3, {0, 0, 0},
                                              aRowOf(vxUINT64, {0, 0, 0})),
        counted<std::uint16_t, std::uint64_t>("SubIfdOfAnyClass", TIFFTAG_SUBIFD,
                                              arrayOf<std::int8_t>({2, 1}, {2, 9}), {0, 0},
                                              aRowOf(vxUINT64, {0, 0})),
        counted<std::uint16_t, std::uint64_t>("SubIfdOfAnEmptyArray", TIFFTAG_SUBIFD, row({}), {},
                                              aRowOf(vxUINT64, {})),
        counted<std::uint16_t, std::uint16_t>("ExtraSamples", TIFFTAG_EXTRASAMPLES, row({2, 1}),
                                              {2, 1}, aRow({2, 1}), rgb()),
        counted<std::uint16_t, std::uint16_t>("NoExtraSamples", TIFFTAG_EXTRASAMPLES, row({}), {},
                                              aRow({}), rgb()),
        Accepted{"YCbCrCoefficients",
                 {},
                 TIFFTAG_YCBCRCOEFFICIENTS,
                 row({0.25, 0.5, 0.125}),
                 fetchesArray<float>(TIFFTAG_YCBCRCOEFFICIENTS, 3),
                 {0.25, 0.5, 0.125},
                 aRow({0.25, 0.5, 0.125})},
        counted<std::uint32_t, std::uint8_t>("XmlPacketOf5", TIFFTAG_XMLPACKET, "<\xFF/x>",
                                             {'<', 255, '/', 'x', '>'},
                                             aRowOf(vxCHAR, {'<', 255, '/', 'x', '>'})),
        counted<std::uint32_t, std::uint8_t>("XmlPacketWithNuls", TIFFTAG_XMLPACKET,
                                             std::string("a\0b\0c\0", 6), {'a', 0, 'b', 0, 'c', 0},
                                             aRowOf(vxCHAR, {'a', 0, 'b', 0, 'c', 0})),
        counted<std::uint16_t, double>("ModelPixelScale", tiffutils::kModelPixelScaleTag,
                                       row({1, 1e300, -0.5}), {1, 1e300, -0.5},
                                       aRow({1, 1e300, -0.5})),
        counted<std::uint16_t, double>(
            "ModelTiepointRowByRow", tiffutils::kModelTiepointTag,
            arrayOf<double>({2, 6}, {1, 7, 2, 8, 3, 9, 4, 10, 5, 11, 6, 12}), counting(12),
            aMatrix(2, 6, {1, 7, 2, 8, 3, 9, 4, 10, 5, 11, 6, 12})),
        counted<std::uint16_t, double>("ModelTransformationInStorageOrder",
                                       tiffutils::kModelTransformationTag,
                                       arrayOf<double>({4, 4}, counting(16)), counting(16),
                                       aRow(counting(16))),
        counted<std::uint16_t, std::uint16_t>("GeoKeysRowByRow", tiffutils::kGeoKeyDirectoryTag,
                                              arrayOf<double>({2, 4}, {1, 5, 2, 6, 3, 7, 4, 8}),
                                              counting(8), aMatrix(2, 4, {1, 5, 2, 6, 3, 7, 4, 8})),
        counted<std::uint16_t, double>("GeoDoubleParams", tiffutils::kGeoDoubleParamsTag,
                                       row(counting(7)), counting(7), aRow(counting(7))),
        counted<std::uint16_t, double>("RpcCoefficients", tiffutils::kRpcCoefficientTag,
                                       row(counting(92)), counting(92), aRow(counting(92)))),
    nameOf<Accepted>);

class SetField : public testing::Test {
 protected:
  TemporaryFolder folder_;
};

TEST_F(SetField, TakesOnlyCodecSettingsInAFileOpenForReading) {
  writeTiff(folder_ / "a.tif", {{.compression = COMPRESSION_JPEG}});
  const OpenedFile file(folder_ / "a.tif", "r");
  call("setField", file, TIFFTAG_JPEGCOLORMODE, 1);
  call("setField", file, TIFFTAG_JPEGQUALITY, 50);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_JPEGQUALITY), 50);
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
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), 12);
  for (const double tag : {-1.0, 4294967296.0})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("setField", file, tag, 1); });
}

TEST_F(SetField, WritesInUpdateAndAppendMode) {
  writeTiff(folder_ / "a.tif", {{}});
  for (const char* mode : {"r+", "a"}) {
    const OpenedFile file(folder_ / "a.tif", mode);
    call("setField", file, TIFFTAG_SOFTWARE, mode);
    EXPECT_EQ(textOf(call("getField", file, TIFFTAG_SOFTWARE)), mode);
  }
}

TEST_F(SetField, StoresASecondTextInPlaceOfTheFirst) {
  const OpenedFile file(folder_ / "new.tif", "w");
  call("setField", file, TIFFTAG_IMAGEDESCRIPTION, "the first, longer one");
  call("setField", file, TIFFTAG_IMAGEDESCRIPTION, "second");
  EXPECT_EQ(textOf(call("getField", file, TIFFTAG_IMAGEDESCRIPTION)), "second");
}

TEST_F(SetField, KeepsAZipQualityThatLibtiffRefuses) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, kDeflate);
  expectError<Tiff::unableToWriteTag>({"ZIPQuality"},
                                      [&] { call("setField", file, TIFFTAG_ZIPQUALITY, 99); });
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_ZIPQUALITY), 99);
}

TEST_F(SetField, MakesTheOtherOfTwoDimensionsReadAsZero) {
  // libtiff marks both of a pair as set; write checks see the 0.
  const OpenedFile file(folder_ / "new.tif", "w");
  call("setField", file, TIFFTAG_TILEWIDTH, 32);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_TILELENGTH), 0);
}

TEST_F(SetField, StoresANegativePositionThatCannotBeWritten) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, gray() + std::vector<Tag>{{TIFFTAG_IMAGEWIDTH, 4},
                                            {TIFFTAG_IMAGELENGTH, 4},
                                            {TIFFTAG_ROWSPERSTRIP, 4},
                                            {TIFFTAG_XPOSITION, -1}});
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_XPOSITION), -1);
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {4, 4}));
  expectError<Tiff::unableToWriteCurrentDir>({}, [&] { call("writeDirectory", file); });
}

TEST_F(SetField, RefusesLayoutTagsOnceDataAreWritten) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, gray() + std::vector<Tag>{
                               {TIFFTAG_IMAGEWIDTH, 4},
                               {TIFFTAG_IMAGELENGTH, 4},
                               {TIFFTAG_ROWSPERSTRIP, 4},
                               {TIFFTAG_XMLPACKET, "<xmp/>"},
                               {TIFFTAG_ICCPROFILE, arrayOf<std::uint8_t>({1, 3}, {1, 2, 3})}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {4, 4}));
  const Tag frozen[] = {{TIFFTAG_IMAGEWIDTH, 4},
                        {TIFFTAG_BITSPERSAMPLE, 8},
                        {TIFFTAG_BITSPERSAMPLE, 16},
                        {TIFFTAG_COMPRESSION, 1},
                        {TIFFTAG_PHOTOMETRIC, 1},
                        {TIFFTAG_FILLORDER, 1},
                        {TIFFTAG_ORIENTATION, 1},
                        {TIFFTAG_SAMPLESPERPIXEL, 1},
                        {TIFFTAG_ROWSPERSTRIP, 4},
                        {TIFFTAG_PLANARCONFIG, 1},
                        {TIFFTAG_TILEWIDTH, 16},
                        {TIFFTAG_SAMPLEFORMAT, 1},
                        {TIFFTAG_YCBCRSUBSAMPLING, row({1, 1})},
                        {TIFFTAG_YCBCRPOSITIONING, 1},
                        {TIFFTAG_YCBCRCOEFFICIENTS, row({1, 2, 3})},
                        {TIFFTAG_XMLPACKET, "<xmp2/>"},
                        {TIFFTAG_STONITS, 1.0},
                        {TIFFTAG_ICCPROFILE, arrayOf<std::uint8_t>({1, 1}, {9})}};
  for (const Tag& tag : frozen)
    expectRefused<Tiff::unableToWriteTag>(
        file, tag.number, tag.value,
        {tag_num_to_tag_name(nullptr, static_cast<std::uint32_t>(tag.number))});
}

TEST_F(SetField, ChangesTextAndResolutionOnceDataAreWritten) {
  const OpenedFile file(folder_ / "new.tif", "w");
  setFields(file, gray() + std::vector<Tag>{{TIFFTAG_IMAGEWIDTH, 4},
                                            {TIFFTAG_IMAGELENGTH, 4},
                                            {TIFFTAG_ROWSPERSTRIP, 4}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {4, 4}));
  setFields(file, {{TIFFTAG_IMAGELENGTH, 4},
                   {TIFFTAG_IMAGEDESCRIPTION, "late"},
                   {TIFFTAG_XRESOLUTION, 10},
                   {tiffutils::kModelPixelScaleTag, row({1, 2, 3})}});
  EXPECT_EQ(textOf(call("getField", file, TIFFTAG_IMAGEDESCRIPTION)), "late");
}

}  // namespace
}  // namespace tb::test

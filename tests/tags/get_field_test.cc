// getField on files that plain libtiff made: every tag that it serves, present in each kind of
// container and absent, and every tag that it refuses.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <span>

#include "host/tiff_utilities.h"
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
      {"SubfileType", TIFFTAG_SUBFILETYPE, stores(TIFFTAG_SUBFILETYPE, 3U), aDouble(3)},
      {"ImageWidth", TIFFTAG_IMAGEWIDTH, stores(TIFFTAG_IMAGEWIDTH, 16U), aDouble(16)},
      {"ImageLength", TIFFTAG_IMAGELENGTH, stores(TIFFTAG_IMAGELENGTH, 16U), aDouble(16)},
      {"BitsPerSample", TIFFTAG_BITSPERSAMPLE, [](TIFF*) {}, aDouble(16), 1, COMPRESSION_NONE, 16},
      {"Compression", TIFFTAG_COMPRESSION, [](TIFF*) {}, aDouble(5), 1, COMPRESSION_LZW},
      {"Photometric", TIFFTAG_PHOTOMETRIC, stores(TIFFTAG_PHOTOMETRIC, 0), aDouble(0)},
      {"Thresholding", TIFFTAG_THRESHHOLDING, stores(TIFFTAG_THRESHHOLDING, 2), aDouble(2)},
      {"FillOrder", TIFFTAG_FILLORDER, stores(TIFFTAG_FILLORDER, 2), aDouble(2)},
      {"DocumentName", TIFFTAG_DOCUMENTNAME, stores(TIFFTAG_DOCUMENTNAME, "page \xE9"),
       aText("page \xE9")},
      {"ImageDescription", TIFFTAG_IMAGEDESCRIPTION, stores(TIFFTAG_IMAGEDESCRIPTION, "a\nb"),
       aText("a\nb")},
      {"Make", TIFFTAG_MAKE, stores(TIFFTAG_MAKE, "maker"), aText("maker")},
      {"Model", TIFFTAG_MODEL, stores(TIFFTAG_MODEL, "model"), aText("model")},
      {"EmptyText", TIFFTAG_MODEL, stores(TIFFTAG_MODEL, ""), aText("")},
      {"Orientation", TIFFTAG_ORIENTATION, stores(TIFFTAG_ORIENTATION, 8), aDouble(8)},
      {"SamplesPerPixel", TIFFTAG_SAMPLESPERPIXEL, stores(TIFFTAG_SAMPLESPERPIXEL, 3), aDouble(3),
       3},
      {"RowsPerStrip", TIFFTAG_ROWSPERSTRIP, stores(TIFFTAG_ROWSPERSTRIP, 16U), aDouble(16)},
      {"MinSampleValue", TIFFTAG_MINSAMPLEVALUE, stores(TIFFTAG_MINSAMPLEVALUE, 3), aDouble(3)},
      {"MaxSampleValue", TIFFTAG_MAXSAMPLEVALUE, stores(TIFFTAG_MAXSAMPLEVALUE, 200), aDouble(200)},
      {"XResolution", TIFFTAG_XRESOLUTION, stores(TIFFTAG_XRESOLUTION, 72.5), aDouble(72.5)},
      {"YResolution", TIFFTAG_YRESOLUTION, stores(TIFFTAG_YRESOLUTION, 300.25), aDouble(300.25)},
      {"PlanarConfiguration", TIFFTAG_PLANARCONFIG, stores(TIFFTAG_PLANARCONFIG, 1), aDouble(1), 3},
      {"PageName", TIFFTAG_PAGENAME, stores(TIFFTAG_PAGENAME, "p"), aText("p")},
      {"XPosition", TIFFTAG_XPOSITION, stores(TIFFTAG_XPOSITION, 1.25), aDouble(1.25)},
      {"YPosition", TIFFTAG_YPOSITION, stores(TIFFTAG_YPOSITION, 2.5), aDouble(2.5)},
      {"ResolutionUnit", TIFFTAG_RESOLUTIONUNIT, stores(TIFFTAG_RESOLUTIONUNIT, 3), aDouble(3)},
      {"PageNumber", TIFFTAG_PAGENUMBER, stores(TIFFTAG_PAGENUMBER, 2, 5), aRow({2, 5})},
      {"Software", TIFFTAG_SOFTWARE, stores(TIFFTAG_SOFTWARE, "soft"), aText("soft")},
      {"DateTime", TIFFTAG_DATETIME, stores(TIFFTAG_DATETIME, "2024:01:02 03:04:05"),
       aText("2024:01:02 03:04:05")},
      {"Artist", TIFFTAG_ARTIST, stores(TIFFTAG_ARTIST, "artist"), aText("artist")},
      {"HostComputer", TIFFTAG_HOSTCOMPUTER, stores(TIFFTAG_HOSTCOMPUTER, "host"), aText("host")},
      {"Predictor", TIFFTAG_PREDICTOR, stores(TIFFTAG_PREDICTOR, 2), aDouble(2), 1,
       COMPRESSION_LZW},
      {"WhitePoint", TIFFTAG_WHITEPOINT, stores(TIFFTAG_WHITEPOINT, +kWhite),
       aRow(widened(kWhite))},
      {"PrimaryChromaticities", TIFFTAG_PRIMARYCHROMATICITIES,
       stores(TIFFTAG_PRIMARYCHROMATICITIES, +kSix), aRow(widened(kSix))},
      {"HalftoneHints", TIFFTAG_HALFTONEHINTS, stores(TIFFTAG_HALFTONEHINTS, 10, 240),
       aRow({10, 240})},
      {"InkSet", TIFFTAG_INKSET, stores(TIFFTAG_INKSET, 2), aDouble(2)},
      {"NumberOfInks", TIFFTAG_NUMBEROFINKS, stores(TIFFTAG_NUMBEROFINKS, 1), aDouble(1)},
      {"DotRange", TIFFTAG_DOTRANGE, stores(TIFFTAG_DOTRANGE, 1, 254), aRow({1, 254})},
      {"TargetPrinter", TIFFTAG_TARGETPRINTER, stores(TIFFTAG_TARGETPRINTER, "press"),
       aText("press")},
      {"ExtraSamples", TIFFTAG_EXTRASAMPLES, stores(TIFFTAG_EXTRASAMPLES, 2, +kKinds), aRow({2, 1}),
       3},
      {"SampleFormat", TIFFTAG_SAMPLEFORMAT, stores(TIFFTAG_SAMPLEFORMAT, 2), aDouble(2)},
      {"SMinSampleValue", TIFFTAG_SMINSAMPLEVALUE, stores(TIFFTAG_SMINSAMPLEVALUE, 5.0),
       aDouble(5)},
      {"SMaxSampleValue", TIFFTAG_SMAXSAMPLEVALUE, stores(TIFFTAG_SMAXSAMPLEVALUE, 250.0),
       aDouble(250)},
      {"YCbCrCoefficients", TIFFTAG_YCBCRCOEFFICIENTS, stores(TIFFTAG_YCBCRCOEFFICIENTS, +kThree),
       aRow(widened(kThree))},
      {"YCbCrSubsampling", TIFFTAG_YCBCRSUBSAMPLING, stores(TIFFTAG_YCBCRSUBSAMPLING, 4, 2),
       aRow({4, 2}), 3},
      {"YCbCrPositioning", TIFFTAG_YCBCRPOSITIONING, stores(TIFFTAG_YCBCRPOSITIONING, 2),
       aDouble(2)},
      {"ReferenceBlackWhite", TIFFTAG_REFERENCEBLACKWHITE,
       stores(TIFFTAG_REFERENCEBLACKWHITE, +kSix), aRow(widened(kSix))},
      {"XmlPacket", TIFFTAG_XMLPACKET, stores(TIFFTAG_XMLPACKET, 7U, +kBytes),
       aRowOf(vxCHAR, {'<', 0xE9, 0, 255, '>', 1, 2})},
      {"ImageDepth", TIFFTAG_IMAGEDEPTH, stores(TIFFTAG_IMAGEDEPTH, 1U), aDouble(1)},
      {"Copyright", TIFFTAG_COPYRIGHT, stores(TIFFTAG_COPYRIGHT, "c"), aText("c")},
      {"ModelPixelScale", tiffutils::kModelPixelScaleTag,
       stores(tiffutils::kModelPixelScaleTag, 3, +kDoubles), aRow({1.5, -2.25, 1e300})},
      {"Iptc", TIFFTAG_RICHTIFFIPTC, stores(TIFFTAG_RICHTIFFIPTC, 3U, +kBytes),
       aRowOf(vxUINT8, {'<', 0xE9, 0})},
      {"ModelTiepoint", tiffutils::kModelTiepointTag,
       stores(tiffutils::kModelTiepointTag, 12, kDoubles + 3),
       aMatrix(2, 6, {4, 10, 5, 11, 6, 12, 7, 13, 8, 14, 9, 15})},
      {"ModelTransformation", tiffutils::kModelTransformationTag,
       stores(tiffutils::kModelTransformationTag, 16, +kDoubles),
       aRow({std::begin(kDoubles), std::end(kDoubles)})},
      {"Photoshop", TIFFTAG_PHOTOSHOP, stores(TIFFTAG_PHOTOSHOP, 7U, +kBytes),
       aRowOf(vxUINT8, {'<', 0xE9, 0, 255, '>', 1, 2})},
      {"IccProfile", TIFFTAG_ICCPROFILE, stores(TIFFTAG_ICCPROFILE, 4U, +kBytes),
       aRowOf(vxUINT8, {'<', 0xE9, 0, 255})},
      {"GeoKeyDirectory", tiffutils::kGeoKeyDirectoryTag,
       stores(tiffutils::kGeoKeyDirectoryTag, 16, +kKeys),
       aMatrix(4, 4, {1, 1024, 1025, 2048, 1, 0, 0, 0, 0, 1, 1, 1, 3, 2, 1, 4326})},
      {"GeoDoubleParams", tiffutils::kGeoDoubleParamsTag,
       stores(tiffutils::kGeoDoubleParamsTag, 2, +kDoubles), aRow({1.5, -2.25})},
      {"GeoAsciiParams", tiffutils::kGeoAsciiParamsTag,
       stores(tiffutils::kGeoAsciiParamsTag, "WGS 84|"), aText("WGS 84|")},
      {"StoNits", TIFFTAG_STONITS, stores(TIFFTAG_STONITS, 179.5), aDouble(179.5)},
      {"Group3Options", TIFFTAG_GROUP3OPTIONS, stores(TIFFTAG_GROUP3OPTIONS, 4U), aDouble(4), 1,
       COMPRESSION_CCITTFAX3, 1},
      {"Group4Options", TIFFTAG_GROUP4OPTIONS, stores(TIFFTAG_GROUP4OPTIONS, 2U), aDouble(2), 1,
       COMPRESSION_CCITTFAX4, 1},
      // Settings of a codec: these are what it starts with.
      {"JpegQuality", TIFFTAG_JPEGQUALITY, [](TIFF*) {}, aDouble(75), 1, COMPRESSION_JPEG},
      {"ZipQuality", TIFFTAG_ZIPQUALITY, [](TIFF*) {}, aDouble(4294967295), 1,
       COMPRESSION_ADOBE_DEFLATE},
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
      {TIFFTAG_SUBFILETYPE, aDouble(0)},           {TIFFTAG_BITSPERSAMPLE, aDouble(1)},
      {TIFFTAG_COMPRESSION, aDouble(1)},           {TIFFTAG_ORIENTATION, aDouble(1)},
      {TIFFTAG_SAMPLESPERPIXEL, aDouble(1)},       {TIFFTAG_MINSAMPLEVALUE, aDouble(0)},
      {TIFFTAG_ROWSPERSTRIP, aDouble(4294967295)}, {TIFFTAG_MAXSAMPLEVALUE, aDouble(1)},
      {TIFFTAG_PLANARCONFIG, aDouble(1)},          {TIFFTAG_RESOLUTIONUNIT, aDouble(2)},
      {TIFFTAG_NUMBEROFINKS, aDouble(4)},          {TIFFTAG_SAMPLEFORMAT, aDouble(1)},
      {TIFFTAG_YCBCRSUBSAMPLING, aRow({2, 2})},    {TIFFTAG_IMAGEDEPTH, aDouble(1)},
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
  else if (tag == TIFFTAG_MATTEING || tag == TIFFTAG_DATATYPE || tag == TIFFTAG_TILEDEPTH)
    expectError<Tiff::unsupportedTag>({name, tag}, read);
  else if (GetParam().reading.read == nullptr)
    expectError<Tiff::unhandledTagId>({tag}, read);
  else if (tag == TIFFTAG_TILEOFFSETS || tag == TIFFTAG_TILEBYTECOUNTS)
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
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), 3000000000.0);
}

TEST_F(GetField, NamesAnAbsentTextTag) {
  const Input file = image();
  expectError<Tiff::tagRetrievalFailed>({"Artist"},
                                        [&] { call("getField", file, TIFFTAG_ARTIST); });
}

TEST_F(GetField, RefusesGeoKeysThatAreNoMultipleOfFour) {
  const Input file = image(stores(tiffutils::kGeoKeyDirectoryTag, 14, +kKeys));
  expectError<Tiff::badMultipleTagValueRetrieved>({14, "GeoKeyDirectoryTag", 4}, [&] {
    call("getField", file, tiffutils::kGeoKeyDirectoryTag);
  });
}

TEST_F(GetField, ReadsTheOffsetsOfSubDirectories) {
  const std::uint64_t none[2] = {};
  writeTiff(folder_ / "sub.tif", {{.more = stores(TIFFTAG_SUBIFD, 2, +none)}, {}, {}});
  const OpenedFile file(folder_ / "sub.tif", "r");
  const HostValue offsets = valueOf(call("getField", file, TIFFTAG_SUBIFD));
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
  EXPECT_TRUE(callFor(0, "getField", file, TIFFTAG_IMAGEWIDTH).empty());
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
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_SGILOGDATAFMT), 4294967295.0);
}

TEST_F(GetField, ReadsAPaletteWithoutMapAsGray) {
  auto entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_PALETTE}});
  writeRawTiff(folder_ / "p.tif", entries, std::vector<std::byte>(16));
  const OpenedFile file(folder_ / "p.tif", "r");
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_PHOTOMETRIC), PHOTOMETRIC_MINISBLACK);
}

}  // namespace
}  // namespace tb::test

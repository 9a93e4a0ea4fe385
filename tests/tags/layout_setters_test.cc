// setField on the tags that fix the layout of the samples: what each accepts, what it refuses, and
// in which order it checks.
#include <gtest/gtest.h>

#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using TagList = std::vector<Tag>;

const TagList kPhotometric1 = {{TIFFTAG_PHOTOMETRIC, 1}};
const TagList kRgbWithoutDepth = {{TIFFTAG_PHOTOMETRIC, 2}};
const TagList kPalette = {{TIFFTAG_PHOTOMETRIC, 3}};
const TagList kLogL = {{TIFFTAG_PHOTOMETRIC, 32844}};
const TagList kLogLuv = {{TIFFTAG_PHOTOMETRIC, 32845}};

template <class T = std::uint16_t>
Accepted accepts(const char* name, const TagList& setup, std::uint32_t tag, double value) {
  return {name, setup, tag, value, fetchesOne<T>(tag), {value}, aDouble(value)};
}

class AcceptedLayout : public testing::TestWithParam<Accepted> {};
TEST_P(AcceptedLayout, IsHeldByLibtiffAndReadBack) { expectStored(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Depths, AcceptedLayout,
    testing::ValuesIn(std::vector<Accepted>{
        accepts("Of1", kPhotometric1, TIFFTAG_BITSPERSAMPLE, 1),
        accepts("Of8", kPhotometric1, TIFFTAG_BITSPERSAMPLE, 8),
        accepts("Of16", kRgbWithoutDepth, TIFFTAG_BITSPERSAMPLE, 16),
        accepts("Of32", kPhotometric1, TIFFTAG_BITSPERSAMPLE, 32),
        accepts("Of64", kPhotometric1, TIFFTAG_BITSPERSAMPLE, 64),
        accepts("PaletteOf8", kPalette, TIFFTAG_BITSPERSAMPLE, 8),
        accepts("CieLabOf16", {{TIFFTAG_PHOTOMETRIC, 8}}, TIFFTAG_BITSPERSAMPLE, 16),
        accepts("IccLabOf8", {{TIFFTAG_PHOTOMETRIC, 9}}, TIFFTAG_BITSPERSAMPLE, 8),
        accepts("ItuLabOf8", {{TIFFTAG_PHOTOMETRIC, 10}}, TIFFTAG_BITSPERSAMPLE, 8)}),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Others, AcceptedLayout,
    testing::ValuesIn(std::vector<Accepted>{
        accepts("PhotometricFirstOfAll", {}, TIFFTAG_PHOTOMETRIC, 2),
        accepts("UnknownPhotometric", {}, TIFFTAG_PHOTOMETRIC, 999),
        accepts("ThreeSamples", {{TIFFTAG_PHOTOMETRIC, 2}, {TIFFTAG_BITSPERSAMPLE, 8}},
                TIFFTAG_SAMPLESPERPIXEL, 3),
        accepts("OneSampleOfOneBit", {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 1}},
                TIFFTAG_SAMPLESPERPIXEL, 1),
        accepts("UnsignedFormat", kRgbWithoutDepth, TIFFTAG_SAMPLEFORMAT, 1),
        accepts("FloatFormatWithoutDepth", kRgbWithoutDepth, TIFFTAG_SAMPLEFORMAT, 3),
        accepts("SignedFormat", gray(16), TIFFTAG_SAMPLEFORMAT, 2),
        accepts("SeparatePlanes", rgb(), TIFFTAG_PLANARCONFIG, 2),
        accepts("ChunkyLogLuv", kLogLuv, TIFFTAG_PLANARCONFIG, 1),
        accepts("Thresholding1", {{TIFFTAG_PHOTOMETRIC, 0}}, TIFFTAG_THRESHHOLDING, 1),
        accepts("Thresholding3", kPhotometric1, TIFFTAG_THRESHHOLDING, 3),
        accepts("AsManyInksAsSamples", separated(), TIFFTAG_NUMBEROFINKS, 4),
        accepts("InksWithoutTheExtraSample", separated() + TagList{{TIFFTAG_EXTRASAMPLES, 0}},
                TIFFTAG_NUMBEROFINKS, 3),
        accepts("InksWithTheExtraSample", separated() + TagList{{TIFFTAG_EXTRASAMPLES, 0}},
                TIFFTAG_NUMBEROFINKS, 4)}),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(Schemes, AcceptedLayout,
                         testing::ValuesIn(std::vector<Accepted>{
                             accepts("None", kPhotometric1, TIFFTAG_COMPRESSION, 1),
                             accepts("Lzw", kPhotometric1, TIFFTAG_COMPRESSION, 5),
                             accepts("Jpeg", kPhotometric1, TIFFTAG_COMPRESSION, 7),
                             accepts("AdobeDeflate", kPhotometric1, TIFFTAG_COMPRESSION, 8),
                             accepts("PackBits", kPhotometric1, TIFFTAG_COMPRESSION, 32773),
                             accepts("Deflate", kPhotometric1, TIFFTAG_COMPRESSION, 32946),
                             accepts("SgiLog", kLogL, TIFFTAG_COMPRESSION, 34676),
                             accepts("SgiLog24", kLogLuv, TIFFTAG_COMPRESSION, 34677),
                             accepts("Fax3WithoutDepth", kPhotometric1, TIFFTAG_COMPRESSION, 3),
                             accepts("Fax4OfOneBit",
                                     {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 1}},
                                     TIFFTAG_COMPRESSION, 4)}),
                         nameOf<Accepted>);

class RefusedLayout : public testing::TestWithParam<Refused> {};
TEST_P(RefusedLayout, RaisesAndLeavesTheDirectoryAsItWas) { expectRefused(GetParam()); }

Expectation notScalar(const char* name) {
  return refusedWith<Tiff::tagValueNotDoublePrecisionScalar>({name});
}
Expectation needs(const char* required, const char* name) {
  return refusedWith<Tiff::tagRetrievalBeforeWriteFailed>({required, name});
}
Expectation needsPhotometric(const char* name) { return needs("PhotometricInterpretation", name); }
Expectation notForLogLuv(const char* name) { return refusedWith<Tiff::doNotSetForLogLuv>({name}); }
const Expectation kBadDepth = refusedWith<Tiff::badBitsPerSampleValue>();
const Expectation kBadPaletteDepth =
    refusedWith<Tiff::badPhotometricLabPaletteBitsPerSampleCombination>();

INSTANTIATE_TEST_SUITE_P(
    BitsPerSample, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass",
                {},
                TIFFTAG_BITSPERSAMPLE,
                scalar<std::uint16_t>(8),
                notScalar("BitsPerSample")},
        Refused{"Of70000",
                {},
                TIFFTAG_BITSPERSAMPLE,
                70000,
                refusedWith<validate::argumentOutOfBounds>()},
        Refused{"Of4BeforePhotometric", {}, TIFFTAG_BITSPERSAMPLE, 4, kBadDepth},
        Refused{"Of0", kPhotometric1, TIFFTAG_BITSPERSAMPLE, 0, kBadDepth},
        Refused{"Of24", kPhotometric1, TIFFTAG_BITSPERSAMPLE, 24, kBadDepth},
        Refused{
            "WithoutPhotometric", {}, TIFFTAG_BITSPERSAMPLE, 8, needsPhotometric("BitsPerSample")},
        Refused{"PaletteOf1", kPalette, TIFFTAG_BITSPERSAMPLE, 1, kBadPaletteDepth},
        Refused{
            "CieLabOf32", {{TIFFTAG_PHOTOMETRIC, 8}}, TIFFTAG_BITSPERSAMPLE, 32, kBadPaletteDepth},
        Refused{
            "IccLabOf64", {{TIFFTAG_PHOTOMETRIC, 9}}, TIFFTAG_BITSPERSAMPLE, 64, kBadPaletteDepth},
        Refused{
            "ItuLabOf1", {{TIFFTAG_PHOTOMETRIC, 10}}, TIFFTAG_BITSPERSAMPLE, 1, kBadPaletteDepth},
        Refused{"OfLogL", kLogL, TIFFTAG_BITSPERSAMPLE, 8, notForLogLuv("BitsPerSample")},
        Refused{"OfLogLuv", kLogLuv, TIFFTAG_BITSPERSAMPLE, 32, notForLogLuv("BitsPerSample")}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(SamplesPerPixel, RefusedLayout,
                         testing::ValuesIn(std::vector<Refused>{
                             Refused{"WithoutPhotometric",
                                     {},
                                     TIFFTAG_SAMPLESPERPIXEL,
                                     "not looked at",
                                     needsPhotometric("SamplesPerPixel")},
                             Refused{"OfLogLBeforeDepth", kLogL, TIFFTAG_SAMPLESPERPIXEL,
                                     "not looked at", notForLogLuv("SamplesPerPixel")},
                             Refused{"WithoutDepth", kPhotometric1, TIFFTAG_SAMPLESPERPIXEL,
                                     "not looked at", needs("BitsPerSample", "SamplesPerPixel")},
                             Refused{"OfAnotherClass", gray(1), TIFFTAG_SAMPLESPERPIXEL, "3",
                                     notScalar("SamplesPerPixel")},
                             Refused{"Of65536", gray(1), TIFFTAG_SAMPLESPERPIXEL, 65536,
                                     refusedWith<validate::argumentOutOfBounds>()},
                             Refused{
                                 "ThreeOfOneBit", gray(1), TIFFTAG_SAMPLESPERPIXEL, 3,
                                 refusedWith<Tiff::badSamplesPerPixelBitsPerSampleCombination>()},
                             Refused{"Of0", gray(8), TIFFTAG_SAMPLESPERPIXEL, 0,
                                     refusedWith<Tiff::unableToWriteTag>({"SamplesPerPixel"})}}),
                         nameOf<Refused>);

const Expectation kUnsupportedFormat = refusedWith<Tiff::sampleFormatValueNotSupported>();

INSTANTIATE_TEST_SUITE_P(
    SampleFormat, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass",
                {},
                TIFFTAG_SAMPLEFORMAT,
                scalar<std::uint8_t>(1),
                notScalar("SampleFormat")},
        Refused{
            "WithoutPhotometric", {}, TIFFTAG_SAMPLEFORMAT, 6, needsPhotometric("SampleFormat")},
        Refused{"OfLogLuv", kLogLuv, TIFFTAG_SAMPLEFORMAT, 6, notForLogLuv("SampleFormat")},
        Refused{"SignedRgbBeforeDepth", kRgbWithoutDepth, TIFFTAG_SAMPLEFORMAT, 2,
                refusedWith<Tiff::badValue>()},
        Refused{"SignedWithoutDepth", kPhotometric1, TIFFTAG_SAMPLEFORMAT, 2,
                needs("BitsPerSample", "SampleFormat")},
        Refused{"SignedOfOneBit", gray(1), TIFFTAG_SAMPLEFORMAT, 2,
                refusedWith<Tiff::badSampleFormatfor1Bps>()},
        Refused{"Void", gray(8), TIFFTAG_SAMPLEFORMAT, 4, kUnsupportedFormat},
        Refused{"ComplexInteger", gray(8), TIFFTAG_SAMPLEFORMAT, 5, kUnsupportedFormat},
        Refused{"Complex", gray(8), TIFFTAG_SAMPLEFORMAT, 6, kUnsupportedFormat},
        Refused{"Of0", gray(8), TIFFTAG_SAMPLEFORMAT, 0,
                refusedWith<Tiff::unableToWriteTag>({"SampleFormat"})},
        Refused{"Of7", gray(8), TIFFTAG_SAMPLEFORMAT, 7,
                refusedWith<Tiff::unableToWriteTag>({"SampleFormat"})}}),
    nameOf<Refused>);

Expectation unsupportedScheme(int scheme) {
  return refusedWith<Tiff::unsupportedCompressionScheme>({scheme});
}
const Expectation kNotCreated = refusedWith<Tiff::ccittNotSupportedForCreating>();
const Expectation kFaxDepth = refusedWith<Tiff::badBitsPerSampleCompressionCombination>();

INSTANTIATE_TEST_SUITE_P(
    Compression, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass", {}, TIFFTAG_COMPRESSION, "5", notScalar("Compression")},
        Refused{
            "WithoutPhotometric", {}, TIFFTAG_COMPRESSION, 34712, needsPhotometric("Compression")},
        Refused{"Fax3Of8Bits", gray(8), TIFFTAG_COMPRESSION, 3, kFaxDepth},
        Refused{"Fax4Of8Bits", gray(8), TIFFTAG_COMPRESSION, 4, kFaxDepth},
        Refused{"FaxRle", kPhotometric1, TIFFTAG_COMPRESSION, 2, kNotCreated},
        Refused{"FaxRleWordAligned", kPhotometric1, TIFFTAG_COMPRESSION, 32771, kNotCreated},
        Refused{"Of0", kPhotometric1, TIFFTAG_COMPRESSION, 0, unsupportedScheme(0)},
        Refused{"OldJpeg", kPhotometric1, TIFFTAG_COMPRESSION, 6, unsupportedScheme(6)},
        Refused{"Of9", kPhotometric1, TIFFTAG_COMPRESSION, 9, unsupportedScheme(9)},
        Refused{"Of32772", kPhotometric1, TIFFTAG_COMPRESSION, 32772, unsupportedScheme(32772)},
        Refused{"Of32774", kPhotometric1, TIFFTAG_COMPRESSION, 32774, unsupportedScheme(32774)},
        Refused{"Jpeg2000", kPhotometric1, TIFFTAG_COMPRESSION, 34712, unsupportedScheme(34712)},
        Refused{"Of65535", kPhotometric1, TIFFTAG_COMPRESSION, 65535, unsupportedScheme(65535)}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    PlanarConfiguration, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass", {}, TIFFTAG_PLANARCONFIG, "1", notScalar("PlanarConfiguration")},
        Refused{"Of0BeforePhotometric",
                {},
                TIFFTAG_PLANARCONFIG,
                0,
                refusedWith<Tiff::badPlanarConfigurationValue>({0})},
        Refused{"Of3", rgb(), TIFFTAG_PLANARCONFIG, 3,
                refusedWith<Tiff::badPlanarConfigurationValue>({3})},
        Refused{"WithoutPhotometric",
                {},
                TIFFTAG_PLANARCONFIG,
                1,
                needsPhotometric("PlanarConfiguration")},
        Refused{"SeparateLogLuv", kLogLuv, TIFFTAG_PLANARCONFIG, 2,
                refusedWith<Tiff::badPhotometricPlanarConfigurationCombination>()},
        Refused{"SeparateLogL", kLogL, TIFFTAG_PLANARCONFIG, 2,
                refusedWith<Tiff::badPhotometricPlanarConfigurationCombination>()}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    Thresholding, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass", {}, TIFFTAG_THRESHHOLDING, "1", notScalar("Thresholding")},
        Refused{"Of4BeforePhotometric",
                {},
                TIFFTAG_THRESHHOLDING,
                4,
                refusedWith<Tiff::badThresholdingValue>({4})},
        Refused{"Of0", kPhotometric1, TIFFTAG_THRESHHOLDING, 0,
                refusedWith<Tiff::badThresholdingValue>({0})},
        Refused{
            "WithoutPhotometric", {}, TIFFTAG_THRESHHOLDING, 2, needsPhotometric("Thresholding")},
        Refused{"OfRgb", rgb(), TIFFTAG_THRESHHOLDING, 2,
                refusedWith<Tiff::badTagUsedWithPhotometric>({"Thresholding",
                                                              "MinIsWhite, MinIsBlack"})}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    NumberOfInks, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"WithoutPhotometric",
                {},
                TIFFTAG_NUMBEROFINKS,
                "not looked at",
                needsPhotometric("NumberOfInks")},
        Refused{"OfRgb", rgb(), TIFFTAG_NUMBEROFINKS, "not looked at",
                refusedWith<Tiff::photometricInterpretationNotSeparated>({"NumberOfInks"})},
        Refused{"OfAnotherClassBeforeSamples",
                {{TIFFTAG_PHOTOMETRIC, 5}},
                TIFFTAG_NUMBEROFINKS,
                "4",
                notScalar("NumberOfInks")},
        Refused{"WithoutSamples",
                {{TIFFTAG_PHOTOMETRIC, 5}},
                TIFFTAG_NUMBEROFINKS,
                4,
                needs("SamplesPerPixel", "NumberOfInks")},
        Refused{"FewerThanSamples", separated(), TIFFTAG_NUMBEROFINKS, 3,
                refusedWith<Tiff::invalidNumberOfInksValue>({3, 4, 0})},
        Refused{"MoreThanSamples", separated() + TagList{{TIFFTAG_EXTRASAMPLES, 0}},
                TIFFTAG_NUMBEROFINKS, 5, refusedWith<Tiff::invalidNumberOfInksValue>({5, 4, 1})},
        Refused{"FewerThanAllButTheExtra", separated() + TagList{{TIFFTAG_EXTRASAMPLES, 0}},
                TIFFTAG_NUMBEROFINKS, 2, refusedWith<Tiff::invalidNumberOfInksValue>({2, 4, 1})},
        // NumberOfInks follows the names; libtiff lets nothing else replace it.
        Refused{"OtherThanTheNames",
                separated() + TagList{{TIFFTAG_EXTRASAMPLES, 0},
                                      {TIFFTAG_NUMBEROFINKS, 4},
                                      {TIFFTAG_INKNAMES, cellOfTexts({"c", "m", "y", "k"})}},
                TIFFTAG_NUMBEROFINKS, 3, refusedWith<Tiff::unableToWriteTag>({"NumberOfInks"})}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    SgiLogDataFmt, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"WithoutPhotometric",
                {},
                TIFFTAG_SGILOGDATAFMT,
                "not looked at",
                needsPhotometric("SGILogDataFmt")},
        Refused{"UnderLzw", kLogLuv + TagList{{TIFFTAG_COMPRESSION, 5}}, TIFFTAG_SGILOGDATAFMT,
                "not looked at", refusedWith<Tiff::badCompressionForSgiLogDataFmt>()},
        Refused{"WithoutCompression", kLogL, TIFFTAG_SGILOGDATAFMT, 0,
                refusedWith<Tiff::badCompressionForSgiLogDataFmt>()},
        Refused{"ChosenBefore",
                kLogLuv + TagList{{TIFFTAG_COMPRESSION, 34676}, {TIFFTAG_SGILOGDATAFMT, 0}},
                TIFFTAG_SGILOGDATAFMT, "not looked at", refusedWith<Tiff::fmtAlreadySet>()},
        Refused{"OfAnotherClass", kLogLuv + TagList{{TIFFTAG_COMPRESSION, 34676}},
                TIFFTAG_SGILOGDATAFMT, "0", notScalar("SGILogDataFmt")},
        Refused{"Of1", kLogLuv + TagList{{TIFFTAG_COMPRESSION, 34676}}, TIFFTAG_SGILOGDATAFMT, 1,
                refusedWith<Tiff::invalidSGILogDataFmtValue>({1})},
        Refused{"Of2", kLogL + TagList{{TIFFTAG_COMPRESSION, 34676}}, TIFFTAG_SGILOGDATAFMT, 2,
                refusedWith<Tiff::invalidSGILogDataFmtValue>({2})}}),
    nameOf<Refused>);

struct LogFormat {
  const char* name;
  int photometric, compression, format;
  double samples, bits, sampleFormat;
};
class LogFormats : public testing::TestWithParam<LogFormat> {};

TEST_P(LogFormats, DecideTheLayoutOfTheSamples) {
  const LogFormat& row = GetParam();
  const TemporaryFolder folder;
  const OpenedFile file(folder / "new.tif", "w");
  setFields(file, {{TIFFTAG_IMAGEWIDTH, 4},
                   {TIFFTAG_PHOTOMETRIC, row.photometric},
                   {TIFFTAG_COMPRESSION, row.compression},
                   {TIFFTAG_SGILOGDATAFMT, row.format}});
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_SGILOGDATAFMT), row.format);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_SAMPLESPERPIXEL), row.samples);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_BITSPERSAMPLE), row.bits);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_SAMPLEFORMAT), row.sampleFormat);
}

INSTANTIATE_TEST_SUITE_P(Schemes, LogFormats,
                         testing::ValuesIn(std::vector<LogFormat>{
                             LogFormat{"LogLuvFloat", 32845, 34676, 0, 3, 32, 3},
                             LogFormat{"LogLuv24Float", 32845, 34677, 0, 3, 32, 3},
                             LogFormat{"LogLFloat", 32844, 34676, 0, 1, 32, 3},
                             LogFormat{"LogLuvBytes", 32845, 34676, 3, 3, 8, 1}}),
                         [](const auto& test) { return test.param.name; });

TEST(LogFormatsOfAReadFile, MayBeChosenOnce) {
  const TemporaryFolder folder;
  writeTiff(folder / "log.tif", {{.bits = 16,
                                  .format = SAMPLEFORMAT_INT,
                                  .photometric = PHOTOMETRIC_LOGL,
                                  .compression = COMPRESSION_SGILOG,
                                  .more = stores(TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_16BIT)}});
  const OpenedFile file(folder / "log.tif", "r");
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_BITSPERSAMPLE), 16);
  call("setField", file, TIFFTAG_SGILOGDATAFMT, 0);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_BITSPERSAMPLE), 32);
  expectError<Tiff::fmtAlreadySet>({}, [&] { call("setField", file, TIFFTAG_SGILOGDATAFMT, 0); });
}

TEST(ReplacedSamplesPerPixel, DropsSampleRangesAndCurves) {
  const TemporaryFolder folder;
  const OpenedFile file(folder / "new.tif", "w");
  setFields(file, gray() + TagList{{TIFFTAG_SAMPLEFORMAT, 1},
                                   {TIFFTAG_SMINSAMPLEVALUE, 3},
                                   {TIFFTAG_TRANSFERFUNCTION, zeros(vxDOUBLE, {1, 256})}});
  call("setField", file, TIFFTAG_SAMPLESPERPIXEL, 3);
  expectError<Tiff::tagRetrievalFailed>({"SMinSampleValue"},
                                        [&] { call("getField", file, TIFFTAG_SMINSAMPLEVALUE); });
  expectError<Tiff::tagRetrievalFailed>({"TransferFunction"},
                                        [&] { call("getField", file, TIFFTAG_TRANSFERFUNCTION); });
}

}  // namespace
}  // namespace tb::test

// setField on the tags that fix the layout of the samples: what each accepts, what it refuses, and
// in which order it checks.
#include <gtest/gtest.h>

#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using TagList = std::vector<Tag>;

const TagList kPhotometric1 = {{262, 1}};
const TagList kRgbWithoutDepth = {{262, 2}};
const TagList kPalette = {{262, 3}};
const TagList kLogL = {{262, 32844}};
const TagList kLogLuv = {{262, 32845}};

template <class T = std::uint16_t>
Accepted accepts(const char* name, const TagList& setup, std::uint32_t tag, double value) {
  return {name, setup, tag, value, fetchesOne<T>(tag), {value}, aDouble(value)};
}

class AcceptedLayout : public testing::TestWithParam<Accepted> {};
TEST_P(AcceptedLayout, IsHeldByLibtiffAndReadBack) { expectStored(GetParam()); }

INSTANTIATE_TEST_SUITE_P(
    Depths, AcceptedLayout,
    testing::ValuesIn(std::vector<Accepted>{
        accepts("Of1", kPhotometric1, 258, 1), accepts("Of8", kPhotometric1, 258, 8),
        accepts("Of16", kRgbWithoutDepth, 258, 16), accepts("Of32", kPhotometric1, 258, 32),
        accepts("Of64", kPhotometric1, 258, 64), accepts("PaletteOf8", kPalette, 258, 8),
        accepts("CieLabOf16", {{262, 8}}, 258, 16), accepts("IccLabOf8", {{262, 9}}, 258, 8),
        accepts("ItuLabOf8", {{262, 10}}, 258, 8)}),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Others, AcceptedLayout,
    testing::ValuesIn(std::vector<Accepted>{
        accepts("PhotometricFirstOfAll", {}, 262, 2), accepts("UnknownPhotometric", {}, 262, 999),
        accepts("ThreeSamples", {{262, 2}, {258, 8}}, 277, 3),
        accepts("OneSampleOfOneBit", {{262, 1}, {258, 1}}, 277, 1),
        accepts("UnsignedFormat", kRgbWithoutDepth, 339, 1),
        accepts("FloatFormatWithoutDepth", kRgbWithoutDepth, 339, 3),
        accepts("SignedFormat", gray(16), 339, 2), accepts("SeparatePlanes", rgb(), 284, 2),
        accepts("ChunkyLogLuv", kLogLuv, 284, 1), accepts("Thresholding1", {{262, 0}}, 263, 1),
        accepts("Thresholding3", kPhotometric1, 263, 3),
        accepts("AsManyInksAsSamples", separated(), 334, 4),
        accepts("InksWithoutTheExtraSample", separated() + TagList{{338, 0}}, 334, 3),
        accepts("InksWithTheExtraSample", separated() + TagList{{338, 0}}, 334, 4)}),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Schemes, AcceptedLayout,
    testing::ValuesIn(std::vector<Accepted>{
        accepts("None", kPhotometric1, 259, 1), accepts("Lzw", kPhotometric1, 259, 5),
        accepts("Jpeg", kPhotometric1, 259, 7), accepts("AdobeDeflate", kPhotometric1, 259, 8),
        accepts("PackBits", kPhotometric1, 259, 32773),
        accepts("Deflate", kPhotometric1, 259, 32946), accepts("SgiLog", kLogL, 259, 34676),
        accepts("SgiLog24", kLogLuv, 259, 34677),
        accepts("Fax3WithoutDepth", kPhotometric1, 259, 3),
        accepts("Fax4OfOneBit", {{262, 1}, {258, 1}}, 259, 4)}),
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
        Refused{"OfAnotherClass", {}, 258, scalar<std::uint16_t>(8), notScalar("BitsPerSample")},
        Refused{"Of70000", {}, 258, 70000, refusedWith<validate::argumentOutOfBounds>()},
        Refused{"Of4BeforePhotometric", {}, 258, 4, kBadDepth},
        Refused{"Of0", kPhotometric1, 258, 0, kBadDepth},
        Refused{"Of24", kPhotometric1, 258, 24, kBadDepth},
        Refused{"WithoutPhotometric", {}, 258, 8, needsPhotometric("BitsPerSample")},
        Refused{"PaletteOf1", kPalette, 258, 1, kBadPaletteDepth},
        Refused{"CieLabOf32", {{262, 8}}, 258, 32, kBadPaletteDepth},
        Refused{"IccLabOf64", {{262, 9}}, 258, 64, kBadPaletteDepth},
        Refused{"ItuLabOf1", {{262, 10}}, 258, 1, kBadPaletteDepth},
        Refused{"OfLogL", kLogL, 258, 8, notForLogLuv("BitsPerSample")},
        Refused{"OfLogLuv", kLogLuv, 258, 32, notForLogLuv("BitsPerSample")}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    SamplesPerPixel, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{
            "WithoutPhotometric", {}, 277, "not looked at", needsPhotometric("SamplesPerPixel")},
        Refused{"OfLogLBeforeDepth", kLogL, 277, "not looked at", notForLogLuv("SamplesPerPixel")},
        Refused{"WithoutDepth", kPhotometric1, 277, "not looked at",
                needs("BitsPerSample", "SamplesPerPixel")},
        Refused{"OfAnotherClass", gray(1), 277, "3", notScalar("SamplesPerPixel")},
        Refused{"Of65536", gray(1), 277, 65536, refusedWith<validate::argumentOutOfBounds>()},
        Refused{"ThreeOfOneBit", gray(1), 277, 3,
                refusedWith<Tiff::badSamplesPerPixelBitsPerSampleCombination>()},
        Refused{"Of0", gray(8), 277, 0, refusedWith<Tiff::unableToWriteTag>({"SamplesPerPixel"})}}),
    nameOf<Refused>);

const Expectation kUnsupportedFormat = refusedWith<Tiff::sampleFormatValueNotSupported>();

INSTANTIATE_TEST_SUITE_P(
    SampleFormat, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass", {}, 339, scalar<std::uint8_t>(1), notScalar("SampleFormat")},
        Refused{"WithoutPhotometric", {}, 339, 6, needsPhotometric("SampleFormat")},
        Refused{"OfLogLuv", kLogLuv, 339, 6, notForLogLuv("SampleFormat")},
        Refused{"SignedRgbBeforeDepth", kRgbWithoutDepth, 339, 2, refusedWith<Tiff::badValue>()},
        Refused{"SignedWithoutDepth", kPhotometric1, 339, 2,
                needs("BitsPerSample", "SampleFormat")},
        Refused{"SignedOfOneBit", gray(1), 339, 2, refusedWith<Tiff::badSampleFormatfor1Bps>()},
        Refused{"Void", gray(8), 339, 4, kUnsupportedFormat},
        Refused{"ComplexInteger", gray(8), 339, 5, kUnsupportedFormat},
        Refused{"Complex", gray(8), 339, 6, kUnsupportedFormat},
        Refused{"Of0", gray(8), 339, 0, refusedWith<Tiff::unableToWriteTag>({"SampleFormat"})},
        Refused{"Of7", gray(8), 339, 7, refusedWith<Tiff::unableToWriteTag>({"SampleFormat"})}}),
    nameOf<Refused>);

Expectation unsupportedScheme(int scheme) {
  return refusedWith<Tiff::unsupportedCompressionScheme>({scheme});
}
const Expectation kNotCreated = refusedWith<Tiff::ccittNotSupportedForCreating>();
const Expectation kFaxDepth = refusedWith<Tiff::badBitsPerSampleCompressionCombination>();

INSTANTIATE_TEST_SUITE_P(
    Compression, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass", {}, 259, "5", notScalar("Compression")},
        Refused{"WithoutPhotometric", {}, 259, 34712, needsPhotometric("Compression")},
        Refused{"Fax3Of8Bits", gray(8), 259, 3, kFaxDepth},
        Refused{"Fax4Of8Bits", gray(8), 259, 4, kFaxDepth},
        Refused{"FaxRle", kPhotometric1, 259, 2, kNotCreated},
        Refused{"FaxRleWordAligned", kPhotometric1, 259, 32771, kNotCreated},
        Refused{"Of0", kPhotometric1, 259, 0, unsupportedScheme(0)},
        Refused{"OldJpeg", kPhotometric1, 259, 6, unsupportedScheme(6)},
        Refused{"Of9", kPhotometric1, 259, 9, unsupportedScheme(9)},
        Refused{"Of32772", kPhotometric1, 259, 32772, unsupportedScheme(32772)},
        Refused{"Of32774", kPhotometric1, 259, 32774, unsupportedScheme(32774)},
        Refused{"Jpeg2000", kPhotometric1, 259, 34712, unsupportedScheme(34712)},
        Refused{"Of65535", kPhotometric1, 259, 65535, unsupportedScheme(65535)}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    PlanarConfiguration, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass", {}, 284, "1", notScalar("PlanarConfiguration")},
        Refused{"Of0BeforePhotometric",
                {},
                284,
                0,
                refusedWith<Tiff::badPlanarConfigurationValue>({0})},
        Refused{"Of3", rgb(), 284, 3, refusedWith<Tiff::badPlanarConfigurationValue>({3})},
        Refused{"WithoutPhotometric", {}, 284, 1, needsPhotometric("PlanarConfiguration")},
        Refused{"SeparateLogLuv", kLogLuv, 284, 2,
                refusedWith<Tiff::badPhotometricPlanarConfigurationCombination>()},
        Refused{"SeparateLogL", kLogL, 284, 2,
                refusedWith<Tiff::badPhotometricPlanarConfigurationCombination>()}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    Thresholding, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfAnotherClass", {}, 263, "1", notScalar("Thresholding")},
        Refused{"Of4BeforePhotometric", {}, 263, 4, refusedWith<Tiff::badThresholdingValue>({4})},
        Refused{"Of0", kPhotometric1, 263, 0, refusedWith<Tiff::badThresholdingValue>({0})},
        Refused{"WithoutPhotometric", {}, 263, 2, needsPhotometric("Thresholding")},
        Refused{"OfRgb", rgb(), 263, 2,
                refusedWith<Tiff::badTagUsedWithPhotometric>({"Thresholding",
                                                              "MinIsWhite, MinIsBlack"})}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    NumberOfInks, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"WithoutPhotometric", {}, 334, "not looked at", needsPhotometric("NumberOfInks")},
        Refused{"OfRgb", rgb(), 334, "not looked at",
                refusedWith<Tiff::photometricInterpretationNotSeparated>({"NumberOfInks"})},
        Refused{"OfAnotherClassBeforeSamples", {{262, 5}}, 334, "4", notScalar("NumberOfInks")},
        Refused{"WithoutSamples", {{262, 5}}, 334, 4, needs("SamplesPerPixel", "NumberOfInks")},
        Refused{"FewerThanSamples", separated(), 334, 3,
                refusedWith<Tiff::invalidNumberOfInksValue>({3, 4, 0})},
        Refused{"MoreThanSamples", separated() + TagList{{338, 0}}, 334, 5,
                refusedWith<Tiff::invalidNumberOfInksValue>({5, 4, 1})},
        Refused{"FewerThanAllButTheExtra", separated() + TagList{{338, 0}}, 334, 2,
                refusedWith<Tiff::invalidNumberOfInksValue>({2, 4, 1})},
        // NumberOfInks follows the names; libtiff lets nothing else replace it.
        Refused{"OtherThanTheNames",
                separated() + TagList{{338, 0}, {334, 4}, {333, cellOfTexts({"c", "m", "y", "k"})}},
                334, 3, refusedWith<Tiff::unableToWriteTag>({"NumberOfInks"})}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    SgiLogDataFmt, RefusedLayout,
    testing::ValuesIn(std::vector<Refused>{
        Refused{
            "WithoutPhotometric", {}, 65560, "not looked at", needsPhotometric("SGILogDataFmt")},
        Refused{"UnderLzw", kLogLuv + TagList{{259, 5}}, 65560, "not looked at",
                refusedWith<Tiff::badCompressionForSgiLogDataFmt>()},
        Refused{"WithoutCompression", kLogL, 65560, 0,
                refusedWith<Tiff::badCompressionForSgiLogDataFmt>()},
        Refused{"ChosenBefore", kLogLuv + TagList{{259, 34676}, {65560, 0}}, 65560, "not looked at",
                refusedWith<Tiff::fmtAlreadySet>()},
        Refused{"OfAnotherClass", kLogLuv + TagList{{259, 34676}}, 65560, "0",
                notScalar("SGILogDataFmt")},
        Refused{"Of1", kLogLuv + TagList{{259, 34676}}, 65560, 1,
                refusedWith<Tiff::invalidSGILogDataFmtValue>({1})},
        Refused{"Of2", kLogL + TagList{{259, 34676}}, 65560, 2,
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
  setFields(file, {{256, 4}, {262, row.photometric}, {259, row.compression}, {65560, row.format}});
  EXPECT_EQ(numberFrom("getField", file, 65560), row.format);
  EXPECT_EQ(numberFrom("getField", file, 277), row.samples);
  EXPECT_EQ(numberFrom("getField", file, 258), row.bits);
  EXPECT_EQ(numberFrom("getField", file, 339), row.sampleFormat);
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
                                  .more = stores(65560, SGILOGDATAFMT_16BIT)}});
  const OpenedFile file(folder / "log.tif", "r");
  EXPECT_EQ(numberFrom("getField", file, 258), 16);
  call("setField", file, 65560, 0);
  EXPECT_EQ(numberFrom("getField", file, 258), 32);
  expectError<Tiff::fmtAlreadySet>({}, [&] { call("setField", file, 65560, 0); });
}

TEST(ReplacedSamplesPerPixel, DropsSampleRangesAndCurves) {
  const TemporaryFolder folder;
  const OpenedFile file(folder / "new.tif", "w");
  setFields(file, gray() + TagList{{339, 1}, {340, 3}, {301, zeros(vxDOUBLE, {1, 256})}});
  call("setField", file, 277, 3);
  expectError<Tiff::tagRetrievalFailed>({"SMinSampleValue"}, [&] { call("getField", file, 340); });
  expectError<Tiff::tagRetrievalFailed>({"TransferFunction"}, [&] { call("getField", file, 301); });
}

}  // namespace
}  // namespace tb::test

// setField on the tags that stand alone: what each refuses, in the order of its checks. The
// directory stays as it was.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "tests/support/tag_files.h"

namespace tb::test {
namespace {

const std::vector<Tag> kJpeg = {{262, 1}, {259, 7}};

std::vector<double> counting(std::size_t count) {
  std::vector<double> values(count);
  std::iota(values.begin(), values.end(), 1);
  return values;
}

class RefusedValues : public testing::TestWithParam<Refused> {};

TEST_P(RefusedValues, RaiseAndLeaveTheDirectoryAsItWas) { expectRefused(GetParam()); }

Expectation notScalar(const char* name) {
  return refusedWith<Tiff::tagValueNotDoublePrecisionScalar>({name});
}
Expectation notArray(const char* name) {
  return refusedWith<Tiff::tagValueNotDoublePrecisionArray>({name});
}
const Expectation kOutOfBounds = refusedWith<validate::argumentOutOfBounds>();

INSTANTIATE_TEST_SUITE_P(
    Classes, RefusedValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"LongOfAnotherClass", {}, 254, scalar<std::uint32_t>(1), notScalar("SubfileType")},
        Refused{"LongOfTwo", {}, 254, row({1, 2}), notScalar("SubfileType")},
        Refused{"LongOfNone", {}, 254, row({}), notScalar("SubfileType")},
        Refused{"ShortOfAnotherClass", {}, 274, scalar<std::int16_t>(1), notScalar("Orientation")},
        Refused{"ShortOfSingle", {}, 274, scalar<float>(1), notScalar("Orientation")},
        Refused{"ShortOfText", {}, 296, "2", notScalar("ResolutionUnit")},
        Refused{"ShortOfLogical", {}, 266, scalar<bool>(true), notScalar("FillOrder")},
        Refused{"ShortOfCell", {}, 266, cellOfTexts({"1"}), notScalar("FillOrder")},
        Refused{"ShortOfStruct", {}, 266, structure(), notScalar("FillOrder")},
        Refused{"FloatOfAnotherClass", {}, 282, scalar<float>(72), notArray("XResolution")},
        Refused{"FloatOfTwo", {}, 282, row({72, 72}), notScalar("XResolution")},
        Refused{"FloatOfNone", {}, 287, row({}), notScalar("YPosition")},
        Refused{"StoNitsOfTwo", {}, 37439, row({1, 2}), notScalar("StoNits")},
        Refused{"StoNitsOfText", {}, 37439, "1", notArray("StoNits")},
        Refused{"PairOfAnotherClass", {}, 297, scalar<std::uint16_t>(1), notArray("PageNumber")},
        Refused{"TextOfNumber",
                {},
                270,
                1,
                refusedWith<Tiff::argumentWasNotChar>({"ImageDescription"})},
        Refused{"TextOfCell",
                {},
                34737,
                cellOfTexts({"x"}),
                refusedWith<Tiff::argumentWasNotChar>({"GeoASCIIParamsTag"})},
        Refused{
            "DateTimeOfNumber", {}, 306, 1, refusedWith<Tiff::argumentWasNotChar>({"DateTime"})},
        Refused{
            "DateTimeOf20", {}, 306, "2024:01:02 03:04:05Z", refusedWith<Tiff::dateTimeTooLong>()},
        Refused{"ExtraSamplesOfAnotherClass", rgb(), 338, scalar<std::uint16_t>(1),
                notArray("ExtraSamples")},
        Refused{"XmlPacketOfNumber", {}, 700, 1, refusedWith<Tiff::badXmlPacketTagType>()},
        Refused{"XmlPacketOf4", {}, 700, "<x/>", refusedWith<Tiff::lengthTooShort>({"XMP", 5})},
        Refused{
            "GeoDoublesOfSingle", {}, 34736, scalar<float>(1), notArray("GeoDoubleParamsTag")}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    Counts, RefusedValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{
            "PageNumberOf1", {}, 297, 1, refusedWith<Tiff::badTagValueCount>({"PageNumber", 2})},
        Refused{"HalftoneHintsOf3",
                {},
                321,
                row({1, 2, 3}),
                refusedWith<Tiff::badTagValueCount>({"HalftoneHints", 2})},
        Refused{"SubsamplingOf0",
                {},
                530,
                row({}),
                refusedWith<Tiff::badTagValueCount>({"YCbCrSubsampling", 2})},
        Refused{"DotRangeOf1", separated(), 336, 1,
                refusedWith<Tiff::badTagValueCount>({"DotRange", 2})},
        Refused{"YCbCrCoefficientsOf2",
                {},
                529,
                row({1, 2}),
                refusedWith<Tiff::badTagValueCount>({"YCbCrCoefficients", 3})},
        Refused{"PixelScaleOf2",
                {},
                33550,
                row({1, 2}),
                refusedWith<Tiff::badTagValueCount>({"GeoPixelScale", 3})},
        Refused{"TransformationOf12",
                {},
                34264,
                row(counting(12)),
                refusedWith<Tiff::badTagValueCount>({"ModelTransformation", 16})},
        Refused{"RpcOf91",
                {},
                50844,
                row(counting(91)),
                refusedWith<Tiff::badTagValueCount>({"RPCCoefficientTag", 92})},
        Refused{"TiepointsOf6By2",
                {},
                33922,
                arrayOf<double>({6, 2}, counting(12)),
                refusedWith<Tiff::bad2DtagValue>({"ModelTiepointTag", 6})},
        Refused{"TiepointsOfThreeDimensions",
                {},
                33922,
                arrayOf<double>({1, 6, 2}, counting(12)),
                refusedWith<Tiff::bad2DtagValue>({"ModelTiepointTag", 6})},
        Refused{"TiepointsOfSingle",
                {},
                33922,
                arrayOf<float>({1, 6}, {}),
                refusedWith<Tiff::bad2DtagValue>({"ModelTiepointTag", 6})},
        Refused{"GeoKeysOf5Columns",
                {},
                34735,
                arrayOf<double>({1, 5}, {}),
                refusedWith<Tiff::bad2DtagValue>({"GeoKeyDirectoryTag", 4})}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    Ranges, RefusedValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"LongOfMinusOne", {}, 254, -1, kOutOfBounds},
        Refused{"LongOfTwoToThe32", {}, 256, 4294967296.0, kOutOfBounds},
        Refused{"ShortOfMinusOne", {}, 274, -1, kOutOfBounds},
        Refused{"ShortOf65536", {}, 281, 65536, kOutOfBounds},
        Refused{"ShortOfInfinity", {}, 281, HUGE_VAL, kOutOfBounds},
        Refused{"FloatOf1e39", {}, 282, 1e39, kOutOfBounds},
        Refused{"FloatOfMinusInfinity", {}, 286, -HUGE_VAL, kOutOfBounds},
        Refused{"PairOf65536", {}, 297, row({1, 65536}), kOutOfBounds},
        Refused{"RangeBeforeCount", {}, 297, row({1, 65536, 3}), kOutOfBounds},
        Refused{"SubIfdOf70000", {}, 330, 70000, kOutOfBounds},
        Refused{"SubIfdOfMinusOne", {}, 330, -1, kOutOfBounds},
        Refused{"SubIfdOfACell", {}, 330, cellOfTexts({"3"}), kOutOfBounds},
        Refused{"SubIfdOfAStruct", {}, 330, structure(), kOutOfBounds},
        Refused{"SubIfdOfText", {}, 330, "3", kOutOfBounds},
        Refused{"ExtraSamplesOf65536", rgb(), 338, 65536, kOutOfBounds},
        Refused{
            "GeoKeysOf65536", {}, 34735, arrayOf<double>({1, 4}, {1, 2, 3, 65536}), kOutOfBounds},
        Refused{"JpegColorModeOfMinusOne", kJpeg, 65538, -1, kOutOfBounds}}),
    nameOf<Refused>);

Expectation zeroLength(const char* name) { return refusedWith<Tiff::zeroLengthDimension>({name}); }

INSTANTIATE_TEST_SUITE_P(
    Rules, RefusedValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"WidthOf0", {}, 256, 0, zeroLength("ImageWidth")},
        Refused{"LengthOf0", {}, 257, 0.5, zeroLength("ImageLength")},
        Refused{"RowsPerStripOf0", {}, 278, 0, zeroLength("RowsPerStrip")},
        Refused{"TileWidthOf0", {}, 322, 0, zeroLength("TileWidth")},
        Refused{"TileLengthOf0", {}, 323, -0.5, zeroLength("TileLength")},
        Refused{"TileWidthOf24", {}, 322, 24, refusedWith<Tiff::badTileDimension>({"TileWidth"})},
        Refused{"TileLengthOf1", {}, 323, 1, refusedWith<Tiff::badTileDimension>({"TileLength"})},
        Refused{"InkSetOnRgb", rgb(), 332, "not looked at",
                refusedWith<Tiff::photometricInterpretationNotSeparated>({"InkSet"})},
        Refused{"InkSetWithoutPhotometric",
                {},
                332,
                1,
                refusedWith<Tiff::tagRetrievalBeforeWriteFailed>({"PhotometricInterpretation",
                                                                  "InkSet"})},
        Refused{"InkNamesOnRgb", rgb(), 333, "not looked at",
                refusedWith<Tiff::photometricInterpretationNotSeparated>({"InkNames"})},
        Refused{"DotRangeOnRgb", rgb(), 336, "not looked at",
                refusedWith<Tiff::photometricInterpretationNotSeparated>({"DotRange"})},
        Refused{"TargetPrinterOnGray", gray(), 337, 1,
                refusedWith<Tiff::photometricInterpretationNotSeparated>({"TargetPrinter"})},
        Refused{"TargetPrinterWithoutPhotometric",
                {},
                337,
                1,
                refusedWith<Tiff::tagRetrievalBeforeWriteFailed>({"PhotometricInterpretation",
                                                                  "TargetPrinter"})},
        Refused{"Matteing", {}, 32995, 1, refusedWith<Tiff::unsupportedTag>({"Matteing", 32995})},
        Refused{"DataType", {}, 32996, 1, refusedWith<Tiff::unsupportedTag>({"DataType", 32996})},
        Refused{
            "ImageDepth", {}, 32997, 1, refusedWith<Tiff::unsupportedTag>({"ImageDepth", 32997})},
        Refused{
            "TileDepth", {}, 32998, 1, refusedWith<Tiff::unsupportedTag>({"TileDepth", 32998})}}),
    nameOf<Refused>);

Expectation unableToWrite(const char* name) { return refusedWith<Tiff::unableToWriteTag>({name}); }

INSTANTIATE_TEST_SUITE_P(
    Libtiff, RefusedValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OrientationOfMinusOneHalf", {}, 274, -0.5, unableToWrite("Orientation")},
        Refused{"OrientationOf9", {}, 274, 9, unableToWrite("Orientation")},
        Refused{"ResolutionUnitOf0", {}, 296, 0, unableToWrite("ResolutionUnit")},
        Refused{"FillOrderOf3", {}, 266, 3, unableToWrite("FillOrder")},
        Refused{"NegativeXResolution", {}, 282, -1, unableToWrite("XResolution")},
        Refused{"YResolutionOfNan", {}, 283, NAN, unableToWrite("YResolution")},
        Refused{"MoreExtraSamplesThanSamples", gray(), 338, row({0, 0}),
                unableToWrite("ExtraSamples")},
        Refused{"ExtraSampleOf3", rgb(), 338, 3, unableToWrite("ExtraSamples")},
        Refused{"PredictorWithoutCodec", gray(), 317, 2, unableToWrite("Predictor")},
        Refused{"Group3OptionsWithoutCodec", gray(), 292, 1, unableToWrite("Group3Options")},
        Refused{"Group4OptionsWithoutCodec", gray(), 293, 1, unableToWrite("Group4Options")},
        Refused{"JpegQualityWithoutCodec", gray(), 65537, 1, unableToWrite("JPEGQuality")},
        Refused{"JpegColorModeWithoutCodec", gray(), 65538, 1, unableToWrite("JPEGColorMode")},
        Refused{"ZipQualityWithoutCodec", gray(), 65557, 1, unableToWrite("ZIPQuality")},
        Refused{"NoTiepoints",
                {},
                33922,
                arrayOf<double>({0, 6}, {}),
                unableToWrite("ModelTiepointTag")},
        Refused{"NoGeoKeys",
                {},
                34735,
                arrayOf<double>({0, 4}, {}),
                unableToWrite("GeoKeyDirectoryTag")},
        Refused{"NoGeoDoubles", {}, 34736, row({}), unableToWrite("GeoDoubleParamsTag")},
        Refused{"NoIptc", {}, 33723, zeros(vxUINT8, {1, 0}), unableToWrite("RichTIFFIPTC")},
        Refused{"NoIccProfile", {}, 34675, zeros(vxUINT8, {0, 0}), unableToWrite("ICC Profile")}}),
    nameOf<Refused>);

}  // namespace
}  // namespace tb::test

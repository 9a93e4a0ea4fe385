// setField on maps, curves and chromaticities: what each accepts, what it refuses, and in which
// order it checks.
#include <gtest/gtest.h>

#include <cmath>

#include "runtime/memory.h"
#include "tests/support/scene.h"
#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using TagList = std::vector<Tag>;

const TagList kPalette = {
    {TIFFTAG_PHOTOMETRIC, 3}, {TIFFTAG_BITSPERSAMPLE, 8}, {TIFFTAG_SAMPLESPERPIXEL, 1}};
const TagList kGrayAlone = {{TIFFTAG_PHOTOMETRIC, 1}};

// A rows-by-columns double matrix of one value.
vxArrayPtr filled(std::size_t rows, std::size_t columns, double value) {
  return arrayOf<double>({rows, columns}, std::vector<double>(rows * columns, value));
}
vxArrayPtr colorsWith(double value) {
  std::vector<double> elements(768, 0.25);
  elements[300] = value;
  return arrayOf<double>({256, 3}, elements);
}

class AcceptedColours : public testing::TestWithParam<Accepted> {};
TEST_P(AcceptedColours, AreHeldByLibtiffAndReadBack) { expectStored(GetParam()); }

Accepted floats(const char* name, const TagList& setup, std::uint32_t tag,
                const std::vector<double>& values) {
  return {name,   setup,       tag, row(values), fetchesArray<float>(tag, values.size()),
          values, aRow(values)};
}
const std::vector<double> kSix = {0.5, 0.25, 0.125, 1, 0.75, 0};

INSTANTIATE_TEST_SUITE_P(
    Chromaticities, AcceptedColours,
    testing::Values(
        floats("PrimariesOfRgb", rgb(), TIFFTAG_PRIMARYCHROMATICITIES, kSix),
        floats("PrimariesOfPalette", kPalette, TIFFTAG_PRIMARYCHROMATICITIES, kSix),
        floats("PrimariesOfYCbCr", {{TIFFTAG_PHOTOMETRIC, 6}}, TIFFTAG_PRIMARYCHROMATICITIES, kSix),
        floats("ReferenceOfRgb", rgb(), TIFFTAG_REFERENCEBLACKWHITE, kSix),
        floats("ReferenceOfYCbCr", {{TIFFTAG_PHOTOMETRIC, 6}}, TIFFTAG_REFERENCEBLACKWHITE, kSix),
        floats("WhiteOfRgb", rgb(), TIFFTAG_WHITEPOINT, {0.5, 0.25}),
        floats("WhiteOfPalette", kPalette, TIFFTAG_WHITEPOINT, {0.5, 0.25}),
        floats("WhiteOfYCbCr", {{TIFFTAG_PHOTOMETRIC, 6}}, TIFFTAG_WHITEPOINT, {0.5, 0.25}),
        floats("WhiteOfCieLab", {{TIFFTAG_PHOTOMETRIC, 8}}, TIFFTAG_WHITEPOINT, {0.5, 0.25}),
        floats("WhiteOfIccLab", {{TIFFTAG_PHOTOMETRIC, 9}}, TIFFTAG_WHITEPOINT, {0.5, 0.25}),
        floats("WhiteOfItuLab", {{TIFFTAG_PHOTOMETRIC, 10}}, TIFFTAG_WHITEPOINT, {0.5, 0.25})),
    nameOf<Accepted>);

class RefusedColours : public testing::TestWithParam<Refused> {};
TEST_P(RefusedColours, RaiseAndLeaveTheDirectoryAsItWas) { expectRefused(GetParam()); }

Expectation needs(const char* required, const char* name) {
  return refusedWith<Tiff::tagRetrievalBeforeWriteFailed>({required, name});
}
Expectation wrongPhotometric(const char* name, const char* allowed) {
  return refusedWith<Tiff::badTagUsedWithPhotometric>({name, allowed});
}
Expectation wrongCount(const char* name, int count) {
  return refusedWith<Tiff::badTagValueCount>({name, count});
}
Expectation notArray(const char* name) {
  return refusedWith<Tiff::tagValueNotDoublePrecisionArray>({name});
}
const Expectation kBadMap = refusedWith<Tiff::badColorMap>({256, 8});
const Expectation kNotNormalized = refusedWith<Tiff::colorMapValuesNotNormalized>();

INSTANTIATE_TEST_SUITE_P(
    ColorMap, RefusedColours,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"WithoutDepth",
                {{TIFFTAG_PHOTOMETRIC, 3}},
                TIFFTAG_COLORMAP,
                "not looked at",
                needs("BitsPerSample", "ColorMap")},
        Refused{"OfBytes", kPalette, TIFFTAG_COLORMAP, zeros(vxUINT8, {256, 3}), kBadMap},
        Refused{"Empty", kPalette, TIFFTAG_COLORMAP, zeros(vxDOUBLE, {0, 3}), kBadMap},
        Refused{"Of255Rows", kPalette, TIFFTAG_COLORMAP, filled(255, 3, 0), kBadMap},
        Refused{"Of4Columns", kPalette, TIFFTAG_COLORMAP, filled(256, 4, 0), kBadMap},
        Refused{"OfThreeDimensions", kPalette, TIFFTAG_COLORMAP, zeros(vxDOUBLE, {256, 3, 2}),
                kBadMap},
        Refused{"Transposed", kPalette, TIFFTAG_COLORMAP, filled(3, 256, 0), kBadMap},
        Refused{"ShapeBeforeRange", kPalette, TIFFTAG_COLORMAP, filled(255, 3, 2), kBadMap},
        Refused{"AboveOne", kPalette, TIFFTAG_COLORMAP, colorsWith(1.2), kNotNormalized},
        Refused{"BelowZero", kPalette, TIFFTAG_COLORMAP, colorsWith(-0.001), kNotNormalized},
        Refused{"OfInfinity", kPalette, TIFFTAG_COLORMAP, colorsWith(HUGE_VAL), kNotNormalized},
        Refused{"Of64Bits", gray(64), TIFFTAG_COLORMAP, filled(256, 3, 0),
                refusedWith<validate::argumentOutOfBounds>()},
        Refused{"Of32Bits", gray(32), TIFFTAG_COLORMAP, filled(256, 3, 0),
                refusedWith<Tiff::badColorMap>({4294967296, 32})}}),
    nameOf<Refused>);

Expectation wrongCurve(int bits, int samples, std::int64_t length) {
  return refusedWith<Tiff::badTransferFunctionSize>({bits, samples, length, samples});
}
constexpr const char* kCurvePhotometrics = "MinIsWhite, MinIsBlack, RGB, Palette, YCbCr";

INSTANTIATE_TEST_SUITE_P(
    TransferFunction, RefusedColours,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"WithoutPhotometric",
                {},
                TIFFTAG_TRANSFERFUNCTION,
                "not looked at",
                needs("PhotometricInterpretation", "TransferFunction")},
        Refused{"OnSeparated", separated(), TIFFTAG_TRANSFERFUNCTION, "not looked at",
                wrongPhotometric("TransferFunction", kCurvePhotometrics)},
        Refused{"OnCieLab",
                {{TIFFTAG_PHOTOMETRIC, 8}},
                TIFFTAG_TRANSFERFUNCTION,
                "not looked at",
                wrongPhotometric("TransferFunction", kCurvePhotometrics)},
        Refused{"OnMask",
                {{TIFFTAG_PHOTOMETRIC, 4}},
                TIFFTAG_TRANSFERFUNCTION,
                "not looked at",
                wrongPhotometric("TransferFunction", kCurvePhotometrics)},
        Refused{"OfThreeDimensions", gray(), TIFFTAG_TRANSFERFUNCTION, zeros(vxDOUBLE, {1, 256, 2}),
                wrongCurve(8, 1, 256)},
        Refused{
            "DimensionsBeforeSamples",
            {{TIFFTAG_PHOTOMETRIC, 2}, {TIFFTAG_BITSPERSAMPLE, 8}, {TIFFTAG_SAMPLESPERPIXEL, 4}},
            TIFFTAG_TRANSFERFUNCTION,
            zeros(vxDOUBLE, {256, 4, 2}),
            wrongCurve(8, 4, 256)},
        Refused{
            "OfFourSamples",
            {{TIFFTAG_PHOTOMETRIC, 2}, {TIFFTAG_BITSPERSAMPLE, 8}, {TIFFTAG_SAMPLESPERPIXEL, 4}},
            TIFFTAG_TRANSFERFUNCTION,
            "not looked at",
            refusedWith<Tiff::badTransferFunctionSppCombination>({4})},
        Refused{"Of255", gray(), TIFFTAG_TRANSFERFUNCTION, filled(1, 255, 0),
                wrongCurve(8, 1, 256)},
        Refused{"Of16By16", gray(), TIFFTAG_TRANSFERFUNCTION, filled(16, 16, 0),
                wrongCurve(8, 1, 256)},
        Refused{"OfAColumnForThree", rgb(), TIFFTAG_TRANSFERFUNCTION, filled(768, 1, 0),
                wrongCurve(8, 3, 256)},
        Refused{"Of3By256", rgb(), TIFFTAG_TRANSFERFUNCTION, filled(3, 256, 0),
                wrongCurve(8, 3, 256)},
        Refused{"OfAnotherClass", gray(), TIFFTAG_TRANSFERFUNCTION, zeros(vxUINT16, {1, 256}),
                notArray("TransferFunction")},
        Refused{"SizeBeforeClass", gray(), TIFFTAG_TRANSFERFUNCTION, zeros(vxUINT16, {1, 255}),
                wrongCurve(8, 1, 256)},
        Refused{"Of65536", gray(), TIFFTAG_TRANSFERFUNCTION, filled(1, 256, 65536),
                refusedWith<validate::argumentOutOfBounds>()},
        Refused{"Of64Bits", gray(64), TIFFTAG_TRANSFERFUNCTION, row({}), wrongCurve(64, 1, 0)},
        Refused{"WithDefaultsOfOneBit", kGrayAlone, TIFFTAG_TRANSFERFUNCTION, filled(1, 3, 0),
                wrongCurve(1, 1, 2)}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(
    Chromaticities, RefusedColours,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"PrimariesWithoutPhotometric",
                {},
                TIFFTAG_PRIMARYCHROMATICITIES,
                "not looked at",
                needs("PhotometricInterpretation", "PrimaryChromaticities")},
        Refused{"PrimariesOfGray", gray(), TIFFTAG_PRIMARYCHROMATICITIES, "not looked at",
                wrongPhotometric("PrimaryChromaticities", "RGB, YCbCr, Palette")},
        Refused{"PrimariesOfAnotherClass", rgb(), TIFFTAG_PRIMARYCHROMATICITIES,
                zeros(vxSINGLE, {1, 6}), notArray("PrimaryChromaticities")},
        Refused{"PrimariesOf5", rgb(), TIFFTAG_PRIMARYCHROMATICITIES, filled(1, 5, 0),
                wrongCount("PrimaryChromaticities", 6)},
        Refused{"PrimariesOf1e39", rgb(), TIFFTAG_PRIMARYCHROMATICITIES, filled(1, 6, 1e39),
                refusedWith<validate::argumentOutOfBounds>()},
        Refused{"ReferenceWithoutPhotometric",
                {},
                TIFFTAG_REFERENCEBLACKWHITE,
                1,
                needs("PhotometricInterpretation", "ReferenceBlackWhite")},
        Refused{"ReferenceOfGray", gray(), TIFFTAG_REFERENCEBLACKWHITE, 1,
                wrongPhotometric("ReferenceBlackWhite", "RGB, YCbCr, Palette")},
        Refused{"ReferenceOfPalette", kPalette, TIFFTAG_REFERENCEBLACKWHITE, "not looked at",
                wrongPhotometric("ReferenceBlackWhite", "RGB, YCbCr")},
        Refused{"ReferenceOf7", rgb(), TIFFTAG_REFERENCEBLACKWHITE, filled(7, 1, 0),
                wrongCount("ReferenceBlackWhite", 6)},
        Refused{"ReferenceOfText", rgb(), TIFFTAG_REFERENCEBLACKWHITE, "abcdef",
                notArray("ReferenceBlackWhite")},
        Refused{"WhiteWithoutPhotometric",
                {},
                TIFFTAG_WHITEPOINT,
                1,
                needs("PhotometricInterpretation", "WhitePoint")},
        Refused{"WhiteOfGray", gray(), TIFFTAG_WHITEPOINT, "not looked at",
                wrongPhotometric("WhitePoint", "RGB, YCbCr, Palette, CIELab, ICCLab")},
        Refused{"WhiteOfThree", rgb(), TIFFTAG_WHITEPOINT, row({1, 2, 3}),
                wrongCount("WhitePoint", 2)},
        Refused{"WhiteOfText", rgb(), TIFFTAG_WHITEPOINT, "xy", notArray("WhitePoint")}}),
    nameOf<Refused>);

// --- Arrays that are compared element by element

class Colours : public testing::Test {
 protected:
  Input create(const TagList& setup) {
    file_.reset();  // a file that is open is not written anew
    file_ = std::make_unique<OpenedFile>(folder_ / "new.tif", "w");
    setFields(*file_, setup);
    return *file_;
  }
  TemporaryFolder folder_;
  std::unique_ptr<OpenedFile> file_;
};

TEST_F(Colours, MapElementsAreScaledAndRounded) {
  const Input file = create(kPalette);
  std::vector<double> elements(768);
  elements[0] = 1;
  elements[1] = 0.5;
  elements[2] = NAN;
  elements[256] = 1 / 65535.0;
  elements[767] = 0.75;
  call("setField", file, TIFFTAG_COLORMAP, arrayOf<double>({256, 3}, elements));
  std::uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
  ASSERT_EQ(TIFFGetField(file_->handle(), TIFFTAG_COLORMAP, &red, &green, &blue), 1);
  EXPECT_EQ(red[0], 65535);
  EXPECT_EQ(red[1], 32768);
  EXPECT_EQ(red[2], 0);
  EXPECT_EQ(green[0], 1);
  EXPECT_EQ(blue[255], 49151);  // 49151.25 + 0.5, cut
}

TEST_F(Colours, MapReadBackAndStoredAgainIsTheSame) {
  const Input file = create(kPalette);
  std::vector<double> elements(768);
  for (std::size_t k = 0; k < elements.size(); ++k)
    elements[k] = static_cast<double>(k * 85) / 65535.0;
  call("setField", file, TIFFTAG_COLORMAP, arrayOf<double>({256, 3}, elements));
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_COLORMAP)), aMatrix(256, 3, elements));
}

std::vector<double> curve(std::size_t count) {
  std::vector<double> elements(count);
  for (std::size_t k = 0; k < count; ++k) elements[k] = static_cast<double>(65535 - k);
  return elements;
}

// libtiff counts them as set all the same, and would copy from nowhere when it writes them.
TEST_F(Colours, MapsForWhichLibtiffHasNoMemoryAreNotSet) {
  runtime::setMemoryLimit(std::size_t{100} << 10);
  const OpenedFile file(folder_ / "limited.tif", "w");
  runtime::setMemoryLimit(0);
  setFields(file, {{TIFFTAG_PHOTOMETRIC, 1},
                   {TIFFTAG_BITSPERSAMPLE, 16},
                   {TIFFTAG_SAMPLESPERPIXEL, 1},
                   {TIFFTAG_IMAGEWIDTH, 4},
                   {TIFFTAG_IMAGELENGTH, 4}});
  expectError<Tiff::unableToWriteTag>(
      {"ColorMap"}, [&] { call("setField", file, TIFFTAG_COLORMAP, filled(65536, 3, 0.5)); });
  expectError<Tiff::unableToWriteTag>({"TransferFunction"}, [&] {
    call("setField", file, TIFFTAG_TRANSFERFUNCTION, filled(65536, 1, 0.5));
  });
  call("writeEncodedStrip", file, 0, zeros(vxUINT16, {4, 4}));
  call("writeDirectory", file);
}

TEST_F(Colours, SingleCurveIsTakenAsARowOrAColumn) {
  for (const Dimensions& shape : {Dimensions{1, 256}, Dimensions{TIFFTAG_IMAGEWIDTH, 1}}) {
    const Input file = create(gray());
    call("setField", file, TIFFTAG_TRANSFERFUNCTION, arrayOf<double>(shape, curve(256)));
    EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION)), aRow(curve(256)));
  }
}

TEST_F(Colours, SingleCurveOfOneBitHasTwoElements) {
  const Input file = create(kGrayAlone);
  call("setField", file, TIFFTAG_TRANSFERFUNCTION, row({65535.9, -0.9}));
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION)), aRow({65535, 0}));
}

TEST_F(Colours, ThreeCurvesAreTheColumns) {
  const Input file = create(rgb());
  call("setField", file, TIFFTAG_TRANSFERFUNCTION, arrayOf<double>({256, 3}, curve(768)));
  std::uint16_t* curves[3] = {};
  ASSERT_EQ(
      TIFFGetField(file_->handle(), TIFFTAG_TRANSFERFUNCTION, &curves[0], &curves[1], &curves[2]),
      1);
  EXPECT_EQ(curves[0][0], 65535);
  EXPECT_EQ(curves[1][0], 65535 - 256);
  EXPECT_EQ(curves[2][255], 65535 - 767);
}

}  // namespace
}  // namespace tb::test

// setField on ink names, sample ranges and byte blocks: what each accepts, what it refuses, and in
// which order it checks.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "runtime/memory.h"
#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using TagList = std::vector<Tag>;

vxArrayPtr bytes(const std::vector<std::uint8_t>& elements) {
  return arrayOf<std::uint8_t>({1, elements.size()}, elements);
}
Expectation needs(const char* required, const char* name) {
  return refusedWith<Tiff::tagRetrievalBeforeWriteFailed>({required, name});
}
Expectation notArray(const char* name) {
  return refusedWith<Tiff::tagValueNotDoublePrecisionArray>({name});
}

class AcceptedPlainValues : public testing::TestWithParam<Accepted> {};
TEST_P(AcceptedPlainValues, AreHeldByLibtiffAndReadBack) { expectStored(GetParam()); }

Accepted range(const char* name, int bits, int format, double value, double held) {
  return {name,
          {{TIFFTAG_PHOTOMETRIC, format == 2 ? 1 : 2},
           {TIFFTAG_BITSPERSAMPLE, bits},
           {TIFFTAG_SAMPLEFORMAT, format}},
          TIFFTAG_SMINSAMPLEVALUE,
          value,
          fetchesOne<double>(TIFFTAG_SMINSAMPLEVALUE),
          {held},
          aDouble(held)};
}

INSTANTIATE_TEST_SUITE_P(
    SampleRanges, AcceptedPlainValues,
    testing::Values(range("OneBitOf1", 1, 1, 1, 1), range("OneBitOf0", 1, 3, 0, 0),
                    range("Double", 64, 3, 1e300, 1e300),
                    range("Single", 32, 3, 0.1, static_cast<double>(0.1F)),
                    range("Int8", 8, 2, -128.9, -128), range("Int16", 16, 2, -5, -5),
                    range("Int32", 32, 2, -2147483648.5, -2147483648.0),
                    range("Int32OfNan", 32, 2, NAN, 0), range("Uint8", 8, 1, 255.5, 255),
                    range("Uint16", 16, 1, 65535, 65535),
                    range("Uint32", 32, 1, 4294967295, 4294967295),
                    range("Uint8Of0", 8, 1, -0.5, 0)),
    nameOf<Accepted>);

INSTANTIATE_TEST_SUITE_P(
    Blocks, AcceptedPlainValues,
    testing::ValuesIn(std::vector<Accepted>{
        counted<std::uint32_t, std::uint8_t>("IptcOf1", TIFFTAG_RICHTIFFIPTC, bytes({200}), {200},
                                             aRowOf(vxUINT8, {200})),
        counted<std::uint32_t, std::uint8_t>("PhotoshopOf7", TIFFTAG_PHOTOSHOP,
                                             bytes({1, 2, 3, 4, 5, 6, 7}), {1, 2, 3, 4, 5, 6, 7},
                                             aRowOf(vxUINT8, {1, 2, 3, 4, 5, 6, 7})),
        counted<std::uint32_t, std::uint8_t>("IccProfileInStorageOrder", TIFFTAG_ICCPROFILE,
                                             arrayOf<std::uint8_t>({2, 2}, {1, 2, 3, 4}),
                                             {1, 2, 3, 4}, aRowOf(vxUINT8, {1, 2, 3, 4}))}),
    nameOf<Accepted>);

class RefusedPlainValues : public testing::TestWithParam<Refused> {};
TEST_P(RefusedPlainValues, RaiseAndLeaveTheDirectoryAsItWas) { expectRefused(GetParam()); }

const Expectation kNotNames = refusedWith<Tiff::notCellString>({"InkNames"});
const TagList kTwoInks = {{TIFFTAG_PHOTOMETRIC, 5},
                          {TIFFTAG_BITSPERSAMPLE, 8},
                          {TIFFTAG_SAMPLESPERPIXEL, 2},
                          {TIFFTAG_NUMBEROFINKS, 2}};

INSTANTIATE_TEST_SUITE_P(
    InkNames, RefusedPlainValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfText", kTwoInks, TIFFTAG_INKNAMES, "cyan", kNotNames},
        Refused{"TwoOfFour", separated(), TIFFTAG_INKNAMES, cellOfTexts({"cyan", "magenta"}),
                refusedWith<Tiff::badNumberOfInkNames>({4})},
        Refused{"OfUnsetCells", kTwoInks, TIFFTAG_INKNAMES, zeros(vxCELL, {1, 2}), kNotNames},
        Refused{"OfACellOfNumbers",
                {{TIFFTAG_PHOTOMETRIC, 5},
                 {TIFFTAG_BITSPERSAMPLE, 8},
                 {TIFFTAG_SAMPLESPERPIXEL, 1},
                 {TIFFTAG_NUMBEROFINKS, 1}},
                TIFFTAG_INKNAMES,
                [] {
                  vxArrayPtr cell = zeros(vxCELL, {1, 1});
                  vxSetCell(cell.get(), 0, row({1}).release());
                  return cell;
                }(),
                kNotNames},
        Refused{"OfNoInks",
                {{TIFFTAG_PHOTOMETRIC, 5},
                 {TIFFTAG_BITSPERSAMPLE, 8},
                 {TIFFTAG_SAMPLESPERPIXEL, 1},
                 {TIFFTAG_EXTRASAMPLES, 0},
                 {TIFFTAG_NUMBEROFINKS, 0}},
                TIFFTAG_INKNAMES,
                zeros(vxCELL, {1, 0}),
                refusedWith<Tiff::unableToWriteTag>({"InkNames"})}}),
    nameOf<Refused>);

const TagList kSigned8 = {
    {TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 8}, {TIFFTAG_SAMPLEFORMAT, 2}};
const TagList kUnsigned8 = {
    {TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 8}, {TIFFTAG_SAMPLEFORMAT, 1}};
const Expectation kOutOfBounds = refusedWith<validate::argumentOutOfBounds>();

INSTANTIATE_TEST_SUITE_P(
    SampleRanges, RefusedPlainValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfTwo",
                {},
                TIFFTAG_SMINSAMPLEVALUE,
                row({1, 2}),
                refusedWith<Tiff::tagValueNotDoublePrecisionScalar>({"SMinSampleValue"})},
        Refused{"OfNone",
                {},
                TIFFTAG_SMAXSAMPLEVALUE,
                row({}),
                refusedWith<Tiff::tagValueNotDoublePrecisionScalar>({"SMaxSampleValue"})},
        Refused{"WithoutFormat", gray(), TIFFTAG_SMINSAMPLEVALUE, 1,
                needs("SampleFormat", "SMinSampleValue")},
        Refused{"WithoutDepth",
                {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_SAMPLEFORMAT, 1}},
                TIFFTAG_SMAXSAMPLEVALUE,
                1,
                needs("BitsPerSample", "SMaxSampleValue")},
        Refused{"OneHalfOfOneBit",
                {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 1}, {TIFFTAG_SAMPLEFORMAT, 1}},
                TIFFTAG_SMINSAMPLEVALUE,
                0.5,
                refusedWith<Tiff::badSMinMaxValueForBiLevelImage>({"SMinSampleValue"})},
        Refused{"NanOfOneBit",
                {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 1}, {TIFFTAG_SAMPLEFORMAT, 1}},
                TIFFTAG_SMAXSAMPLEVALUE,
                NAN,
                refusedWith<Tiff::badSMinMaxValueForBiLevelImage>({"SMaxSampleValue"})},
        Refused{"MinusFiveOfUnsigned", kUnsigned8, TIFFTAG_SMINSAMPLEVALUE, -5, kOutOfBounds},
        Refused{"Of256", kUnsigned8, TIFFTAG_SMAXSAMPLEVALUE, 256, kOutOfBounds},
        Refused{"MinusOneTwoNineOfSigned", kSigned8, TIFFTAG_SMINSAMPLEVALUE, -129, kOutOfBounds},
        Refused{"OfInfinityInSingle",
                {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 32}, {TIFFTAG_SAMPLEFORMAT, 3}},
                TIFFTAG_SMINSAMPLEVALUE,
                HUGE_VAL,
                kOutOfBounds},
        Refused{"OfAnotherClass", kUnsigned8, TIFFTAG_SMINSAMPLEVALUE, scalar<std::uint8_t>(1),
                notArray("SMinSampleValue")},
        Refused{"SixtyFourBitIntegers",
                {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 64}, {TIFFTAG_SAMPLEFORMAT, 1}},
                TIFFTAG_SMINSAMPLEVALUE,
                1,
                refusedWith<Tiff::badSampleFormatBitsPerSampleCombination>({1, 64})},
        Refused{"SixteenBitFloats",
                {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_BITSPERSAMPLE, 16}, {TIFFTAG_SAMPLEFORMAT, 3}},
                TIFFTAG_SMINSAMPLEVALUE,
                "1",
                refusedWith<Tiff::badSampleFormatBitsPerSampleCombination>({3, 16})}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(Blocks, RefusedPlainValues,
                         testing::ValuesIn(std::vector<Refused>{
                             Refused{"IccProfileOfDoubles",
                                     {},
                                     TIFFTAG_ICCPROFILE,
                                     row({1, 2}),
                                     refusedWith<Tiff::badUninterpretedTagType>({"ICC Profile"})},
                             Refused{"IptcOfText",
                                     {},
                                     TIFFTAG_RICHTIFFIPTC,
                                     "abc",
                                     refusedWith<Tiff::badUninterpretedTagType>({"RichTIFFIPTC"})},
                             Refused{"PhotoshopOfInt8",
                                     {},
                                     TIFFTAG_PHOTOSHOP,
                                     zeros(vxINT8, {1, 7}),
                                     refusedWith<Tiff::badUninterpretedTagType>({"Photoshop"})},
                             Refused{"PhotoshopOf6",
                                     {},
                                     TIFFTAG_PHOTOSHOP,
                                     zeros(vxUINT8, {1, 6}),
                                     refusedWith<Tiff::lengthTooShort>({"Photoshop", 7})}}),
                         nameOf<Refused>);

// --- Values that need more than a row

class Values : public testing::Test {
 protected:
  Input create(const TagList& setup) {
    file_ = std::make_unique<OpenedFile>(folder_ / "new.tif", "w");
    setFields(*file_, setup);
    return *file_;
  }
  TemporaryFolder folder_;
  std::unique_ptr<OpenedFile> file_;
};

TEST_F(Values, InkNamesAreStoredWithANulEach) {
  const Input file = create(kTwoInks);
  call("setField", file, TIFFTAG_INKNAMES, cellOfTexts({"cyan", "magenta"}));
  const char* names = nullptr;
  ASSERT_EQ(TIFFGetField(file_->handle(), TIFFTAG_INKNAMES, &names), 1);
  EXPECT_EQ(std::string(names, 13), std::string("cyan\0magenta\0", 13));
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_INKNAMES)),
            aCell({aText("cyan"), aText("magenta")}));
}

TEST_F(Values, EmptyInkNamesCount) {
  const Input file = create(kTwoInks);
  call("setField", file, TIFFTAG_INKNAMES, cellOfTexts({"", "m"}));
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_INKNAMES)), aCell({aText(""), aText("m")}));
}

TEST_F(Values, RangeOfAnUnknownFormatIsStoredAsZero) {
  const Input file = create(gray());
  ASSERT_EQ(TIFFSetField(file_->handle(), TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_VOID), 1);
  call("setField", file, TIFFTAG_SMAXSAMPLEVALUE, "7");
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_SMAXSAMPLEVALUE), 0);
}

TEST_F(Values, RangeOfAnOddDepthIsRefused) {
  const Input file = create({{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_SAMPLEFORMAT, 1}});
  ASSERT_EQ(TIFFSetField(file_->handle(), TIFFTAG_BITSPERSAMPLE, 12), 1);
  ASSERT_EQ(TIFFSetField(file_->handle(), TIFFTAG_SAMPLEFORMAT, 2), 1);
  expectError<Tiff::badSampleFormatBitsPerSampleCombination>(
      {2, 12}, [&] { call("setField", file, TIFFTAG_SMINSAMPLEVALUE, 1); });
}

// libtiff keeps the count of an array that it finds no memory for, and takes it for set as soon as
// another tag of its list is.
class ArraysWithoutMemory : public testing::Test {
 protected:
  ArraysWithoutMemory() {
    runtime::setMemoryLimit(kArray / 2);  // of libtiff's the limit is that of the open
    file_ = std::make_unique<OpenedFile>(folder_ / "new.tif", "w");
    runtime::setMemoryLimit(0);
    setFields(*file_, {{TIFFTAG_STONITS, 1}});
  }

  static constexpr std::uint32_t kArray = 2 << 20;
  TemporaryFolder folder_;
  std::unique_ptr<OpenedFile> file_;
};

TEST_F(ArraysWithoutMemory, AreNotSetAfterwards) {
  expectRefused<Tiff::unableToWriteTag>(*file_, TIFFTAG_ICCPROFILE, zeros(vxUINT8, {1, kArray}),
                                        {"ICC Profile"});
  expectError<Tiff::tagRetrievalFailed>({"ICC Profile"},
                                        [&] { call("getField", *file_, TIFFTAG_ICCPROFILE); });
}

TEST_F(ArraysWithoutMemory, ThatOtherCodeLeftBehindAreReadAsEmpty) {
  const std::vector<std::uint8_t> profile(kArray);
  ASSERT_EQ(TIFFSetField(file_->handle(), TIFFTAG_ICCPROFILE, kArray, profile.data()), 0);
  const vxArrayPtr read = call("getField", *file_, TIFFTAG_ICCPROFILE);
  EXPECT_EQ(vxGetNumberOfElements(read.get()), 0U);
}

}  // namespace
}  // namespace tb::test

// setField on ink names, sample ranges and byte blocks: what each accepts, what it refuses, and in
// which order it checks.
#include <gtest/gtest.h>

#include <cmath>

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
          {{262, format == 2 ? 1 : 2}, {258, bits}, {339, format}},
          340,
          value,
          fetchesOne<double>(340),
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

INSTANTIATE_TEST_SUITE_P(Blocks, AcceptedPlainValues,
                         testing::ValuesIn(std::vector<Accepted>{
                             Accepted{"IptcOf1",
                                      {},
                                      33723,
                                      bytes({200}),
                                      fetchesCounted<std::uint32_t, std::uint8_t>(33723),
                                      {200},
                                      aRowOf(vxUINT8, {200})},
                             Accepted{"PhotoshopOf7",
                                      {},
                                      34377,
                                      bytes({1, 2, 3, 4, 5, 6, 7}),
                                      fetchesCounted<std::uint32_t, std::uint8_t>(34377),
                                      {1, 2, 3, 4, 5, 6, 7},
                                      aRowOf(vxUINT8, {1, 2, 3, 4, 5, 6, 7})},
                             Accepted{"IccProfileInStorageOrder",
                                      {},
                                      34675,
                                      arrayOf<std::uint8_t>({2, 2}, {1, 2, 3, 4}),
                                      fetchesCounted<std::uint32_t, std::uint8_t>(34675),
                                      {1, 2, 3, 4},
                                      aRowOf(vxUINT8, {1, 2, 3, 4})}}),
                         nameOf<Accepted>);

class RefusedPlainValues : public testing::TestWithParam<Refused> {};
TEST_P(RefusedPlainValues, RaiseAndLeaveTheDirectoryAsItWas) { expectRefused(GetParam()); }

const Expectation kNotNames = refusedWith<Tiff::notCellString>({"InkNames"});
const TagList kTwoInks = {{262, 5}, {258, 8}, {277, 2}, {334, 2}};

INSTANTIATE_TEST_SUITE_P(
    InkNames, RefusedPlainValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfText", kTwoInks, 333, "cyan", kNotNames},
        Refused{"TwoOfFour", separated(), 333, cellOfTexts({"cyan", "magenta"}),
                refusedWith<Tiff::badNumberOfInkNames>({4})},
        Refused{"OfUnsetCells", kTwoInks, 333, zeros(vxCELL, {1, 2}), kNotNames},
        Refused{"OfACellOfNumbers",
                {{262, 5}, {258, 8}, {277, 1}, {334, 1}},
                333,
                [] {
                  vxArrayPtr cell = zeros(vxCELL, {1, 1});
                  vxSetCell(cell.get(), 0, row({1}).release());
                  return cell;
                }(),
                kNotNames},
        Refused{"OfNoInks",
                {{262, 5}, {258, 8}, {277, 1}, {338, 0}, {334, 0}},
                333,
                zeros(vxCELL, {1, 0}),
                refusedWith<Tiff::unableToWriteTag>({"InkNames"})}}),
    nameOf<Refused>);

const TagList kSigned8 = {{262, 1}, {258, 8}, {339, 2}};
const TagList kUnsigned8 = {{262, 1}, {258, 8}, {339, 1}};
const Expectation kOutOfBounds = refusedWith<validate::argumentOutOfBounds>();

INSTANTIATE_TEST_SUITE_P(
    SampleRanges, RefusedPlainValues,
    testing::ValuesIn(std::vector<Refused>{
        Refused{"OfTwo",
                {},
                340,
                row({1, 2}),
                refusedWith<Tiff::tagValueNotDoublePrecisionScalar>({"SMinSampleValue"})},
        Refused{"OfNone",
                {},
                341,
                row({}),
                refusedWith<Tiff::tagValueNotDoublePrecisionScalar>({"SMaxSampleValue"})},
        Refused{"WithoutFormat", gray(), 340, 1, needs("SampleFormat", "SMinSampleValue")},
        Refused{"WithoutDepth",
                {{262, 1}, {339, 1}},
                341,
                1,
                needs("BitsPerSample", "SMaxSampleValue")},
        Refused{"OneHalfOfOneBit",
                {{262, 1}, {258, 1}, {339, 1}},
                340,
                0.5,
                refusedWith<Tiff::badSMinMaxValueForBiLevelImage>({"SMinSampleValue"})},
        Refused{"NanOfOneBit",
                {{262, 1}, {258, 1}, {339, 1}},
                341,
                NAN,
                refusedWith<Tiff::badSMinMaxValueForBiLevelImage>({"SMaxSampleValue"})},
        Refused{"MinusFiveOfUnsigned", kUnsigned8, 340, -5, kOutOfBounds},
        Refused{"Of256", kUnsigned8, 341, 256, kOutOfBounds},
        Refused{"MinusOneTwoNineOfSigned", kSigned8, 340, -129, kOutOfBounds},
        Refused{"OfInfinityInSingle", {{262, 1}, {258, 32}, {339, 3}}, 340, HUGE_VAL, kOutOfBounds},
        Refused{"OfAnotherClass", kUnsigned8, 340, scalar<std::uint8_t>(1),
                notArray("SMinSampleValue")},
        Refused{"SixtyFourBitIntegers",
                {{262, 1}, {258, 64}, {339, 1}},
                340,
                1,
                refusedWith<Tiff::badSampleFormatBitsPerSampleCombination>({1, 64})},
        Refused{"SixteenBitFloats",
                {{262, 1}, {258, 16}, {339, 3}},
                340,
                "1",
                refusedWith<Tiff::badSampleFormatBitsPerSampleCombination>({3, 16})}}),
    nameOf<Refused>);

INSTANTIATE_TEST_SUITE_P(Blocks, RefusedPlainValues,
                         testing::ValuesIn(std::vector<Refused>{
                             Refused{"IccProfileOfDoubles",
                                     {},
                                     34675,
                                     row({1, 2}),
                                     refusedWith<Tiff::badUninterpretedTagType>({"ICC Profile"})},
                             Refused{"IptcOfText",
                                     {},
                                     33723,
                                     "abc",
                                     refusedWith<Tiff::badUninterpretedTagType>({"RichTIFFIPTC"})},
                             Refused{"PhotoshopOfInt8",
                                     {},
                                     34377,
                                     zeros(vxINT8, {1, 7}),
                                     refusedWith<Tiff::badUninterpretedTagType>({"Photoshop"})},
                             Refused{"PhotoshopOf6",
                                     {},
                                     34377,
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
  call("setField", file, 333, cellOfTexts({"cyan", "magenta"}));
  const char* names = nullptr;
  ASSERT_EQ(TIFFGetField(file_->handle(), TIFFTAG_INKNAMES, &names), 1);
  EXPECT_EQ(std::string(names, 13), std::string("cyan\0magenta\0", 13));
  EXPECT_EQ(valueOf(call("getField", file, 333)), aCell({aText("cyan"), aText("magenta")}));
}

TEST_F(Values, EmptyInkNamesCount) {
  const Input file = create(kTwoInks);
  call("setField", file, 333, cellOfTexts({"", "m"}));
  EXPECT_EQ(valueOf(call("getField", file, 333)), aCell({aText(""), aText("m")}));
}

TEST_F(Values, RangeOfAnUnknownFormatIsStoredAsZero) {
  const Input file = create(gray());
  ASSERT_EQ(TIFFSetField(file_->handle(), TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_VOID), 1);
  call("setField", file, 341, "7");
  EXPECT_EQ(numberFrom("getField", file, 341), 0);
}

TEST_F(Values, RangeOfAnOddDepthIsRefused) {
  const Input file = create({{262, 1}, {339, 1}});
  ASSERT_EQ(TIFFSetField(file_->handle(), TIFFTAG_BITSPERSAMPLE, 12), 1);
  ASSERT_EQ(TIFFSetField(file_->handle(), TIFFTAG_SAMPLEFORMAT, 2), 1);
  expectError<Tiff::badSampleFormatBitsPerSampleCombination>(
      {2, 12}, [&] { call("setField", file, 340, 1); });
}

}  // namespace
}  // namespace tb::test

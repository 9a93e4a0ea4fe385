// The tags that the host adds to libtiff, and the names of libtiff's codecs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <string>
#include <vector>

#include "host/tiff_utilities.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

struct Definition {
  std::uint32_t tag;
  const char* name;
  TIFFDataType type;
  bool passCount;
};
void PrintTo(const Definition& definition, std::ostream* out) { *out << definition.name; }

int extended = 0;
TIFFExtendProc below = nullptr;

void countExtended(TIFF*) { ++extended; }
void countAndHandOn(TIFF* tif) {
  ++extended;
  if (below != nullptr) below(tif);
}

class CustomTags : public testing::Test {
 protected:
  void SetUp() override {
    extended = 0;
    below = nullptr;
  }
  ~CustomTags() override {
    unregisterCustomGeoTags();
    TIFFSetTagExtender(nullptr);
  }

  TiffHandle created() { return openTiff(folder_ / "new.tif", "w"); }
  bool knowsTags() {
    return TIFFFindField(created().get(), tiffutils::kModelPixelScaleTag, TIFF_ANY) != nullptr;
  }

  TemporaryFolder folder_;
};

class CustomTag : public CustomTags, public testing::WithParamInterface<Definition> {};

TEST_P(CustomTag, IsDefinedForEveryFile) {
  const auto& [tag, name, type, passCount] = GetParam();
  registerCustomGeoTags();
  const TiffHandle tif = created();
  const TIFFField* field = TIFFFindField(tif.get(), tag, TIFF_ANY);
  ASSERT_NE(field, nullptr);
  EXPECT_STREQ(TIFFFieldName(field), name);
  EXPECT_EQ(TIFFFieldDataType(field), type);
  EXPECT_EQ(TIFFFieldReadCount(field), TIFF_VARIABLE);
  EXPECT_EQ(TIFFFieldWriteCount(field), TIFF_VARIABLE);
  EXPECT_EQ(TIFFFieldPassCount(field) != 0, passCount);
}
INSTANTIATE_TEST_SUITE_P(Tags, CustomTag,
                         testing::Values(Definition{33550, "ModelPixelScaleTag", TIFF_DOUBLE, true},
                                         Definition{33922, "ModelTiepointTag", TIFF_DOUBLE, true},
                                         Definition{34264, "ModelTransformationTag", TIFF_DOUBLE,
                                                    true},
                                         Definition{34735, "GeoKeyDirectoryTag", TIFF_SHORT, true},
                                         Definition{34736, "GeoDoubleParamsTag", TIFF_DOUBLE, true},
                                         Definition{34737, "GeoASCIIParamsTag", TIFF_ASCII, false},
                                         Definition{50844, "RPCCoefficientTag", TIFF_DOUBLE, true}),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_F(CustomTags, AreUnknownUntilRegistered) {
  EXPECT_FALSE(knowsTags());
  registerCustomGeoTags();
  EXPECT_TRUE(knowsTags());
}

TEST_F(CustomTags, AreUnknownAgainAfterUnregisteringAndCanBeRegisteredAnew) {
  registerCustomGeoTags();
  unregisterCustomGeoTags();
  EXPECT_FALSE(knowsTags());
  registerCustomGeoTags();
  EXPECT_TRUE(knowsTags());
}

TEST_F(CustomTags, RegisteringTwiceDoesNotChainToItself) {
  registerCustomGeoTags();
  registerCustomGeoTags();
  EXPECT_TRUE(knowsTags());
  unregisterCustomGeoTags();
  EXPECT_EQ(TIFFSetTagExtender(nullptr), nullptr);
}

TEST_F(CustomTags, KeepTheExtenderThatWasThereBefore) {
  TIFFSetTagExtender(countExtended);
  registerCustomGeoTags();
  EXPECT_TRUE(knowsTags());
  EXPECT_EQ(extended, 1);
  unregisterCustomGeoTags();
  EXPECT_EQ(TIFFSetTagExtender(nullptr), countExtended);
}

TEST_F(CustomTags, LeaveALaterExtenderInPlace) {
  registerCustomGeoTags();
  below = TIFFSetTagExtender(countAndHandOn);
  EXPECT_TRUE(knowsTags());
  unregisterCustomGeoTags();
  EXPECT_FALSE(knowsTags());
  EXPECT_EQ(extended, 2);
  EXPECT_EQ(TIFFSetTagExtender(nullptr), countAndHandOn);
}

TEST_F(CustomTags, SurviveACircleOfExtenders) {
  registerCustomGeoTags();
  below = TIFFSetTagExtender(countAndHandOn);
  unregisterCustomGeoTags();
  registerCustomGeoTags();  // now each is the other's parent
  EXPECT_TRUE(knowsTags());
}

TEST_F(CustomTags, HoldTheirValuesInAFile) {
  registerCustomGeoTags();
  std::vector<double> scale = {1, 2, 3};
  {
    const TiffHandle tif = created();
    writeImage(tif.get(), {});
    EXPECT_EQ(TIFFSetField(tif.get(), tiffutils::kModelPixelScaleTag, 3, scale.data()), 1);
    EXPECT_EQ(TIFFSetField(tif.get(), tiffutils::kGeoAsciiParamsTag, "text|"), 1);
  }
  const TiffHandle tif = openTiff(folder_ / "new.tif", "r");
  std::uint16_t count = 0;
  double* values = nullptr;
  ASSERT_EQ(TIFFGetField(tif.get(), tiffutils::kModelPixelScaleTag, &count, &values), 1);
  EXPECT_THAT(std::vector<double>(values, values + count), testing::ElementsAre(1, 2, 3));
  char* text = nullptr;
  ASSERT_EQ(TIFFGetField(tif.get(), tiffutils::kGeoAsciiParamsTag, &text), 1);
  EXPECT_STREQ(text, "text|");
}

TEST(CompressionScheme, HasANameWhenLibtiffCanDecodeIt) {
  for (const int scheme :
       {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE,
        COMPRESSION_DEFLATE, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4, COMPRESSION_CCITTRLE,
        COMPRESSION_JPEG, COMPRESSION_SGILOG})
    EXPECT_NE(getCompressionScheme(static_cast<std::uint16_t>(scheme)), "") << scheme;
  EXPECT_EQ(getCompressionScheme(COMPRESSION_LZW), "LZW");
}

TEST(CompressionScheme, HasNoNameOtherwise) {
  for (const int scheme : {0, 2000, COMPRESSION_JP2000, COMPRESSION_JBIG + 100, 65535})
    EXPECT_EQ(getCompressionScheme(static_cast<std::uint16_t>(scheme)), "") << scheme;
}

}  // namespace
}  // namespace tb::test

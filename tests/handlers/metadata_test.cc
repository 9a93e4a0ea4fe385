#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/scene.h"

namespace tb::test {
namespace {

const std::vector<std::string> kFields = {"BitsPerSample",
                                          "Compression",
                                          "ImageDepth",
                                          "ImageLength",
                                          "ImageWidth",
                                          "JPEGColorMode",
                                          "PhotometricInterpretation",
                                          "PlanarConfiguration",
                                          "RowsPerStrip",
                                          "SampleFormat",
                                          "SamplesPerPixel",
                                          "TileLength",
                                          "TileWidth",
                                          "YCbCrSubsampling",
                                          "isTiled",
                                          "numExtraSamples"};

class Metadata : public testing::Test {
 protected:
  vxArrayPtr metadataOf(const Layout& layout) {
    return call("retrieveMetadata", scene_.written({layout}));
  }
  static const vxArray* field(const vxArrayPtr& metadata, const std::string& name) {
    return vxGetField(metadata.get(), 0, name.c_str());
  }
  // A field that must be a double scalar, or a logical one for isTiled.
  static double number(const vxArrayPtr& metadata, const std::string& name) {
    const vxArray* value = field(metadata, name);
    EXPECT_EQ(vxGetClassID(value), name == "isTiled" ? vxLOGICAL : vxDOUBLE) << name;
    EXPECT_EQ(vxGetNumberOfElements(value), 1U) << name;
    return vxGetScalar(value);
  }

  Scene scene_;
};

std::vector<std::string> fieldNames(const vxArrayPtr& structure) {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < vxGetNumberOfFields(structure.get()); ++i)
    names.emplace_back(vxGetFieldNameByNumber(structure.get(), i));
  return names;
}

struct Expected {
  const char* field;
  double value;
};

TEST_F(Metadata, IsAScalarStructWithSixteenFieldsInTheirOrder) {
  const vxArrayPtr metadata = metadataOf(Layout{});
  EXPECT_EQ(vxGetClassID(metadata.get()), vxSTRUCT);
  EXPECT_EQ(dimensionsOf(metadata), (Dimensions{1, 1}));
  EXPECT_EQ(fieldNames(metadata), kFields);
  EXPECT_TRUE(std::is_sorted(kFields.begin(), kFields.end()));
}

TEST_F(Metadata, OfAStrippedImage) {
  const std::uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
  const vxArrayPtr metadata =
      metadataOf({.width = 20,
                  .length = 100,
                  .bits = 16,
                  .samples = 4,
                  .photometric = PHOTOMETRIC_RGB,
                  .compression = COMPRESSION_LZW,
                  .rowsPerStrip = 30,
                  .more = [&](TIFF* tif) { TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &alpha); }});
  for (const auto& [name, value] : std::vector<Expected>{{"BitsPerSample", 16},
                                                         {"Compression", 5},
                                                         {"ImageDepth", 1},
                                                         {"ImageLength", 100},
                                                         {"ImageWidth", 20},
                                                         {"JPEGColorMode", 0},
                                                         {"PhotometricInterpretation", 2},
                                                         {"PlanarConfiguration", 1},
                                                         {"RowsPerStrip", 30},
                                                         {"SampleFormat", 1},
                                                         {"SamplesPerPixel", 4},
                                                         {"TileLength", 0},
                                                         {"TileWidth", 0},
                                                         {"isTiled", 0},
                                                         {"numExtraSamples", 1}})
    EXPECT_EQ(number(metadata, name), value) << name;
}

TEST_F(Metadata, OfATiledImage) {
  const vxArrayPtr metadata =
      metadataOf({.width = 20,
                  .length = 100,
                  .samples = 2,
                  .format = SAMPLEFORMAT_INT,
                  .planar = PLANARCONFIG_SEPARATE,
                  .tileWidth = 32,
                  .tileLength = 48,
                  .more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_IMAGEDEPTH, 3); }});
  for (const auto& [name, value] : std::vector<Expected>{{"ImageDepth", 3},
                                                         {"PlanarConfiguration", 2},
                                                         {"RowsPerStrip", 0},
                                                         {"SampleFormat", 2},
                                                         {"SamplesPerPixel", 2},
                                                         {"TileLength", 48},
                                                         {"TileWidth", 32},
                                                         {"isTiled", 1},
                                                         {"numExtraSamples", 0}})
    EXPECT_EQ(number(metadata, name), value) << name;
}

TEST_F(Metadata, SubsamplingIsAPairForYCbCrAndEmptyOtherwise) {
  const vxArrayPtr ycbcr =
      metadataOf({.samples = 3, .photometric = PHOTOMETRIC_YCBCR, .horizontal = 2, .vertical = 1});
  const vxArray* pair = field(ycbcr, "YCbCrSubsampling");
  ASSERT_EQ(vxGetClassID(pair), vxDOUBLE);
  ASSERT_EQ(vxGetNumberOfElements(pair), 2U);
  EXPECT_EQ(vxGetDimensions(pair)[0], 1U);
  EXPECT_EQ(static_cast<const double*>(vxGetData(pair))[0], 2);
  EXPECT_EQ(static_cast<const double*>(vxGetData(pair))[1], 1);

  const vxArrayPtr rgb = metadataOf({.samples = 3, .photometric = PHOTOMETRIC_RGB});
  const vxArray* empty = field(rgb, "YCbCrSubsampling");
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(vxGetClassID(empty), vxDOUBLE);
  EXPECT_EQ(vxGetDimensions(empty)[0], 0U);
  EXPECT_EQ(vxGetDimensions(empty)[1], 0U);
}

TEST_F(Metadata, FieldsAreTheSameForEveryImage) {
  for (const Layout& layout : std::vector<Layout>{
           {.bits = 1},
           {.samples = 3, .photometric = PHOTOMETRIC_YCBCR, .compression = COMPRESSION_JPEG},
           {.bits = 64, .format = SAMPLEFORMAT_IEEEFP, .tileWidth = 16, .tileLength = 16}})
    EXPECT_EQ(fieldNames(metadataOf(layout)), kFields);
}

TEST_F(Metadata, ColorModeIsThatOfTheCodec) {
  const OpenedFile& file = scene_.written(
      {{.samples = 3, .photometric = PHOTOMETRIC_YCBCR, .compression = COMPRESSION_JPEG}});
  EXPECT_EQ(number(call("retrieveMetadata", file), "JPEGColorMode"), 0);
  call("setField", file, TIFFTAG_JPEGCOLORMODE, 1);
  EXPECT_EQ(number(call("retrieveMetadata", file), "JPEGColorMode"), 1);
}

TEST_F(Metadata, WidthsPastTwoToThe31AreUnsigned) {
  const OpenedFile& file = scene_.fresh({{TIFFTAG_PHOTOMETRIC, 1},
                                         {TIFFTAG_IMAGEWIDTH, 4294967295.0},
                                         {TIFFTAG_IMAGELENGTH, 4000000000.0}});
  const vxArrayPtr metadata = call("retrieveMetadata", file);
  EXPECT_EQ(number(metadata, "ImageWidth"), 4294967295.0);
  EXPECT_EQ(number(metadata, "RowsPerStrip"), 4000000000.0);
}

TEST_F(Metadata, MissingTagsAreNamed) {
  expectError<Tiff::tagRetrievalFailed>({"ImageLength"},
                                        [&] { call("retrieveMetadata", scene_.fresh()); });
}

}  // namespace
}  // namespace tb::test

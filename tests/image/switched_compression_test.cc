// Another compression is chosen for a directory: nothing of the old codec stays in the file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/scene.h"

namespace tb::test {
namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::Not;

constexpr std::uint32_t kCodecAndMapTags[] = {TIFFTAG_COLORMAP,      TIFFTAG_SMINSAMPLEVALUE,
                                              TIFFTAG_PREDICTOR,     TIFFTAG_JPEGTABLES,
                                              TIFFTAG_GROUP3OPTIONS, TIFFTAG_BADFAXLINES};

std::vector<std::uint32_t> tagsIn(const std::filesystem::path& path) {
  std::vector<std::uint32_t> tags;
  const TiffHandle tif = openTiff(path, "r");
  if (tif == nullptr) return tags;
  for (const std::uint32_t tag : kCodecAndMapTags) {
    double first[2] = {};
    void* second = nullptr;
    void* third = nullptr;
    if (TIFFGetField(tif.get(), tag, first, &second, &third)) tags.push_back(tag);
  }
  return tags;
}

struct Switch {
  const char* name;
  std::vector<Tag> tags;
  std::vector<std::uint32_t> remaining;
};

class SwitchedCompression : public testing::TestWithParam<Switch> {};

// Codecs share the marks of which of their tags are set.
TEST_P(SwitchedCompression, LeavesNoTagOfTheOldCodecInTheFile) {
  const auto& [name, tags, remaining] = GetParam();
  const TemporaryFolder folder;
  const auto path = folder / "switched.tif";
  {
    const OpenedFile file(path, "w");
    setFields(file, {{TIFFTAG_PHOTOMETRIC, 1},
                     {TIFFTAG_IMAGEWIDTH, 32},
                     {TIFFTAG_IMAGELENGTH, 32},
                     {TIFFTAG_BITSPERSAMPLE, 1},
                     {TIFFTAG_SAMPLESPERPIXEL, 1},
                     {TIFFTAG_ROWSPERSTRIP, 32}});
    setFields(file, tags);
    const double bits = numberFrom("getField", file, TIFFTAG_BITSPERSAMPLE);
    call("writeEncodedStrip", file, 0, zeros(bits == 1 ? vxLOGICAL : vxUINT8, {32, 32}));
  }
  ASSERT_NE(openTiff(path, "r"), nullptr);
  EXPECT_EQ(tagsIn(path), remaining);
  const OpenedFile file(path, "r");
  EXPECT_EQ(dimensionsOf(call("readEncodedStrip", file, 0)), (Dimensions{32, 32}));
}

const Tag k8Bits{TIFFTAG_BITSPERSAMPLE, 8};
const Tag kNone{TIFFTAG_COMPRESSION, COMPRESSION_NONE};
const Tag kFax3{TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3};
const Tag kLzw{TIFFTAG_COMPRESSION, COMPRESSION_LZW};
const Tag kJpeg{TIFFTAG_COMPRESSION, COMPRESSION_JPEG};
const Tag kPackBits{TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS};
const Tag kPredictor{TIFFTAG_PREDICTOR, 2};
const Tag kTwoDimensions{TIFFTAG_GROUP3OPTIONS, GROUP3OPT_2DENCODING};

INSTANTIATE_TEST_SUITE_P(
    Codecs, SwitchedCompression,
    testing::Values(
        Switch{"JpegThenLzwWithPredictor", {k8Bits, kJpeg, kLzw, kPredictor}, {TIFFTAG_PREDICTOR}},
        Switch{"LzwWithPredictorThenNone", {k8Bits, kLzw, kPredictor, kNone}, {}},
        Switch{"LzwWithPredictorThenPackBits", {k8Bits, kLzw, kPredictor, kPackBits}, {}},
        Switch{"LzwWithPredictorThenJpeg", {k8Bits, kLzw, kPredictor, kJpeg}, {TIFFTAG_JPEGTABLES}},
        Switch{"FaxThenLzwWithPredictor",
               {kFax3, kTwoDimensions, kLzw, k8Bits, kPredictor},
               {TIFFTAG_PREDICTOR}},
        Switch{"FaxThenNone", {kFax3, kTwoDimensions, kNone}, {}}),
    [](const auto& test) { return test.param.name; });

struct Recompressed {
  const char* name;
  int compression;
  const char* end;
};

class RecompressedJpeg : public testing::TestWithParam<Recompressed> {};

TEST_P(RecompressedJpeg, HasNoTablesOfTheOldCodec) {
  Scene scene;
  const auto path = scene.folder() / "jpeg.tif";
  writeTiff(path, {{.width = 32, .length = 32, .compression = COMPRESSION_JPEG}});
  {
    const OpenedFile file(path, "r+");
    call("setField", file, TIFFTAG_COMPRESSION, GetParam().compression);
    if (std::string(GetParam().end) != "close") call(GetParam().end, file);
  }
  ASSERT_NE(openTiff(path, "r"), nullptr);
  EXPECT_THAT(tagsIn(path), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Compressions, RecompressedJpeg,
                         testing::Values(Recompressed{"LzwAtClose", 5, "close"},
                                         Recompressed{"DeflateAtClose", 8, "close"},
                                         Recompressed{"NoneRewritten", 1, "rewriteDirectory"},
                                         Recompressed{"PackBitsRewritten", 32773,
                                                      "rewriteDirectory"}),
                         [](const auto& test) { return test.param.name; });

// Code that shares the handle knows nothing of the marks.
TEST(ForeignCodecTags, OfAHandleThatOtherCodeChangedAreNotWritten) {
  Scene scene;
  const auto path = scene.folder() / "jpeg.tif";
  writeTiff(path, {{.width = 32, .length = 32, .compression = COMPRESSION_JPEG}});
  {
    const OpenedFile file(path, "r+");
    TIFFSetField(file.handle(), TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    call("rewriteDirectory", file);
  }
  ASSERT_NE(openTiff(path, "r"), nullptr);
  EXPECT_THAT(tagsIn(path), Not(Contains(TIFFTAG_JPEGTABLES)));
}

TEST(CompressionSwitchedToSgiLog, DropsArraysThatWouldBeTooShort) {
  Scene scene;
  const OpenedFile& file = scene.fresh({{TIFFTAG_PHOTOMETRIC, 32845},
                                        {TIFFTAG_IMAGEWIDTH, 16},
                                        {TIFFTAG_IMAGELENGTH, 16},
                                        {TIFFTAG_ROWSPERSTRIP, 16},
                                        {TIFFTAG_COMPRESSION, 34676},
                                        {TIFFTAG_SGILOGDATAFMT, 0}});
  setFields(file, {{TIFFTAG_PHOTOMETRIC, 1},
                   {TIFFTAG_BITSPERSAMPLE, 8},
                   {TIFFTAG_SAMPLEFORMAT, 1},
                   {TIFFTAG_SAMPLESPERPIXEL, 1},
                   {TIFFTAG_SMINSAMPLEVALUE, 3},
                   {TIFFTAG_COLORMAP, zeros(vxDOUBLE, {256, 3})},
                   {TIFFTAG_PHOTOMETRIC, 32845}});
  // Other code has no block written, but the codec set up.
  std::vector<std::byte> block(256);
  (void)TIFFWriteEncodedStrip(file.handle(), 0, block.data(), 256);
  call("writeDirectory", file);
  EXPECT_EQ(tagsIn(TIFFFileName(file.handle())), std::vector<std::uint32_t>{});
}

}  // namespace
}  // namespace tb::test

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

using testing::IsEmpty;

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
    setFields(file, {{262, 1}, {256, 32}, {257, 32}, {258, 1}, {277, 1}, {278, 32}});
    setFields(file, tags);
    const double bits = numberFrom("getField", file, TIFFTAG_BITSPERSAMPLE);
    call("writeEncodedStrip", file, 0, zeros(bits == 1 ? vxLOGICAL : vxUINT8, {32, 32}));
  }
  ASSERT_NE(openTiff(path, "r"), nullptr);
  EXPECT_EQ(tagsIn(path), remaining);
  const OpenedFile file(path, "r");
  EXPECT_EQ(dimensionsOf(call("readEncodedStrip", file, 0)), (Dimensions{32, 32}));
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, SwitchedCompression,
    testing::Values(
        Switch{"JpegThenLzwWithPredictor", {{258, 8}, {259, 7}, {259, 5}, {317, 2}}, {317}},
        Switch{"LzwWithPredictorThenNone", {{258, 8}, {259, 5}, {317, 2}, {259, 1}}, {}},
        Switch{"LzwWithPredictorThenPackBits", {{258, 8}, {259, 5}, {317, 2}, {259, 32773}}, {}},
        Switch{"LzwWithPredictorThenJpeg", {{258, 8}, {259, 5}, {317, 2}, {259, 7}}, {347}},
        Switch{
            "FaxThenLzwWithPredictor", {{259, 3}, {292, 1}, {259, 5}, {258, 8}, {317, 2}}, {317}},
        Switch{"FaxThenNone", {{259, 3}, {292, 1}, {259, 1}}, {}}),
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

TEST(CompressionSwitchedToSgiLog, DropsArraysThatWouldBeTooShort) {
  Scene scene;
  const OpenedFile& file =
      scene.fresh({{262, 32845}, {256, 16}, {257, 16}, {278, 16}, {259, 34676}, {65560, 0}});
  setFields(file, {{262, 1},
                   {258, 8},
                   {339, 1},
                   {277, 1},
                   {340, 3},
                   {320, zeros(vxDOUBLE, {256, 3})},
                   {262, 32845}});
  try {
    call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
  } catch (const foundation::core::except::IMsgIDException&) {
    // The codec may refuse the block; it has been set up.
  }
  call("writeDirectory", file);
  EXPECT_EQ(tagsIn(TIFFFileName(file.handle())), std::vector<std::uint32_t>{});
}

}  // namespace
}  // namespace tb::test

// Writes that are refused: the order of the whole operation's checks, and what they leave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/file_content.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class WriteErrors : public testing::Test {
 protected:
  Scene scene_;
  const vxArrayPtr image_ = zeros(vxUINT8, {16, 16});
};

TEST_F(WriteErrors, ImagesAreCheckedBeforeLayoutLayoutBeforeNumber) {
  for (const bool tiled : {true, false}) {
    const char* operation = tiled ? "writeEncodedStrip" : "writeEncodedTile";
    const OpenedFile& file = scene_.fresh(tiled ? tileTags(1, 8, 1) : stripTags(1, 8, 1));
    expectError<Tiff::imageDatatypeNot8bit>({"double"},
                                            [&] { call(operation, file, -1, row({1})); });
    expectError<Tiff::tiledOperationOnStrippedImage>({},
                                                     [&] { call(operation, file, -1, image_); });
  }
}

TEST_F(WriteErrors, BlockNumberOutOfRangeOrTooLarge) {
  const OpenedFile& strips = scene_.fresh(also(stripTags(1, 8, 1), {{TIFFTAG_ROWSPERSTRIP, 4}}));
  const OpenedFile& tiles = scene_.fresh(tileTags(1, 8, 1));
  for (const double number : {-1.0, 4294967296.0}) {
    expectError<validate::argumentOutOfBounds>(
        {}, [&] { call("writeEncodedStrip", strips, number, image_); });
    expectError<validate::argumentOutOfBounds>(
        {}, [&] { call("writeEncodedTile", tiles, number, image_); });
  }
  for (const double number : {4.0, 5.9, 4294967295.0})
    expectError<Tiff::stripNumberTooLarge>(
        {4}, [&] { call("writeEncodedStrip", strips, number, image_); });
  expectError<Tiff::tileNumberTooLarge>({1}, [&] { call("writeEncodedTile", tiles, 1, image_); });
}

TEST_F(WriteErrors, BlockNumberIsComparedBeforeTheDataIsClipped) {
  const OpenedFile& file = scene_.fresh(stripTags(1, 8, 1));
  expectError<Tiff::stripNumberTooLarge>({1}, [&] {
    call("writeEncodedStrip", file, 1, zeros(vxUINT8, {99, 99}));
  });
  EXPECT_THAT(moduleWarnings(), IsEmpty());
}

TEST_F(WriteErrors, RefusalByLibtiffNamesTheBlockOneHigher) {
  const OpenedFile& strips = scene_.written({Layout{.rowsPerStrip = 4}});
  expectError<Tiff::stripWriteFailure>({3}, [&] { call("writeEncodedStrip", strips, 2, image_); });
  const OpenedFile& tiles =
      scene_.written({Layout{.width = 64, .tileWidth = 16, .tileLength = 16}});
  expectError<Tiff::tileWritefailure>({3}, [&] { call("writeEncodedTile", tiles, 2, image_); });
}

TEST_F(WriteErrors, MissingTagsComeBeforeTheImages) {
  const OpenedFile& file = scene_.fresh();
  for (const char* operation : {"writeEncodedStrip", "writeEncodedTile"})
    expectError<Tiff::tagRetrievalFailed>({"ImageLength"},
                                          [&] { call(operation, file, -1, structure()); });
}

TEST_F(WriteErrors, MissingExtraSamplesWarnAndTheWriteGoesOn) {
  const OpenedFile& file = scene_.fresh(stripTags(1, 8, 2));
  const vxArrayPtr written = image<std::uint8_t>(
      16, 16, 2, [](auto r, auto c, auto s) { return static_cast<std::uint8_t>(r + c + s); });
  call("writeEncodedStrip", file, 0, written);
  EXPECT_THAT(moduleWarnings(), ElementsAre(warningOf(Warning::missingExtraSamples, {})));
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), bytesOf(written));
}

TEST_F(WriteErrors, RefusedWritesLeaveTheFileAsItWas) {
  const OpenedFile& file = scene_.written({Layout{}}, "r+");
  const std::filesystem::path path = TIFFFileName(file.handle());
  const std::string before = contentOf(path);
  for (const auto& image : {row({1}), zeros(vxUINT8, {16, 16, 3}), zeros(vxINT8, {16, 16})})
    EXPECT_ANY_THROW(call("writeEncodedStrip", file, 0, image));
  EXPECT_ANY_THROW(call("writeEncodedStrip", file, 7, image_));
  EXPECT_ANY_THROW(call("writeEncodedTile", file, 0, image_));
  EXPECT_ANY_THROW(call("writeEncodedStrip", file, 0, image_, image_, image_));
  EXPECT_TRUE(contentOf(path) == before);
  call("close", file);
  EXPECT_TRUE(contentOf(path) == before);
}

}  // namespace
}  // namespace tb::test

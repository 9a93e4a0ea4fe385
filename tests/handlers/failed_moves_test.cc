// A move to a directory that cannot be loaded leaves the handle as it was, in every mode. Where a
// fault would lie inside libtiff, a libtiff built with sanitizers is the judge.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/patched_tiff.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

const Layout kTiles{.width = 40, .length = 40, .tileWidth = 32, .tileLength = 32};
const Layout kNarrowTiles{.width = 30, .length = 30, .tileWidth = 16, .tileLength = 16};

// The second directory of three has lost the offsets of its tiles.
class FailedMoves : public testing::TestWithParam<const char*> {
 protected:
  FailedMoves() {
    writeTiff(path_, {kTiles, kNarrowTiles, Layout{.width = 20}});
    renumberEntry(path_, 1, TIFFTAG_TILEOFFSETS, 60000);
  }

  static void expectFirstDirectory(const Input& file) {
    EXPECT_EQ(numberFrom("currentDirectory", file), 1);
    EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), kTiles.width);
    for (std::uint32_t tile = 0; tile < blockCount(kTiles); ++tile)
      EXPECT_TRUE(bytesOf(call("readEncodedTile", file, tile)) == hostBytes(kTiles, tile));
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "pages.tif";
};

TEST_P(FailedMoves, ToTheNextDirectoryLeaveTheHandleAsItWas) {
  const OpenedFile file(path_, GetParam());
  expectError<Tiff::unableToReadDir>({}, [&] { call("readDirectory", file); });
  expectFirstDirectory(file);
}

TEST_P(FailedMoves, ToANumberLeaveTheHandleAsItWas) {
  const OpenedFile file(path_, GetParam());
  for (const int number : {1, 99}) {
    expectError<Tiff::unableToChangeDir>({number + 1}, [&] { call("setDirectory", file, number); });
    expectFirstDirectory(file);
  }
}

TEST_P(FailedMoves, AreFollowedByOnesThatSucceed) {
  const OpenedFile file(path_, GetParam());
  expectError<Tiff::unableToChangeDir>({2}, [&] { call("setDirectory", file, 1); });
  call("setDirectory", file, 2);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), 20);
  EXPECT_EQ(numberFrom("currentDirectory", file), 3);
}

TEST_P(FailedMoves, SayOnceWhatIsWrong) {
  const OpenedFile file(path_, GetParam());
  EXPECT_THROW(call("setDirectory", file, 1), std::exception);
  call("currentDirectory", file);
  EXPECT_TRUE(libtiffMessages().empty());
}

INSTANTIATE_TEST_SUITE_P(Modes, FailedMoves, testing::Values("r", "rm", "r+"),
                         [](const auto& test) {
                           const std::string mode = test.param;
                           return mode == "r+" ? std::string("edit") : mode;
                         });

class FailedMovesOfAnEditedFile : public FailedMoves {};

TEST_F(FailedMovesOfAnEditedFile, KeepTheEdits) {
  {
    const OpenedFile file(path_, "r+");
    call("setField", file, TIFFTAG_SOFTWARE, "kept");
    EXPECT_THROW(call("readDirectory", file), std::exception);
    EXPECT_THROW(call("setDirectory", file, 1), std::exception);
    EXPECT_EQ(textOf(call("getField", file, TIFFTAG_SOFTWARE)), "kept");
    expectFirstDirectory(file);
  }
  const OpenedFile file(path_, "r");
  EXPECT_EQ(textOf(call("getField", file, TIFFTAG_SOFTWARE)), "kept");
  expectFirstDirectory(file);
}

TEST_F(FailedMovesOfAnEditedFile, KeepTheTagsOfADirectoryThatIsNotYetWritten) {
  const OpenedFile file(path_, "a");
  call("setField", file, TIFFTAG_IMAGEWIDTH, 77);
  EXPECT_THROW(call("setDirectory", file, 1), std::exception);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), 77);
}

TEST_F(FailedMovesOfAnEditedFile, KeepTheLayoutThatTilesWereStoredIn) {
  const OpenedFile file(path_, "r+");
  callFor(0, "setField", file, TIFFTAG_TILEWIDTH, 16);
  callFor(0, "setField", file, TIFFTAG_TILELENGTH, 16);
  EXPECT_THROW(call("setDirectory", file, 99), std::exception);
  expectError<Tiff::tileReadErrorRGBA>({1, 1}, [&] { call("readRGBATile", file, 0, 0); });
}

TEST_F(FailedMovesOfAnEditedFile, IntoALoopKeepTheEdits) {
  writeTiff(path_, {kTiles, Layout{.width = 20}});
  linkDirectory(path_, 1, offsetOf(path_, 0));
  const OpenedFile file(path_, "r+");
  call("setDirectory", file, 1);
  call("setField", file, TIFFTAG_SOFTWARE, "kept");
  EXPECT_THROW(call("readDirectory", file), std::exception);
  EXPECT_EQ(textOf(call("getField", file, TIFFTAG_SOFTWARE)), "kept");
}

TEST_F(FailedMovesOfAnEditedFile, WriteNothingAtTheEnd) {
  const auto before = std::filesystem::file_size(path_);
  {
    const OpenedFile file(path_, "r+");
    EXPECT_THROW(call("setDirectory", file, 1), std::exception);
  }
  EXPECT_EQ(std::filesystem::file_size(path_), before);
}

// Cut into pieces, the rows of the second page would need tables of gigabytes.
TEST_F(FailedMovesOfAnEditedFile, IntoADirectoryThatTakesTooMuchMemoryAreRefused) {
  writeTiff(path_, {Layout{}, Layout{.width = 100000, .length = 1}});
  {
    const TiffHandle tif = openTiff(path_, "r+");
    TIFFSetDirectory(tif.get(), 1);
    TIFFSetField(tif.get(), TIFFTAG_IMAGELENGTH, 1'000'000'000);
    TIFFSetField(tif.get(), TIFFTAG_ROWSPERSTRIP, 1'000'000'000);
    TIFFRewriteDirectory(tif.get());
  }
  const OpenedFile file(path_, "r+");
  expectError<Tiff::unableToChangeDir>({2}, [&] { call("setDirectory", file, 1); });
  expectError<Tiff::unableToReadDir>({}, [&] { call("readDirectory", file); });
}

// Something else has truncated the file.
TEST_F(FailedMovesOfAnEditedFile, WithoutAWayBackLeaveNoDirectoryAndTheFileAsItIs) {
  {
    const OpenedFile file(path_, "r+");
    std::filesystem::resize_file(path_, 8);
    EXPECT_THROW(call("setDirectory", file, 2), std::exception);
    expectError<Tiff::cannotWriteInReadMode>(
        {}, [&] { call("setField", file, TIFFTAG_SOFTWARE, "lost"); });
    expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  }
  EXPECT_EQ(std::filesystem::file_size(path_), 8U);
}

// Codec settings are all that can be stored in a file that is open for reading.
TEST(FailedMoveOfAFileOpenForReading, KeepsTheSettingsOfTheCodec) {
  Scene scene;
  const OpenedFile& file =
      scene.written({{.width = 32, .length = 32, .compression = COMPRESSION_ADOBE_DEFLATE}});
  call("setField", file, TIFFTAG_ZIPQUALITY, 3);
  expectError<Tiff::unableToChangeDir>({8},
                                       [&, &handle = file] { call("setDirectory", handle, 7); });
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_ZIPQUALITY), 3);
}

}  // namespace
}  // namespace tb::test

// Sub-directories, which are in no chain: what may be written of them and around them, and that
// they stay where they are.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/directory_pages.h"

namespace tb::test {
namespace {

using testing::ElementsAre;

class SubDirectoryWrites : public DirectoryWrites {
 protected:
  SubDirectoryWrites() {
    const Layout main{.width = 40, .more = [](TIFF* tif) {
                        const std::uint64_t none = 0;
                        TIFFSetField(tif, TIFFTAG_SUBIFD, 1, &none);
                      }};
    writeTiff(path_, {main, Layout{.width = 20}});
  }
  static void moveToSubDirectory(const Input& file) {
    const auto offsets = elementsOf<std::uint64_t>(call("getField", file, TIFFTAG_SUBIFD));
    call("setSubDirectory", file, scalar(offsets.at(0)));
  }
};

TEST_F(SubDirectoryWrites, AreRefusedAndTheHandleGoesOn) {
  const std::string before = contentOf(path_);
  OpenedFile file(path_, "r+");
  moveToSubDirectory(file);
  call("setField", file, TIFFTAG_ARTIST, "somebody");
  expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  EXPECT_EQ(textOf(call("getField", file, TIFFTAG_ARTIST)), "somebody");
  file.close();
  EXPECT_THAT(moduleWarnings(), ElementsAre(notWritten()));
  EXPECT_TRUE(contentOf(path_) == before);
}

TEST_F(SubDirectoryWrites, OfBlocksThatGotLongerAreMadeInPlace) {
  {
    const OpenedFile file(path_, "r+");
    moveToSubDirectory(file);
    call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 20}));
  }
  const OpenedFile file(path_, "r");
  moveToSubDirectory(file);
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), std::vector<std::byte>(320));
}

TEST_F(SubDirectoryWrites, OfBlocksGoOnToANewDirectory) {
  {
    const OpenedFile file(path_, "r+");
    moveToSubDirectory(file);
    call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 20}));
    call("writeDirectory", file);
    setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
    call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
  }
  EXPECT_THAT(widthsOf(path_), ElementsAre(40, 16));
  const OpenedFile file(path_, "r");
  moveToSubDirectory(file);
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), std::vector<std::byte>(320));
}

TEST_F(SubDirectoryWrites, OfNewTagsAreRefusedByWriteDirectoryToo) {
  const std::string before = contentOf(path_);
  OpenedFile file(path_, "r+");
  moveToSubDirectory(file);
  call("setField", file, TIFFTAG_ARTIST, "somebody");
  expectError<Tiff::unableToWriteCurrentDir>({}, [&] { call("writeDirectory", file); });
  file.close();
  EXPECT_THAT(moduleWarnings(), ElementsAre(notWritten()));
  EXPECT_TRUE(contentOf(path_) == before);
}

TEST_F(SubDirectoryWrites, OfTheirParentKeepThemWhateverIsWrittenNext) {
  {
    const OpenedFile file(path_, "r+");
    call("setField", file, TIFFTAG_ARTIST, "somebody");
    call("rewriteDirectory", file);
    setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
    call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
  }
  EXPECT_THAT(widthsOf(path_), ElementsAre(40, 16));
  const OpenedFile file(path_, "r");
  moveToSubDirectory(file);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), 20);
}

TEST_F(DirectoryWrites, OfAnotherDirectoryWaitForSubDirectoriesThatAreAwaited) {
  const OpenedFile file(path_, "a");
  setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
  call("setField", file, TIFFTAG_SUBIFD, 1);
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
  call("writeDirectory", file);
  call("setDirectory", file, 1);
  call("setField", file, TIFFTAG_ARTIST, "somebody");
  expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  EXPECT_THAT(widthsOf(path_), ElementsAre(30, 31, 32, 16));
}

TEST_F(DirectoryWrites, AtTheEndDoNotTakeThePlaceOfSubDirectoriesThatAreAwaited) {
  {
    const OpenedFile file(path_, "r+");
    setFields(file, {{TIFFTAG_IMAGEWIDTH, 64}, {TIFFTAG_TILEWIDTH, 32}, {TIFFTAG_TILELENGTH, 32}});
    call("setField", file, TIFFTAG_SUBIFD, 1);
    call("rewriteDirectory", file);
    call("setDirectory", file, 0);
    call("writeEncodedTile", file, 0, zeros(vxUINT8, {16, 32}));
  }
  EXPECT_THAT(widthsOf(path_), ElementsAre(64, 31, 32));
}

}  // namespace
}  // namespace tb::test

// Directories are written as a whole or not at all: whatever fails, every directory that was in the
// file can be read afterwards, by libtiff alone.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "core/open_files.h"
#include "gateway/cleanup.h"
#include "tests/support/directory_pages.h"
#include "tests/support/patched_tiff.h"

namespace tb::test {
namespace {

using testing::Contains;
using testing::ElementsAre;

// No file of the process can grow past the size of the given one while this lives.
class NoRoom {
 public:
  explicit NoRoom(const std::filesystem::path& path, std::uint64_t room = 0) {
    getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = std::filesystem::file_size(path) + room;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  NoRoom(const NoRoom&) = delete;
  NoRoom& operator=(const NoRoom&) = delete;
  ~NoRoom() { setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

const std::string kLongText(3000, 'x');

TEST_F(DirectoryWrites, ThatFindNoRoomAtTheEndLeaveTheFileAndWarn) {
  for (const int page : {0, 1, 2}) {
    const std::string before = contentOf(path_);
    OpenedFile file(path_, "r+");
    call("setDirectory", file, page);
    call("setField", file, TIFFTAG_IMAGEDESCRIPTION, kLongText);
    {
      const NoRoom full(path_);
      file.close();
    }
    EXPECT_THAT(moduleWarnings(), ElementsAre(notWritten()));
    expectUnchanged(before);
  }
}

TEST_F(DirectoryWrites, ThatFindTooLittleRoomLeaveTheFileAtEveryByte) {
  const std::string before = contentOf(path_);
  for (std::uint64_t room = 0; room < 400; room += 7) {
    SCOPED_TRACE(room);
    const OpenedFile file(path_, "r+");
    call("setField", file, TIFFTAG_IMAGEDESCRIPTION, kLongText);
    const NoRoom full(path_, room);
    expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
    expectUnchanged(before);
  }
}

TEST_F(DirectoryWrites, ThatFailedAreNotTriedAgainAtTheEnd) {
  const std::string before = contentOf(path_);
  OpenedFile file(path_, "r+");
  call("setField", file, TIFFTAG_IMAGEDESCRIPTION, kLongText);
  {
    const NoRoom full(path_);
    expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  }
  expectError<Tiff::cannotWriteInReadMode>(
      {}, [&] { call("setField", file, TIFFTAG_IMAGEDESCRIPTION, "again"); });
  expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  expectError<Tiff::unableToWriteCurrentDir>({}, [&] { call("writeDirectory", file); });
  expectError<Tiff::unableToChangeDir>({1}, [&] { call("setDirectory", file, 0); });
  expectError<Tiff::tagRetrievalFailed>({"ImageLength"}, [&] { call("readRGBAImage", file); });
  file.close();
  EXPECT_THAT(moduleWarnings(), ElementsAre(notWritten()));
  expectUnchanged(before);
}

// Its descriptor can only read by now.
TEST_F(DirectoryWrites, ThatTheSystemRefusesLeaveTheFile) {
  const std::string before = contentOf(path_);
  OpenedFile file(path_, "r+");
  call("setField", file, TIFFTAG_IMAGEDESCRIPTION, kLongText);
  const int reader = open(path_.c_str(), O_RDONLY | O_CLOEXEC);
  dup2(reader, TIFFFileno(file.handle()));
  close(reader);
  expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  file.close();
  EXPECT_THAT(moduleWarnings(), ElementsAre(notWritten()));
  expectUnchanged(before);
}

TEST_F(DirectoryWrites, AppendedWithoutRoomLeaveTheOthers) {
  const std::string before = contentOf(path_);
  OpenedFile file(path_, "a");
  setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
  {
    const NoRoom full(path_);
    expectError<Tiff::unableToWriteCurrentDir>({}, [&] { call("writeDirectory", file); });
  }
  file.close();
  expectUnchanged(before);
}

TEST_F(DirectoryWrites, AtCleanupWithoutRoomLeaveTheFileAndWarn) {
  const std::string before = contentOf(path_);
  OpenedFile file(path_, "r+");
  call("setField", file, TIFFTAG_IMAGEDESCRIPTION, kLongText);
  clearRecord();
  {
    const NoRoom full(path_);
    TagBridgeCleanup();
  }
  EXPECT_THAT(moduleWarnings(), Contains(notWritten()));
  expectUnchanged(before);
}

// libtiff stores a negative position but cannot write it.
TEST_F(DirectoryWrites, OfATagThatCannotBeWrittenLeaveTheOldDirectory) {
  const std::string before = contentOf(path_);
  OpenedFile file(path_, "r+");
  call("setField", file, TIFFTAG_XPOSITION, -1);
  file.close();
  EXPECT_THAT(moduleWarnings(), ElementsAre(notWritten()));
  expectUnchanged(before);
}

TEST_F(DirectoryWrites, OfAnOldJpegFileLeaveIt) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_OJPEG}});
  replaceEntry(entries, {TIFFTAG_JPEGIFOFFSET, TIFF_LONG, {kDataOffset}});
  replaceEntry(entries, {TIFFTAG_JPEGIFBYTECOUNT, TIFF_LONG, {256}});
  const auto path = folder_ / "old.tif";
  writeRawTiff(path, entries, std::vector<std::byte>(256));
  const std::string before = contentOf(path);
  OpenedFile file(path, "r+");
  call("setField", file, TIFFTAG_ARTIST, "nobody");
  file.close();
  EXPECT_THAT(moduleWarnings(),
              ElementsAre(warningOf(Warning::directoryNotWritten, {path.u16string()})));
  EXPECT_TRUE(contentOf(path) == before);
}

// libtiff would write the longer directory over the blocks and directories behind it.
TEST_F(DirectoryWrites, OfALoadedDirectoryLeaveWhatLiesBehindIt) {
  for (const int page : {0, 1, 2}) {
    SCOPED_TRACE(page);
    writeTiff(path_, kPages);
    {
      const OpenedFile file(path_, "r+");
      call("setDirectory", file, page);
      call("setField", file, TIFFTAG_IMAGEDESCRIPTION, kLongText);
      call("writeDirectory", file);
    }
    EXPECT_THAT(widthsOf(path_), ElementsAre(30, 31, 32));
    const TiffHandle tif = openTiff(path_, "rc");
    for (std::uint16_t k = 0; k < 3; ++k) {
      TIFFSetDirectory(tif.get(), k);
      EXPECT_EQ(readBlock(tif.get(), 0), blockBytes(kPages[k], 0));
    }
  }
}

// --- Places of blocks that the file does not say

// Reading byte counts that differ, libtiff takes each uncompressed tile to have all its bytes in
// the file, and would store the first over what lies behind it.
TEST_F(DirectoryWrites, OfATileWhoseByteCountIsGuessedLeaveWhatLiesBehindIt) {
  std::vector<RawEntry> entries = rawGray(96, 32);
  for (const int tag : {TIFFTAG_STRIPOFFSETS, TIFFTAG_STRIPBYTECOUNTS, TIFFTAG_ROWSPERSTRIP})
    removeEntry(entries, static_cast<std::uint16_t>(tag));
  replaceEntry(entries, {TIFFTAG_TILEWIDTH, TIFF_LONG, {32}});
  replaceEntry(entries, {TIFFTAG_TILELENGTH, TIFF_LONG, {32}});
  replaceEntry(
      entries,
      {TIFFTAG_TILEOFFSETS, TIFF_LONG, {kDataOffset, kDataOffset + 512, kDataOffset + 1012}});
  replaceEntry(entries, {TIFFTAG_TILEBYTECOUNTS, TIFF_LONG, {512, 500, 524}});
  const auto path = folder_ / "tiles.tif";
  writeRawTiff(path, entries, std::vector<std::byte>(1536, std::byte{7}));
  {
    const OpenedFile file(path, "r+");
    call("writeEncodedTile", file, 0, zeros(vxUINT8, {32, 32}));
  }
  EXPECT_EQ(contentOf(path).substr(kDataOffset + 512, 1024), std::string(1024, 7));
  EXPECT_EQ(readBlock(openTiff(path, "rc").get(), 0), std::vector<std::byte>(1024));
}

// libtiff turns the bytes of a table round twice when it has become short enough for its entry.
TEST_F(DirectoryWrites, OfATableOfPlacesThatIsTooLongAreRightInTheOtherByteOrder) {
  const Layout layout{.length = 20, .rowsPerStrip = 8};
  {
    const OpenedFile file(path_, "wb");
    setFields(file, tagsOf(layout));
    writeBlock(file, layout, 0);
    call("setField", file, TIFFTAG_IMAGELENGTH, 16);
  }
  {
    const OpenedFile file(path_, "r+");
    writeBlock(file, layout, 1);
  }
  const TiffHandle tif = openTiff(path_, "rc");
  for (const std::uint32_t strip : {0U, 1U}) {
    EXPECT_EQ(TIFFGetStrileByteCount(tif.get(), strip), 128U);
    EXPECT_EQ(readBlock(tif.get(), strip), blockBytes(layout, strip));
  }
}

// Of old-style JPEG libtiff marks the tables of places as set although they are missing, and reads
// them.
TEST_F(DirectoryWrites, OfADirectoryWithoutPlacesDoNotReadThem) {
  const auto path = folder_ / "old.tif";
  std::vector<RawEntry> entries = rawOldJpeg(16, 16);
  for (const bool hasOffsets : {true, false}) {
    if (!hasOffsets) removeEntry(entries, TIFFTAG_STRIPOFFSETS);
    writeRawTiff(path, entries, std::vector<std::byte>(1024));
    OpenedFile file(path, "r+");
    setFields(file, {{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE},
                     {TIFFTAG_IMAGEWIDTH, 20},
                     {TIFFTAG_IMAGELENGTH, 20},
                     {TIFFTAG_BITSPERSAMPLE, 1},
                     {TIFFTAG_SAMPLESPERPIXEL, 1},
                     {TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4},
                     {TIFFTAG_ROWSPERSTRIP, 16},
                     {TIFFTAG_TILEWIDTH, 32},
                     {TIFFTAG_TILELENGTH, 32}});
    file.close();
    EXPECT_EQ(openTiff(path, "r") != nullptr, hasOffsets);
  }
}

// --- Chains that libtiff would follow for ever

TEST_F(DirectoryWrites, InALoopOfDirectoriesAreRefusedAtOnce) {
  linkDirectory(path_, 2, offsetOf(path_, 0));
  const std::string before = contentOf(path_);
  {
    const OpenedFile file(path_, "a");
    setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
    expectError<Tiff::unableToWriteCurrentDir>({}, [&] { call("writeDirectory", file); });
    expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  }
  EXPECT_THAT(moduleWarnings(), ElementsAre(notWritten()));
  EXPECT_TRUE(contentOf(path_) == before);
}

TEST_F(DirectoryWrites, OfADirectoryBeforeALoopSucceed) {
  linkDirectory(path_, 2, offsetOf(path_, 2));
  const OpenedFile file(path_, "r+");
  call("setField", file, TIFFTAG_ARTIST, "somebody");
  call("rewriteDirectory", file);
  call("setDirectory", file, 0);
  EXPECT_EQ(textOf(call("getField", file, TIFFTAG_ARTIST)), "somebody");
}

// --- Modes

TEST_F(DirectoryWrites, AppendedToAFileFollowItsFormatWhateverTheModeSays) {
  for (const char* mode : {"a8", "ab", "al", "a4b8"}) {
    SCOPED_TRACE(mode);
    writeTiff(path_, kPages);
    {
      const OpenedFile file(path_, mode);
      setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
      call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
    }
    EXPECT_THAT(widthsOf(path_), ElementsAre(30, 31, 32, 16));
  }
}

// --- Handles that only look

TEST_F(DirectoryWrites, OfAFileOpenForReadingKeepAnEmptySubIfd) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_SUBIFD, TIFF_LONG, {}});
  writeRawTiff(folder_ / "empty.tif", entries, std::vector<std::byte>(16));
  const OpenedFile file(folder_ / "empty.tif", "r");
  const vxArrayPtr before = call("getField", file, TIFFTAG_SUBIFD);
  call("writeDirectory", file);
  EXPECT_EQ(dimensionsOf(call("getField", file, TIFFTAG_SUBIFD)), dimensionsOf(before));
}

TEST_F(DirectoryWrites, AreNotMadeForABlockThatCouldNotBeStored) {
  writeTiff(path_, {{.width = 32, .length = 32, .compression = COMPRESSION_JPEG}});
  renumberEntry(path_, 0, TIFFTAG_JPEGTABLES, 60000);
  const auto before = std::filesystem::file_size(path_);
  {
    const OpenedFile file(path_, "r+");
    const NoRoom full(path_);
    const vxArrayPtr noise = image<std::uint8_t>(32, 32, 1, [](auto row, auto column, auto) {
      return static_cast<std::uint8_t>((row * 7919 + column * 104729) * 2654435761U >> 13U);
    });
    expectError<Tiff::stripWriteFailure>({1}, [&] { call("writeEncodedStrip", file, 0, noise); });
  }
  EXPECT_EQ(std::filesystem::file_size(path_), before);
}

TEST(RegisteredAgain, HandleHasNoEditsOfTheOneBefore) {
  Scene scene;
  const OpenedFile& file =
      scene.written({{.width = 64, .length = 64, .tileWidth = 64, .tileLength = 64}}, "r+");
  call("setField", file, TIFFTAG_TILEWIDTH, 16);
  TIFF* tif = file.handle();
  TiffAtExitUnregister(tif);
  TiffAtExitRegister(tif);
  EXPECT_FALSE(findOpenFile(tif)->edited);
}

}  // namespace
}  // namespace tb::test

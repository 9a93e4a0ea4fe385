#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/directory_files.h"

namespace tb::test {
namespace {

TEST(Version, IsLibtiffsTextAsARow) {
  const vxArrayPtr version = call("getVersion");
  EXPECT_EQ(textOf(version), TIFFGetVersion());
  EXPECT_EQ(dimensionsOf(version), (Dimensions{1, std::string(TIFFGetVersion()).size()}));
}

TEST_F(Directories, FirstOneIsCurrentAfterOpen) {
  const OpenedFile file(write(kThreeDirectories), "r");
  EXPECT_EQ(elementsOf<double>(call("currentDirectory", file)), std::vector<double>{1});
}

TEST_F(Directories, ReadingAdvancesAndTheLastOneIsKnown) {
  const OpenedFile file(write(kThreeDirectories), "r");
  for (const std::uint32_t width : {10U, 11U, 12U}) {
    EXPECT_EQ(widthOf(file), width);
    EXPECT_EQ(numberFrom("currentDirectory", file), width - 9);
    EXPECT_EQ(elementsOf<bool>(call("lastDirectory", file)), std::vector<bool>{width == 12});
    if (width != 12) call("readDirectory", file);
  }
}

TEST_F(Directories, ReadingPastTheLastFailsAndLeavesItCurrent) {
  const OpenedFile file(write({Layout{.width = 10}}), "r+");
  const auto size = std::filesystem::file_size(folder_ / "file.tif");
  for (int attempt = 0; attempt < 2; ++attempt)
    expectError<Tiff::unableToReadDir>({}, [&] { call("readDirectory", file); });
  EXPECT_EQ(numberFrom("currentDirectory", file), 1);
  EXPECT_EQ(widthOf(file), 10U);
  EXPECT_EQ(std::filesystem::file_size(folder_ / "file.tif"), size);
}

TEST_F(Directories, FailedReadDoesNotTurnALaterRewriteIntoACopy) {
  {
    const OpenedFile file(write({Layout{.width = 10}}), "r+");
    expectError<Tiff::unableToReadDir>({}, [&] { call("readDirectory", file); });
    call("rewriteDirectory", file);
  }
  const TiffHandle tif = openTiff(folder_ / "file.tif", "r");
  EXPECT_EQ(TIFFNumberOfDirectories(tif.get()), 1U);
}

TEST_F(Directories, ChangingBackAndForthByNumberFromZero) {
  const OpenedFile file(write(kThreeDirectories), "r");
  for (const std::uint32_t number : {2U, 0U, 1U, 1U}) {
    call("setDirectory", file, number);
    EXPECT_EQ(widthOf(file), 10 + number);
    EXPECT_EQ(numberFrom("currentDirectory", file), number + 1.0);
  }
}

struct DirectoryNumber {
  const char* what;
  double number;
  std::int64_t argument;
};
void PrintTo(const DirectoryNumber& value, std::ostream* out) { *out << value.what; }
class MissingDirectory : public Directories, public testing::WithParamInterface<DirectoryNumber> {};

TEST_P(MissingDirectory, IsNamedOneHigherIn32Bits) {
  const OpenedFile file(write(kThreeDirectories), "r");
  expectError<Tiff::unableToChangeDir>({GetParam().argument},
                                       [&] { call("setDirectory", file, GetParam().number); });
}

INSTANTIATE_TEST_SUITE_P(Numbers, MissingDirectory,
                         testing::Values(DirectoryNumber{"Next", 3, 4},
                                         DirectoryNumber{"Truncated", 3.9, 4},
                                         DirectoryNumber{"Large", 65534, 65535},
                                         DirectoryNumber{"WrapsToZero", 4294967295.0, 0}),
                         [](const auto& test) { return std::string(test.param.what); });

TEST_F(Directories, NumberOutOfRangeIsNoDirectoryError) {
  const OpenedFile file(write(kThreeDirectories), "r");
  for (const double number : {-1.0, 4294967296.0})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("setDirectory", file, number); });
}

// --- The compression check

std::filesystem::path writeGoodThenOddCompression(const std::filesystem::path& path) {
  writeTiff(path, {Layout{}, Layout{}});
  // The second directory's compression becomes one that no libtiff has.
  std::uint64_t offset = 0;
  {
    const TiffHandle tif = openTiff(path, "r");
    TIFFSetDirectory(tif.get(), 1);
    offset = TIFFCurrentDirOffset(tif.get());
  }
  std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
  std::uint16_t count = 0;
  file.seekg(static_cast<std::streamoff>(offset)).read(reinterpret_cast<char*>(&count), 2);
  for (std::uint16_t entry = 0; entry < count; ++entry) {
    const auto place = static_cast<std::streamoff>(offset + 2 + std::uint64_t{12} * entry);
    std::uint16_t tag = 0;
    file.seekg(place).read(reinterpret_cast<char*>(&tag), 2);
    const std::uint16_t odd = 60000;
    if (tag == TIFFTAG_COMPRESSION)
      file.seekp(place + 8).write(reinterpret_cast<const char*>(&odd), 2);
  }
  return path;
}

TEST_F(Directories, OddCompressionIsRefusedBySetDirectoryButNotByReadDirectory) {
  const OpenedFile file(writeGoodThenOddCompression(folder_ / "odd.tif"), "r");
  EXPECT_NO_THROW(call("readDirectory", file));
  EXPECT_EQ(numberFrom("currentDirectory", file), 2);
  expectError<Tiff::unsupportedCompressionScheme>({60000}, [&] { call("setDirectory", file, 1); });
  EXPECT_EQ(numberFrom("currentDirectory", file), 2) << "the change itself was made";
}

// --- Writing directories

TEST_F(Directories, WritingOneStartsAnEmptyOne) {
  const std::filesystem::path path = folder_ / "written.tif";
  {
    const OpenedFile file(path, "w");
    for (const Layout& layout : kThreeDirectories) {
      writeImage(file.handle(), layout);
      call("writeDirectory", file);
      EXPECT_EQ(widthOf(file), 0U);
    }
    EXPECT_EQ(numberFrom("currentDirectory", file), 3);
  }
  EXPECT_EQ(TIFFNumberOfDirectories(openTiff(path, "r").get()), 3U);
}

TEST_F(Directories, RewritingChangesTheTagsAndKeepsTheOthers) {
  {
    const OpenedFile file(write(kThreeDirectories), "r+");
    TIFFSetField(file.handle(), TIFFTAG_SOFTWARE, "tests");
    call("rewriteDirectory", file);
  }
  const TiffHandle tif = openTiff(folder_ / "file.tif", "r");
  const char* software = nullptr;
  ASSERT_EQ(TIFFGetField(tif.get(), TIFFTAG_SOFTWARE, &software), 1);
  EXPECT_STREQ(software, "tests");
  EXPECT_EQ(TIFFNumberOfDirectories(tif.get()), 3U);
}

TEST_F(Directories, ReadOnlyFileRefusesRewritingAndKeepsItsDirectories) {
  const OpenedFile file(write(kThreeDirectories), "r");
  for (int attempt = 0; attempt < 2; ++attempt)
    expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", file); });
  call("setDirectory", file, 2);
  EXPECT_EQ(widthOf(file), 12U);
}

TEST_F(Directories, WritingOneOnAReadOnlyFileSucceedsSilently) {
  const OpenedFile file(write(kThreeDirectories), "r");
  const auto size = std::filesystem::file_size(folder_ / "file.tif");
  EXPECT_NO_THROW(call("writeDirectory", file));
  EXPECT_EQ(std::filesystem::file_size(folder_ / "file.tif"), size);
}

// libtiff cannot store a value that is not a number in a rational tag, and refuses the directory.
void spoilDirectory(TIFF* tif) { TIFFSetField(tif, TIFFTAG_XPOSITION, -1.0); }

TEST_F(Directories, FailureToWriteAndToRewriteHaveIdentifiersOfTheirOwn) {
  const OpenedFile fresh(folder_ / "fresh.tif", "w");
  writeImage(fresh.handle(), Layout{});
  spoilDirectory(fresh.handle());
  expectError<Tiff::unableToWriteCurrentDir>({}, [&] { call("writeDirectory", fresh); });

  const OpenedFile loaded(write(kThreeDirectories), "r+");
  spoilDirectory(loaded.handle());
  expectError<Tiff::unableToWriteDir>({}, [&] { call("rewriteDirectory", loaded); });
  TIFFUnsetField(loaded.handle(), TIFFTAG_XPOSITION);
}

TEST_F(Directories, SubIfdWithoutOffsetsDoesNotSpoilTheDirectory) {
  {
    const OpenedFile file(folder_ / "empty.tif", "w");
    writeImage(file.handle(), Layout{});
    const std::uint64_t none = 0;
    TIFFSetField(file.handle(), TIFFTAG_SUBIFD, 0, &none);
    EXPECT_NO_THROW(call("writeDirectory", file));
  }
  const OpenedFile file(folder_ / "empty.tif", "r");
  expectError<Tiff::noSubDirectories>({}, [&] { call("setSubDirectory", file, 8); });
}

}  // namespace
}  // namespace tb::test

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

// Gray images of widths 10, 11 and 12.
const std::vector<Layout> kThreeDirectories = {
    {.width = 10, .length = 100, .rowsPerStrip = 30},
    {.width = 11, .length = 100, .tileWidth = 64, .tileLength = 64},
    {.width = 12}};

class Directories : public testing::Test {
 protected:
  std::filesystem::path write(const std::vector<Layout>& layouts) const {
    writeTiff(folder_ / "file.tif", layouts);
    return folder_ / "file.tif";
  }
  static std::uint32_t widthOf(const OpenedFile& file) {
    std::uint32_t width = 0;
    TIFFGetField(file.handle(), TIFFTAG_IMAGEWIDTH, &width);
    return width;
  }

  TemporaryFolder folder_;
};

// Copies of a directory's SubIFD offsets.
std::vector<std::uint64_t> subDirectoriesOf(TIFF* tif) {
  std::uint16_t count = 0;
  const std::uint64_t* offsets = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets)) return {};
  return {offsets, offsets + count};
}

// A directory whose next `count` directories become its sub-directories.
Layout withSubDirectories(std::uint32_t width, std::uint16_t count) {
  return {.width = width, .more = [count](TIFF* tif) {
            const std::vector<std::uint64_t> reserved(count);
            TIFFSetField(tif, TIFFTAG_SUBIFD, count, reserved.data());
          }};
}

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

// --- Sub-directories

class SubDirectories : public Directories {
 protected:
  SubDirectories() {
    write(
        {withSubDirectories(10, 2), Layout{.width = 20}, Layout{.width = 21}, Layout{.width = 11}});
  }
  std::filesystem::path path_ = folder_ / "file.tif";
};

TEST_F(SubDirectories, OffsetIsTakenAsUint64Uint32OrDouble) {
  const OpenedFile file(path_, "r");
  const std::vector<std::uint64_t> offsets = subDirectoriesOf(file.handle());
  ASSERT_EQ(offsets.size(), 2U);
  const vxArrayPtr forms[] = {scalar(offsets[1]), scalar(static_cast<std::uint32_t>(offsets[1])),
                              scalar(static_cast<double>(offsets[1]) + 0.5)};
  for (const vxArrayPtr& offset : forms) {
    SCOPED_TRACE(vxGetClassName(offset.get()));
    call("setDirectory", file, 0);
    call("setSubDirectory", file, offset);
    EXPECT_EQ(widthOf(file), 21U);
  }
}

TEST_F(SubDirectories, DirectoryWithoutSubIfdHasNone) {
  const OpenedFile file(path_, "r");
  const std::uint64_t offset = subDirectoriesOf(file.handle()).at(0);
  call("setDirectory", file, 1);
  expectError<Tiff::noSubDirectories>({}, [&] { call("setSubDirectory", file, scalar(offset)); });
}

TEST_F(SubDirectories, OffsetThatIsNotListedIsRefusedThoughADirectoryIsThere) {
  const OpenedFile file(path_, "r");
  call("setDirectory", file, 1);
  const std::uint64_t second = TIFFCurrentDirOffset(file.handle());
  call("setDirectory", file, 0);
  expectError<Tiff::noSuchSubDirectory>({}, [&] { call("setSubDirectory", file, scalar(second)); });
  EXPECT_EQ(widthOf(file), 10U) << "libtiff was asked";
}

TEST_F(SubDirectories, ShortOffsetsReadAsZeroAndAreNotListed) {
  const OpenedFile file(path_, "r");
  const vxArrayPtr offsets[] = {zeros(vxUINT64, {0, 0}), row({}), zeros(vxCELL, {1, 1}),
                                structure(), scalar<std::uint8_t>(0)};
  for (const vxArrayPtr& offset : offsets) {
    SCOPED_TRACE(vxGetClassName(offset.get()));
    expectError<Tiff::noSuchSubDirectory>({}, [&] { call("setSubDirectory", file, offset); });
  }
}

TEST_F(SubDirectories, DoubleOutOfRangeIsArgumentOutOfBounds) {
  const OpenedFile file(path_, "r");
  for (const double offset : {-1.0, 18446744073709551616.0, 1e300})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("setSubDirectory", file, offset); });
  expectError<Tiff::noSuchSubDirectory>(
      {}, [&] { call("setSubDirectory", file, 18446744073709549568.0); });
  expectError<Tiff::noSuchSubDirectory>({}, [&] { call("setSubDirectory", file, std::nan("")); });
}

TEST_F(SubDirectories, OffsetIsConvertedBeforeTheTagIsLookedAt) {
  const OpenedFile file(path_, "r");
  call("setDirectory", file, 1);
  expectError<validate::argumentOutOfBounds>({}, [&] { call("setSubDirectory", file, -2); });
}

TEST_F(Directories, ListedOffsetThatIsNoDirectoryFails) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_SUBIFD, TIFF_LONG, {1000000}});
  writeRawTiff(folder_ / "lost.tif", entries, std::vector<std::byte>(16));
  const OpenedFile file(folder_ / "lost.tif", "r");
  expectError<Tiff::unableToChangeSubdir>(
      {1000000}, [&] { call("setSubDirectory", file, scalar<std::uint64_t>(1000000)); });
}

TEST_F(Directories, OffsetPastTheSignedRangeIsReportedAsItIs) {
  constexpr std::uint64_t kFar = ~std::uint64_t{0} - 15;
  const Layout layout{.more = [&](TIFF* tif) { TIFFSetField(tif, TIFFTAG_SUBIFD, 1, &kFar); }};
  writeTiff(folder_ / "far.tif", {layout}, "w8");
  const OpenedFile file(folder_ / "far.tif", "r");
  expectError<Tiff::unableToChangeSubdir>({kFar},
                                          [&] { call("setSubDirectory", file, scalar(kFar)); });
}

// --- Strips and tiles

TEST_F(Directories, TiledIsLogicalTrueAndStrippedFalse) {
  const OpenedFile file(write(kThreeDirectories), "r");
  EXPECT_EQ(elementsOf<bool>(call("isTiled", file)), std::vector<bool>{false});
  call("setDirectory", file, 1);
  EXPECT_EQ(elementsOf<bool>(call("isTiled", file)), std::vector<bool>{true});
}

TEST_F(Directories, CountsOfStripsAndTilesIncludeEveryPlane) {
  const OpenedFile file(write({{.length = 100,
                                .samples = 3,
                                .planar = PLANARCONFIG_SEPARATE,
                                .photometric = PHOTOMETRIC_RGB,
                                .rowsPerStrip = 30},
                               {.width = 100,
                                .length = 100,
                                .samples = 3,
                                .planar = PLANARCONFIG_SEPARATE,
                                .photometric = PHOTOMETRIC_RGB,
                                .tileWidth = 64,
                                .tileLength = 64}}),
                        "r");
  EXPECT_EQ(numberFrom("numberOfStrips", file), 12);
  call("setDirectory", file, 1);
  EXPECT_EQ(numberFrom("numberOfTiles", file), 12);
}

TEST_F(Directories, FreshFileHasDirectoryZeroAndOneStrip) {
  const OpenedFile file(folder_ / "fresh.tif", "w");
  EXPECT_EQ(numberFrom("currentDirectory", file), 0) << "2^32 - 1 plus one in 32 bits";
  EXPECT_EQ(numberFrom("lastDirectory", file), 1);
  EXPECT_EQ(numberFrom("numberOfStrips", file), 1);
  EXPECT_EQ(numberFrom("numberOfTiles", file), 0);
}

struct RowCase {
  double row;
  double strip;
};

TEST_F(Directories, ComputeStripCountsFromOneAndStopsAtTheLastRow) {
  const OpenedFile file(write(kThreeDirectories), "r");
  for (const auto& [row, strip] : std::vector<RowCase>{
           {0, 1}, {29, 1}, {30, 2}, {99, 4}, {100, 4}, {1000, 4}, {4294967295.0, 4}})
    EXPECT_EQ(numberFrom("computeStrip", file, row), strip) << row;
}

TEST_F(Directories, ComputeTileTakesRowThenColumn) {
  const OpenedFile file(write({{.width = 200, .length = 100, .tileWidth = 64, .tileLength = 64}}),
                        "r");
  EXPECT_EQ(numberFrom("computeTile", file, row({0, 0})), 1);
  EXPECT_EQ(numberFrom("computeTile", file, row({0, 64})), 2);
  EXPECT_EQ(numberFrom("computeTile", file, row({64, 0})), 5);
  EXPECT_EQ(numberFrom("computeTile", file, row({99.9, 199.9})), 8);
}

TEST_F(Directories, ComputeTileLimitsToTheSizeItselfWhereLibtiffJudges) {
  const Layout layout{.width = 128, .length = 128, .tileWidth = 64, .tileLength = 64};
  const OpenedFile file(write({layout}), "r");
  TIFF* tif = file.handle();
  EXPECT_EQ(numberFrom("computeTile", file, row({0, 5000})),
            TIFFComputeTile(tif, 128, 0, 0, 0) + 1.0);
  EXPECT_EQ(numberFrom("computeTile", file, row({5000, 0})),
            TIFFComputeTile(tif, 0, 128, 0, 0) + 1.0);
  EXPECT_NE(TIFFComputeTile(tif, 128, 0, 0, 0), TIFFComputeTile(tif, 127, 0, 0, 0))
      << "this layout does not tell the limits apart";
}

TEST_F(Directories, ComputeTileConvertsTheColumnAndTheRow) {
  const OpenedFile file(write({kThreeDirectories[1]}), "r");
  for (const auto& pixel : {row({0, -1}), row({-1, 0}), row({4294967296.0, 0})})
    expectError<validate::argumentOutOfBounds>({}, [&] { call("computeTile", file, pixel); });
  EXPECT_EQ(numberFrom("computeTile", file, row({70})), 2) << "a missing column is 0";
  EXPECT_EQ(numberFrom("computeTile", file, row({})), 1);
}

class Planes : public Directories {
 protected:
  std::filesystem::path writePlanes(std::uint16_t planar) const {
    return write({{.length = 100,
                   .samples = 3,
                   .planar = planar,
                   .photometric = PHOTOMETRIC_RGB,
                   .rowsPerStrip = 30},
                  {.width = 100,
                   .length = 100,
                   .samples = 3,
                   .planar = planar,
                   .photometric = PHOTOMETRIC_RGB,
                   .tileWidth = 64,
                   .tileLength = 64}});
  }
};

TEST_F(Planes, SampleArgumentChoosesThePlane) {
  const OpenedFile file(writePlanes(PLANARCONFIG_SEPARATE), "r");
  EXPECT_EQ(numberFrom("computeStrip", file, 99, 0), 4);
  EXPECT_EQ(numberFrom("computeStrip", file, 0, 2), 9);
  call("setDirectory", file, 1);
  EXPECT_EQ(numberFrom("computeTile", file, row({0, 0}), 1), 5);
}

TEST_F(Planes, SampleArgumentIsRequiredForPlanesAndRefusedOtherwise) {
  {
    const OpenedFile file(writePlanes(PLANARCONFIG_SEPARATE), "r");
    expectError<Tiff::sampleParameterRequired>({}, [&] { call("computeStrip", file, 0); });
    call("setDirectory", file, 1);
    expectError<Tiff::sampleParameterRequired>({}, [&] { call("computeTile", file, row({0, 0})); });
  }
  const OpenedFile file(writePlanes(PLANARCONFIG_CONTIG), "r");
  expectError<Tiff::sampleParameterNotAllowedInChunkyCase>(
      {}, [&] { call("computeStrip", file, 0, 0); });
}

TEST_F(Planes, SampleIsLimitedToTheNumberOfSamplesAndLibtiffJudgesThat) {
  const OpenedFile file(writePlanes(PLANARCONFIG_SEPARATE), "r");
  EXPECT_EQ(numberFrom("computeStrip", file, 0, 7), 1) << "libtiff refuses sample 3 with strip 0";
  EXPECT_EQ(libtiffMessages().size(), 1U);
  EXPECT_EQ(numberFrom("computeStrip", file, 0, 65535), 1);
  expectError<validate::argumentOutOfBounds>({}, [&] { call("computeStrip", file, 0, 65536); });
  expectError<validate::argumentOutOfBounds>({}, [&] { call("computeStrip", file, 0, -1); });
}

TEST_F(Planes, RowIsConvertedBeforeTheSampleArgumentIsJudged) {
  const OpenedFile file(writePlanes(PLANARCONFIG_CONTIG), "r");
  expectError<validate::argumentOutOfBounds>({}, [&] { call("computeStrip", file, -1, 0); });
  expectError<validate::argumentOutOfBounds>({}, [&] {
    call("computeTile", file, row({-1, 0}), 0);
  });
}

TEST_F(Directories, ComputingNeedsACompleteDirectory) {
  const OpenedFile file(folder_ / "fresh.tif", "w");
  expectError<Tiff::tagRetrievalFailed>({"ImageLength"}, [&] { call("computeStrip", file, -1); });
  expectError<Tiff::tagRetrievalFailed>({"ImageLength"}, [&] {
    call("computeTile", file, row({-1, -1}));
  });
}

TEST_F(Directories, ComputeStripOfAnImageWithoutRowsIsTheFirst) {
  const OpenedFile file(folder_ / "fresh.tif", "w");
  TIFFSetField(file.handle(), TIFFTAG_IMAGEWIDTH, 10);
  TIFFSetField(file.handle(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(file.handle(), TIFFTAG_IMAGELENGTH, 0);
  EXPECT_EQ(numberFrom("computeStrip", file, 0), 1);
  TIFFSetField(file.handle(), TIFFTAG_ROWSPERSTRIP, 1);
  EXPECT_EQ(numberFrom("computeStrip", file, 7), 1);
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

// How many strips and tiles a directory has, and which of them a pixel lies in.
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include "tests/support/directory_files.h"

namespace tb::test {
namespace {

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

}  // namespace
}  // namespace tb::test

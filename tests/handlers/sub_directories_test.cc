// Moves to sub-directories, by the offsets that SubIFD lists.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "tests/support/directory_files.h"
#include "tests/support/raw_tiff.h"

namespace tb::test {
namespace {

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

}  // namespace
}  // namespace tb::test

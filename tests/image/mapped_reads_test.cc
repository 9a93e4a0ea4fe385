// Blocks that are taken from the map of their file. What libtiff makes of the same file is compared
// with them: a handle that other code opened has no map that the module knows of.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <filesystem>
#include <initializer_list>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "core/open_files.h"
#include "tests/support/arrays.h"
#include "tests/support/gateway_call.h"
#include "tests/support/host_value.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

// A handle of other code, mapped by libtiff itself.
class ForeignFile {
 public:
  explicit ForeignFile(const std::filesystem::path& path)
      : tif_(TIFFOpen(path.c_str(), "r")), id_(packUpTiffFileId(tif_.get())) {
    TiffAtExitRegister(tif_.get());
  }
  ~ForeignFile() { TiffAtExitUnregister(tif_.get()); }
  ForeignFile(const ForeignFile&) = delete;
  ForeignFile& operator=(const ForeignFile&) = delete;
  // NOLINTNEXTLINE(google-explicit-constructor): it is an argument of calls
  operator Input() const { return id_; }

 private:
  TiffHandle tif_;
  vxArrayPtr id_;
};

// All that comes of a read.
struct Outcome {
  std::vector<vxClassID> classes;
  std::vector<Dimensions> dimensions;
  std::vector<std::vector<std::byte>> bytes;
  std::vector<Message> said;
  std::vector<Message> errors;

  bool operator==(const Outcome&) const = default;
};
void PrintTo(const Outcome& outcome, std::ostream* out) {
  for (const Dimensions& each : outcome.dimensions) *out << testing::PrintToString(each) << ' ';
  *out << testing::PrintToString(outcome.said) << ' ' << testing::PrintToString(outcome.errors);
}

Outcome outcomeOf(const Input& file, const Layout& layout, std::uint32_t block) {
  Outcome outcome;
  try {
    const char* const operation = layout.tiled() ? "readEncodedTile" : "readEncodedStrip";
    const bool isYCbCr = layout.photometric == PHOTOMETRIC_YCBCR;
    for (const vxArrayPtr& array : callFor(isYCbCr ? 3 : 1, operation, file, block)) {
      outcome.classes.push_back(vxGetClassID(array.get()));
      outcome.dimensions.push_back(dimensionsOf(array));
      outcome.bytes.push_back(bytesOf(array));
    }
  } catch (const foundation::core::except::IMsgIDException&) {
    outcome.errors = reportedErrors();
  }
  outcome.said = warnings();
  return outcome;
}

constexpr std::uint32_t kNoBlock = ~std::uint32_t{0};

// Whether the last read left libtiff's handle alone, since the handle was opened.
bool isUntouched(TIFF* tif) {
  return (TIFFIsTiled(tif) ? TIFFCurrentTile(tif) : TIFFCurrentStrip(tif)) == kNoBlock;
}

class MappedReads : public testing::Test {
 protected:
  // Whether reading a block of a new file of this layout leaves libtiff alone.
  bool isFromTheMap(const Layout& layout, const char* access = "r", const char* mode = "w") {
    writeTiff(path_, {layout}, mode);
    const OpenedFile file(path_, access);
    EXPECT_EQ(
        bytesOf(
            callFor(1, layout.tiled() ? "readEncodedTile" : "readEncodedStrip", file, 1).front()),
        hostBytes(layout, 1));
    return isUntouched(file.handle());
  }

  static constexpr bool kIsLittleEndian = std::endian::native == std::endian::little;
  static constexpr const char* kNative = kIsLittleEndian ? "wl" : "wb";
  static constexpr const char* kOther = kIsLittleEndian ? "wb" : "wl";

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "a.tif";
};

Layout strips(std::uint16_t bits) {
  return {.width = 40, .length = 50, .bits = bits, .rowsPerStrip = 20};
}
Layout tiles(std::uint16_t bits) {
  return {.width = 40, .length = 50, .bits = bits, .tileWidth = 32, .tileLength = 16};
}

TEST_F(MappedReads, TakeUncompressedBlocks) {
  for (const std::uint16_t bits : std::initializer_list<std::uint16_t>{1, 8, 16, 32}) {
    EXPECT_TRUE(isFromTheMap(strips(bits), "r", kNative)) << bits;
    EXPECT_TRUE(isFromTheMap(tiles(bits), "r", kNative)) << bits;
  }
}

TEST_F(MappedReads, LeaveOtherBlocksToLibtiff) {
  EXPECT_FALSE(isFromTheMap(strips(16), "r", kOther)) << "of the other byte order";
  EXPECT_TRUE(isFromTheMap(strips(8), "r", kOther)) << "single bytes have none";
  EXPECT_FALSE(isFromTheMap(strips(8), "rm")) << "that is not mapped";
  EXPECT_FALSE(isFromTheMap(strips(8), "r+")) << "of a file that can be written";
  Layout packed = strips(8), reversed = tiles(1);
  packed.compression = COMPRESSION_PACKBITS;
  EXPECT_FALSE(isFromTheMap(packed)) << "compressed";
  reversed.more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB); };
  EXPECT_FALSE(isFromTheMap(reversed)) << "of the other order of bits";
}

// --- Any file

class Chance {
 public:
  explicit Chance(unsigned seed) : random_(seed) {}
  std::uint32_t below(std::uint32_t end) { return static_cast<std::uint32_t>(random_() % end); }
  template <class T>
  T oneOf(std::initializer_list<T> values) {
    return values.begin()[below(static_cast<std::uint32_t>(values.size()))];
  }

 private:
  std::mt19937 random_;
};

Layout anyLayout(Chance& chance) {
  Layout layout{.width = 1 + chance.below(90), .length = 1 + chance.below(90)};
  layout.bits = chance.oneOf<std::uint16_t>({1, 1, 8, 8, 16, 32, 64});
  layout.format = layout.bits == 64 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT;
  layout.samples = chance.oneOf<std::uint16_t>({1, 1, 2, 3, 5});
  layout.planar = chance.oneOf<std::uint16_t>({PLANARCONFIG_CONTIG, PLANARCONFIG_SEPARATE});
  if (chance.below(2) == 0) {
    layout.tileWidth = 16 * (1 + chance.below(3));
    layout.tileLength = 16 * (1 + chance.below(3));
  } else {
    layout.rowsPerStrip = chance.below(40);
  }
  if (layout.bits == 8 && chance.below(4) == 0) {
    layout.photometric = PHOTOMETRIC_YCBCR;
    layout.samples = 3;
    layout.planar = PLANARCONFIG_CONTIG;
    layout.horizontal = chance.oneOf<std::uint16_t>({1, 2, 4});
    layout.vertical = std::min(layout.horizontal, chance.oneOf<std::uint16_t>({1, 2}));
  }
  return layout;
}

// Gives a block another place or length, perhaps one where the file ends before it does.
// False when libtiff cannot write such a directory, because its numbers are too large for its
// types.
bool damage(const std::filesystem::path& path, const Layout& layout, Chance& chance) {
  const std::uint64_t end = std::filesystem::file_size(path) + 400;  // and the new directory
  const TiffHandle tif = openTiff(path, "r+");
  std::uint64_t *offsets = nullptr, *counts = nullptr;
  TIFFGetField(tif.get(), layout.tiled() ? TIFFTAG_TILEOFFSETS : TIFFTAG_STRIPOFFSETS, &offsets);
  TIFFGetField(tif.get(), layout.tiled() ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS,
               &counts);
  for (std::uint32_t turn = 0; turn < 3; ++turn) {
    const std::uint32_t block = chance.below(blockCount(layout));
    std::uint64_t& count = counts[block];
    count = chance.oneOf<std::uint64_t>({count, count, count - 1, count + 1, count / 2, 0, 1,
                                         count * 10, count * 11 + 5000, 2000000, end, 0x7fffffff});
    offsets[block] =
        chance.oneOf<std::uint64_t>({offsets[block], offsets[block], 0, offsets[block] + 1,
                                     end - 1000, end - 100, end, 0x7fffffff, 0xffffffff});
  }
  TIFFSetField(tif.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  return TIFFRewriteDirectory(tif.get()) == 1;
}

// Puts a block behind everything else and cuts the file within it.
void truncate(const std::filesystem::path& path, const Layout& layout, Chance& chance) {
  const std::uint64_t end = std::filesystem::file_size(path) + 5000;
  const std::uint32_t block = chance.below(blockCount(layout));
  std::uint64_t size = 0;
  {
    const TiffHandle tif = openTiff(path, "r+");
    std::uint64_t *offsets = nullptr, *counts = nullptr;
    TIFFGetField(tif.get(), layout.tiled() ? TIFFTAG_TILEOFFSETS : TIFFTAG_STRIPOFFSETS, &offsets);
    TIFFGetField(tif.get(), layout.tiled() ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS,
                 &counts);
    offsets[block] = end;
    size = counts[block];
    TIFFSetField(tif.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    TIFFRewriteDirectory(tif.get());
  }
  const std::uint64_t kept = chance.oneOf<std::uint64_t>({0, 1, size / 2, size - 1, size});
  ASSERT_LE(std::filesystem::file_size(path), end);
  std::filesystem::resize_file(path, end + kept);
}

TEST_F(MappedReads, AreWhatLibtiffMakesOfAnyFile) {
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Chance chance(seed);
  int untouched = 0;
  for (int turn = 0; turn < 300; ++turn) {
    const Layout layout = anyLayout(chance);
    const char* const mode = chance.oneOf({kNative, kNative, kOther});
    do {
      writeTiff(path_, {layout}, mode);
    } while (turn % 3 == 1 && !damage(path_, layout, chance));
    if (turn % 3 == 2) truncate(path_, layout, chance);
    const ForeignFile foreign(path_);
    for (std::uint32_t block = 0; block < blockCount(layout); ++block) {
      const OpenedFile file(path_, "r");
      const Outcome mine = outcomeOf(file, layout, block);
      untouched += isUntouched(file.handle()) ? 1 : 0;
      ASSERT_EQ(mine, outcomeOf(foreign, layout, block)) << "file " << turn << ", block " << block;
    }
  }
  EXPECT_GT(untouched, 300) << "too few were taken from the map to say anything";
}

}  // namespace
}  // namespace tb::test

// RGBA reads of images whose data cannot be decoded, in part or at all, and of images that are far
// larger than their files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include "runtime/memory.h"
#include "runtime/sanitizer.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;

// What a Deflate decoder refuses at its first byte.
const std::vector<std::byte> kNonsense(4000, std::byte{0xFF});

struct Kind {
  const char* name;
  Layout layout;
};
void PrintTo(const Kind& value, std::ostream* out) { *out << value.name; }

const Kind kKinds[] = {
    {"Strips", {.width = 64, .length = 64, .rowsPerStrip = 32}},
    {"Tiles", {.width = 64, .length = 64, .tileWidth = 32, .tileLength = 32}},
    {"Planes",
     {.width = 64,
      .length = 64,
      .samples = 3,
      .planar = PLANARCONFIG_SEPARATE,
      .photometric = PHOTOMETRIC_RGB,
      .rowsPerStrip = 32}},
    {"PlanesOfTiles",
     {.width = 64,
      .length = 64,
      .samples = 3,
      .planar = PLANARCONFIG_SEPARATE,
      .photometric = PHOTOMETRIC_RGB,
      .tileWidth = 32,
      .tileLength = 32}},
};

class DamagedRgba : public testing::TestWithParam<Kind> {
 protected:
  static Layout layout() {
    Layout result = GetParam().layout;
    result.compression = COMPRESSION_ADOBE_DEFLATE;
    return result;
  }
  // All blocks from `firstBad` on are nonsense.
  const std::filesystem::path& write(std::uint32_t firstBad) {
    const TiffHandle tif = openTiff(path_, "w");
    setLayout(tif.get(), layout());
    for (std::uint32_t block = 0; block < blockCount(layout()); ++block) {
      std::vector<std::byte> bytes = block < firstBad ? blockBytes(layout(), block) : kNonsense;
      const auto size = static_cast<tmsize_t>(bytes.size());
      if (block >= firstBad && layout().tiled())
        TIFFWriteRawTile(tif.get(), block, bytes.data(), size);
      else if (block >= firstBad)
        TIFFWriteRawStrip(tif.get(), block, bytes.data(), size);
      else if (layout().tiled())
        TIFFWriteEncodedTile(tif.get(), block, bytes.data(), size);
      else
        TIFFWriteEncodedStrip(tif.get(), block, bytes.data(), size);
    }
    return path_;
  }
  // The blocks as libtiff converts each by itself, put together.
  std::vector<std::uint32_t> libtiffsImage() const {
    const TiffHandle tif = openTiff(path_, "r");
    const std::uint32_t width = layout().blockWidth();
    std::vector<std::uint32_t> image(64 * 64), block(width * 32);
    for (std::uint32_t y = 0; y < 64; y += 32) {
      for (std::uint32_t x = 0; x < 64; x += width) {
        EXPECT_EQ(layout().tiled() ? TIFFReadRGBATile(tif.get(), x, y, block.data())
                                   : TIFFReadRGBAStrip(tif.get(), y, block.data()),
                  1);
        for (std::uint32_t row = 0; row < 32; ++row)
          std::copy_n(block.begin() + row * width, width, image.begin() + (32 - y + row) * 64 + x);
      }
    }
    return image;
  }

  TemporaryFolder folder_;
  const std::filesystem::path path_ = folder_ / "image.tif";
};

TEST_P(DamagedRgba, ImageOfWhichNothingCanBeDecodedFails) {
  const OpenedFile file(write(0), "r");
  expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
  if (layout().tiled())
    expectError<Tiff::tileReadErrorRGBA>({1, 33}, [&] { call("readRGBATile", file, 40, 0); });
  else
    expectError<Tiff::stripReadErrorRGBA>({33}, [&] { call("readRGBAStrip", file, 40); });
}

TEST_P(DamagedRgba, ImageOfWhichABlockCanBeDecodedIsThatOfLibtiff) {
  const OpenedFile file(write(1), "r");
  const vxArrayPtr image = call("readRGBAImage", file);
  EXPECT_TRUE(rgbaEntriesOf(image) == libtiffsImage());
}

TEST_P(DamagedRgba, EachBadBlockIsSpokenOfOnce) {
  const OpenedFile file(write(blockCount(layout()) - 1), "r");
  call("readRGBAImage", file);
  EXPECT_EQ(libtiffMessages().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamagedRgba, testing::ValuesIn(kKinds),
                         [](const auto& test) { return std::string(test.param.name); });

// The first half of a strip.
TEST(PartOfAStrip, IsRead) {
  Scene scene;
  const Layout layout{
      .width = 500, .length = 100, .compression = COMPRESSION_ADOBE_DEFLATE, .rowsPerStrip = 100};
  const std::filesystem::path path = scene.folder() / "cut.tif";
  writeTiff(scene.folder() / "whole.tif", {layout});
  std::vector<std::byte> bytes = encodedBlock(openTiff(scene.folder() / "whole.tif", "r").get(), 0);
  std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2), bytes.end(),
            std::byte{0xFF});
  {
    const TiffHandle tif = openTiff(path, "w");
    setLayout(tif.get(), layout);
    TIFFWriteRawStrip(tif.get(), 0, bytes.data(), static_cast<tmsize_t>(bytes.size()));
  }
  const OpenedFile file(path, "r");
  const vxArrayPtr strip = call("readRGBAStrip", file, 0);
  const auto* last = static_cast<const std::uint8_t*>(vxGetData(strip.get())) + 4 * 500 * 99;
  EXPECT_EQ(last[0], sampleBits(layout, 0, 0, 0));
  EXPECT_EQ(libtiffMessages().size(), 1U);
}

// --- Four kilobytes that announce 40,000 x 40,000 pixels

std::size_t residentBytes() {
  std::size_t total = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> total >> resident;
  return resident * 4096;
}

std::size_t peakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

class HugeRgba : public testing::Test {
 protected:
  HugeRgba() { runtime::setMemoryLimit(static_cast<std::size_t>(16384 * kMiB)); }
  ~HugeRgba() override { runtime::setMemoryLimit(0); }

  static constexpr std::uint32_t kSide = 40000;

  static bool isGranted(std::uint64_t bytes) {
    if (bytes > runtime::memoryLimit()) return false;  // more than this machine can address
    void* memory = std::malloc(static_cast<std::size_t>(bytes));
    std::free(memory);
    return memory != nullptr;
  }

  std::filesystem::path write(std::uint32_t tileSide, std::uint32_t blocks) const {
    std::filesystem::path path = folder_ / "huge.tif";
    const TiffHandle tif = openTiff(path, "w");
    Layout layout{.width = kSide,
                  .length = kSide,
                  .compression = COMPRESSION_ADOBE_DEFLATE,
                  .tileWidth = tileSide,
                  .tileLength = tileSide};
    setLayout(tif.get(), layout);
    std::vector<std::byte> bytes = kNonsense;
    for (std::uint32_t block = 0; block < blocks; ++block) {
      const auto size = static_cast<tmsize_t>(bytes.size());
      if (tileSide != 0)
        TIFFWriteRawTile(tif.get(), block, bytes.data(), size);
      else
        TIFFWriteRawStrip(tif.get(), block, bytes.data(), size);
    }
    return path;
  }
  // Runs `act` and tells how far the memory in use rose above what it was before.
  template <class Act>
  static std::size_t rise(const Act& act) {
    const std::size_t before = std::max(residentBytes(), peakBytes());
    act();
    return peakBytes() - before;
  }

  TemporaryFolder folder_;
};

TEST_F(HugeRgba, OfNonsenseFailsWithoutTouchingMemory) {
  if (runtime::kAddressSanitizer) GTEST_SKIP() << "the sanitizer fills memory";
  if (!isGranted(9000 * kMiB)) GTEST_SKIP() << "the system has too little memory";
  const OpenedFile file(write(0, 1), "r");
  EXPECT_LT(rise([&] {
              expectError<Tiff::stripReadErrorRGBA>({1}, [&] { call("readRGBAStrip", file, 0); });
              expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
            }),
            100 * kMiB);
}

TEST_F(HugeRgba, OfNonsenseInTilesFailsWithoutTouchingTheImage) {
  if (runtime::kAddressSanitizer) GTEST_SKIP() << "the sanitizer fills memory";
  if (!isGranted(7000 * kMiB)) GTEST_SKIP() << "the system has too little memory";
  const OpenedFile file(write(4000, 100), "r");
  EXPECT_LT(rise([&] {
              expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
            }),
            200 * kMiB);
}

// The raster takes 160,000 bytes and the block that libtiff holds 40,000.
TEST(RgbaMemory, CountsRasterAndBlockTogether) {
  Scene scene;
  const OpenedFile& file =
      scene.written({{.width = 200, .length = 200, .compression = COMPRESSION_ADOBE_DEFLATE}});
  for (const auto& [limit, isEnough] : {std::pair{200000, true}, std::pair{199999, false}}) {
    SCOPED_TRACE(limit);
    runtime::setMemoryLimit(static_cast<std::size_t>(limit));
    if (isEnough) {
      EXPECT_NO_THROW(call("readRGBAImage", file));
      EXPECT_NO_THROW(call("readRGBAStrip", file, 0));
    } else {
      EXPECT_THROW(call("readRGBAImage", file), std::bad_alloc);
      EXPECT_THROW(call("readRGBAStrip", file, 0), std::bad_alloc);
    }
  }
  runtime::setMemoryLimit(0);
}

}  // namespace
}  // namespace tb::test

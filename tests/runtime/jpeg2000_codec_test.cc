// The JPEG 2000 codec as libtiff's other functions use it: scan lines, parts of strips, threads.
// No module is involved: whoever uses libtiff in the host's process gets the codec too.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "host/tiff_utilities.h"
#include "tests/support/codestreams.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> messages;

void keepMessage(const char*, const char* format, va_list arguments) {
  char text[1000];
  std::vsnprintf(text, sizeof text, format, arguments);
  messages.emplace_back(text);
}

class Jpeg2000Codec : public testing::Test {
 protected:
  void SetUp() override {
    registerJPEG2000Codecs();
    messages.clear();
    TIFFSetErrorHandler(keepMessage);
  }
  ~Jpeg2000Codec() override {
    TIFFSetErrorHandler(nullptr);
    unregisterJPEG2000Codecs();
  }

  // openTiff drops messages only while it opens.
  TiffHandle written(const Layout& layout, const Recode& recode = {}, const char* mode = "w",
                     const char* readMode = "r") const {
    writeJpeg2000(path_, layout, recode, mode);
    return openTiff(path_, readMode);
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

constexpr std::uint32_t kRows = 50;

Layout rgbStrips() {
  return {.width = 31,
          .length = kRows,
          .bits = 16,
          .samples = 3,
          .photometric = PHOTOMETRIC_RGB,
          .compression = kJpeg2000Rgb,
          .rowsPerStrip = 20};
}

// A row of the image as libtiff delivers it; empty when it fails.
Bytes scanLine(TIFF* tif, std::uint32_t row, std::uint16_t plane = 0) {
  Bytes line(static_cast<std::size_t>(TIFFScanlineSize(tif)));
  if (TIFFReadScanline(tif, line.data(), row, plane) != 1) line.clear();
  return line;
}

Bytes expectedLine(const Layout& layout, std::uint32_t row, std::uint16_t plane = 0) {
  const std::uint32_t stripsPerPlane = (layout.length + 19) / 20;
  const Bytes strip = blockBytes(layout, row / 20 + plane * stripsPerPlane);
  const std::size_t size = std::size_t{layout.width} * layout.samplesPerBlock() * layout.bits / 8;
  const auto start = strip.begin() + static_cast<long>(row % 20 * size);
  return {start, start + static_cast<long>(size)};
}

class Jpeg2000ScanLines : public Jpeg2000Codec,
                          public testing::WithParamInterface<std::pair<const char*, const char*>> {
};

TEST_P(Jpeg2000ScanLines, FollowOneAnother) {
  const auto& [mode, readMode] = GetParam();
  const Layout layout = rgbStrips();
  const TiffHandle tif = written(layout, {}, mode, readMode);
  for (std::uint32_t row = 0; row < kRows; ++row)
    EXPECT_TRUE(scanLine(tif.get(), row) == expectedLine(layout, row)) << row;
  EXPECT_THAT(messages, IsEmpty());
}

TEST_P(Jpeg2000ScanLines, CanBeReadInAnyOrder) {
  const auto& [mode, readMode] = GetParam();
  const Layout layout = rgbStrips();
  const TiffHandle tif = written(layout, {}, mode, readMode);
  for (const std::uint32_t row : {49U, 3U, 19U, 5U, 4U, 4U, 20U, 0U, 45U, 41U})
    EXPECT_TRUE(scanLine(tif.get(), row) == expectedLine(layout, row)) << row;
  EXPECT_THAT(messages, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Modes, Jpeg2000ScanLines,
                         testing::Values(std::pair{"wl", "r"}, std::pair{"wb", "r"},
                                         std::pair{"wb8", "rm"}, std::pair{"wl", "rm"}));

TEST_F(Jpeg2000Codec, ScanLinesOfPlanesAreThoseOfEach) {
  Layout layout = rgbStrips();
  layout.planar = PLANARCONFIG_SEPARATE;
  const TiffHandle tif = written(layout);
  for (std::uint16_t plane = 0; plane < 3; ++plane)
    for (const std::uint32_t row : {0U, 30U, 49U})
      EXPECT_TRUE(scanLine(tif.get(), row, plane) == expectedLine(layout, row, plane));
}

TEST_F(Jpeg2000Codec, ScanLinesAfterAWholeStripStartWithTheirStrip) {
  const Layout layout = rgbStrips();
  const TiffHandle tif = written(layout);
  EXPECT_TRUE(readBlock(tif.get(), 0) == blockBytes(layout, 0));
  EXPECT_TRUE(scanLine(tif.get(), 25) == expectedLine(layout, 25));
  EXPECT_TRUE(readBlock(tif.get(), 1) == blockBytes(layout, 1));
}

TEST_F(Jpeg2000Codec, ADamagedStripFailsOnceForAllItsRows) {
  const Layout layout = rgbStrips();
  Bytes broken = codestreamOf(layout, 1);
  broken.resize(broken.size() / 2);
  writeCodestreams(path_, layout, {codestreamOf(layout, 0), broken, codestreamOf(layout, 2)});
  const TiffHandle tif = openTiff(path_, "r");
  for (std::uint32_t row = 0; row < kRows; ++row)
    EXPECT_EQ(scanLine(tif.get(), row).empty(), row / 20 == 1) << row;
  EXPECT_THAT(messages, ElementsAre(HasSubstr("Strip 1 cannot be decoded: its data ends")));
}

TEST_F(Jpeg2000Codec, PartsOfAStripAreItsFirstBytes) {
  const Layout layout = rgbStrips();
  const TiffHandle tif = written(layout);
  const Bytes whole = blockBytes(layout, 0);
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, whole.size() / 2, whole.size()}) {
    Bytes part(size);
    const auto asked = static_cast<tmsize_t>(size);
    // Even bytes, or the swap of a file in the other byte order would cut a sample.
    EXPECT_EQ(TIFFReadEncodedStrip(tif.get(), 0, part.data(), asked), size == 0 ? 0 : asked);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin())) << size;
  }
}

TEST_F(Jpeg2000Codec, AHandleWhoseNextDirectoryIsDamagedGoesOnWithThisOne) {
  const Layout layout = rgbStrips();
  writeJpeg2000(path_, layout);
  writeTiff(path_, {{}}, "a");
  std::filesystem::resize_file(path_, std::filesystem::file_size(path_) - 20);
  const TiffHandle tif = openTiff(path_, "r");
  EXPECT_TRUE(readBlock(tif.get(), 0) == blockBytes(layout, 0));
  EXPECT_EQ(TIFFReadDirectory(tif.get()), 0);
  EXPECT_TRUE(readBlock(tif.get(), 1) == blockBytes(layout, 1));
}

TEST_F(Jpeg2000Codec, ScanLinesAreNotWritten) {
  const TiffHandle tif = written(rgbStrips(), {}, "w", "r+");
  Bytes line(static_cast<std::size_t>(TIFFScanlineSize(tif.get())));
  EXPECT_EQ(TIFFWriteScanline(tif.get(), line.data(), 0, 0), -1);
  EXPECT_THAT(messages, ElementsAre(HasSubstr("can be read but not written")));
}

// --- Threads

void readOften(const std::filesystem::path& path, const Layout& layout, std::atomic<int>& wrong) {
  const TiffHandle tif(TIFFOpen(path.c_str(), "r"));
  for (int turn = 0; turn < 20; ++turn)
    for (std::uint32_t strip = 0; strip < blockCount(layout); ++strip) {
      Bytes bytes(static_cast<std::size_t>(TIFFStripSize(tif.get())));
      const tmsize_t size = TIFFReadEncodedStrip(tif.get(), strip, bytes.data(), tmsize_t{-1});
      bytes.resize(static_cast<std::size_t>(std::max<tmsize_t>(size, 0)));
      if (bytes != blockBytes(layout, strip)) ++wrong;
    }
}

TEST_F(Jpeg2000Codec, FourThreadsReadFourHandles) {
  const Layout layout = rgbStrips();
  writeJpeg2000(path_, layout);
  std::atomic<int> wrong = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([&] { readOften(path_, layout, wrong); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(Jpeg2000Codec, FourThreadsRegisterItOnce) {
  unregisterJPEG2000Codecs();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back(registerJPEG2000Codecs);
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(TIFFIsCODECConfigured(kJpeg2000), 1);
  unregisterJPEG2000Codecs();
  EXPECT_EQ(TIFFFindCODEC(kJpeg2000), nullptr);
}

}  // namespace
}  // namespace tb::test

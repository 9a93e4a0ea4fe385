// Uncompressed strips that are large enough to be moved row by row, from the map of the file or
// from libtiff: the same as a whole read, and as a whole read where the file contradicts itself.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "core/image_metadata.h"
#include "image/row_reads.h"
#include "tests/support/gateway_call.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

// Two strips, the second one shorter, of more than 512 KiB each.
Layout largeStrips(std::uint16_t bits, std::uint16_t samples, std::uint16_t planar) {
  const auto width = static_cast<std::uint32_t>(33024 / bits);  // 4128 bytes, or samples of them
  return {
      .width = width,
      .length = 290,
      .bits = bits,
      .samples = samples,
      .format = bits == 64 ? std::uint16_t{SAMPLEFORMAT_IEEEFP} : std::uint16_t{SAMPLEFORMAT_UINT},
      .planar = planar,
      .rowsPerStrip = 150};
}

Layout largeStrips() { return largeStrips(8, 1, PLANARCONFIG_CONTIG); }

bool isReadByRows(TIFF* tif, std::uint32_t strip) {
  const TiffImageMetaData_ record = imageMetadata(tif);
  return tb::isReadByRows(strip, stripExtent(record, strip), record);
}

// Gives a strip an offset at which the file ends before it does.
void moveStripPastTheEnd(const std::filesystem::path& path, std::uint32_t strip) {
  const TiffHandle tif = openTiff(path, "r+");
  std::uint64_t* offsets = nullptr;
  ASSERT_EQ(TIFFGetField(tif.get(), TIFFTAG_STRIPOFFSETS, &offsets), 1);
  offsets[strip] = std::filesystem::file_size(path) - 1000;
  ASSERT_EQ(TIFFSetField(tif.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT), 1);
  ASSERT_EQ(TIFFRewriteDirectory(tif.get()), 1);
}

class LargeStrips : public testing::Test {
 protected:
  void expectEveryStrip(const OpenedFile& file, const Layout& layout) const {
    for (std::uint32_t strip = 0; strip < blockCount(layout); ++strip) {
      EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, strip)) == hostBytes(layout, strip))
          << strip;
      EXPECT_TRUE(warnings().empty());
    }
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

TEST_F(LargeStrips, OfEveryLayoutAreRead) {
  for (const char* mode : {"wl", "wb"})
    for (const std::uint16_t bits : std::vector<std::uint16_t>{8, 16, 32, 64})
      for (const std::uint16_t samples : std::vector<std::uint16_t>{1, 3, 5})
        for (const std::uint16_t planar :
             std::vector<std::uint16_t>{PLANARCONFIG_CONTIG, PLANARCONFIG_SEPARATE}) {
          SCOPED_TRACE(testing::Message() << mode << ' ' << bits << " bits, " << samples
                                          << " samples, planar " << planar);
          const Layout layout = largeStrips(bits, samples, planar);
          writeTiff(path_, {layout}, mode);
          for (const char* access : {"r", "rm"}) {
            const OpenedFile file(path_, access);
            EXPECT_TRUE(isReadByRows(file.handle(), 0));
            expectEveryStrip(file, layout);
          }
        }
}

TEST_F(LargeStrips, WithBitsInTheOtherOrderAreRead) {
  Layout layout = largeStrips();
  layout.more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB); };
  writeTiff(path_, {layout});
  const OpenedFile file(path_, "r");
  EXPECT_TRUE(isReadByRows(file.handle(), 0));
  expectEveryStrip(file, layout);
}

TEST_F(LargeStrips, AreReadWithOneMessageForThoseThatFail) {
  writeTiff(path_, {largeStrips()});
  moveStripPastTheEnd(path_, 1);
  const OpenedFile file(path_, "r");
  call("readEncodedStrip", file, 0);
  EXPECT_TRUE(libtiffMessages().empty());
  call("readEncodedStrip", file, 1);
  EXPECT_EQ(libtiffMessages().size(), 1U);
}

std::atomic<int> s_errorsHeard = 0;

// libtiff's handlers are the process's: other threads may have errors at the same time.
TEST_F(LargeStrips, AreReadWithTheErrorsOfOtherThreadsHeard) {
  writeTiff(path_, {largeStrips()});
  const TiffHandle tif = openTiff(path_, "r");
  const TiffImageMetaData_ record = imageMetadata(tif.get());
  const std::string missing = (folder_ / "missing.tif").string();
  const TIFFErrorHandler former =
      TIFFSetErrorHandler([](const char*, const char*, std::va_list) { ++s_errorsHeard; });
  std::atomic<bool> done = false;
  int errorsMade = 0;
  std::thread other([&] {
    while (!done) {
      TIFFOpen(missing.c_str(), "r");
      ++errorsMade;
    }
  });
  for (int turn = 0; turn < 50; ++turn) {
    EXPECT_NE(readStripByRows(0, stripExtent(record, 0), record), nullptr);
  }
  done = true;
  other.join();
  TIFFSetErrorHandler(former);
  EXPECT_EQ(s_errorsHeard, errorsMade);
}

TEST_F(LargeStrips, AreReadWithoutMappingTheFile) {
  const Layout layout = largeStrips();
  writeTiff(path_, {layout});
  const OpenedFile file(path_, "rm");
  EXPECT_TRUE(isReadByRows(file.handle(), 1));
  expectEveryStrip(file, layout);
}

TEST_F(LargeStrips, AreReadInAnyOrderAndAgain) {
  const Layout layout = largeStrips();
  writeTiff(path_, {layout, layout});
  for (const char* access : {"r", "rm"}) {
    const OpenedFile file(path_, access);
    for (const std::uint32_t strip : {1U, 0U, 0U, 1U, 1U}) {
      EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, strip)) == hostBytes(layout, strip));
    }
    call("setDirectory", file, 1);
    expectEveryStrip(file, layout);
  }
}

// libtiff goes on from where it is in a strip; a read of pixels as colours leaves it in the middle.
TEST_F(LargeStrips, AreReadFromTheirBeginningAfterOtherReads) {
  const Layout layout = largeStrips();
  writeTiff(path_, {layout});
  const OpenedFile file(path_, "rm");
  for (const std::uint32_t strip : {0U, 1U}) {
    call("readRGBAStrip", file, 150 * strip);
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, strip)) == hostBytes(layout, strip));
    std::vector<std::byte> part(5000);
    TIFFReadEncodedStrip(file.handle(), strip, part.data(), 5000);
    EXPECT_TRUE(isReadByRows(file.handle(), strip));
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, strip)) == hostBytes(layout, strip));
  }
}

TEST_F(LargeStrips, ThatTheFileDoesNotHoldGiveOneMessage) {
  const Layout layout = largeStrips();
  writeTiff(path_, {layout});
  moveStripPastTheEnd(path_, 1);
  for (const char* mode : {"r", "rm"}) {
    SCOPED_TRACE(mode);
    const OpenedFile file(path_, mode);
    const vxArrayPtr strip = call("readEncodedStrip", file, 1);
    EXPECT_EQ(libtiffMessages().size(), 1U);
    EXPECT_TRUE(bytesOf(strip) == std::vector<std::byte>(std::size_t{140} * layout.width));
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, 0)) == hostBytes(layout, 0));
  }
}

TEST_F(LargeStrips, OfAFileThatCanBeEditedAreReadWhole) {
  const Layout layout = largeStrips();
  writeTiff(path_, {layout});
  const OpenedFile file(path_, "r+");
  EXPECT_FALSE(isReadByRows(file.handle(), 0));
  expectEveryStrip(file, layout);
}

TEST_F(LargeStrips, OfOtherKindsAreReadWhole) {
  Layout deflate = largeStrips();
  deflate.compression = COMPRESSION_ADOBE_DEFLATE;
  Layout bits = largeStrips();
  bits.bits = 1;
  bits.width = 40000;
  Layout flat = largeStrips();
  flat.rowsPerStrip = 100;
  Layout narrow = largeStrips();
  narrow.width = 2000;
  narrow.length = 1000;
  narrow.rowsPerStrip = 500;
  Layout wide = largeStrips();
  wide.width = 600000;
  wide.length = 4;
  wide.rowsPerStrip = 1;
  for (const Layout& layout : {deflate, bits, flat, narrow, wide}) {
    writeTiff(path_, {layout});
    const OpenedFile file(path_, "r");
    EXPECT_FALSE(isReadByRows(file.handle(), 0));
    expectEveryStrip(file, layout);
  }
}

}  // namespace
}  // namespace tb::test

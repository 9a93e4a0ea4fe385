// Images of sizes that a small file only claims, or that no file can have.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <new>
#include <vector>

#include "runtime/memory.h"
#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

// A gray image of one strip of `width` x `length` bytes, of which the file holds 4096.
std::vector<RawEntry> claiming(std::uint32_t width, std::uint32_t length, int scheme) {
  std::vector<RawEntry> entries = rawGray(width, length);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {static_cast<std::uint32_t>(scheme)}});
  replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {4096}});
  return entries;
}

class ClaimedSizes : public testing::Test {
 protected:
  void write(std::uint32_t width, std::uint32_t length, int scheme) const {
    writeRawTiff(path_, claiming(width, length, scheme),
                 std::vector<std::byte>(4096, std::byte{0x11}));
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

class MemoryLimit {
 public:
  explicit MemoryLimit(std::size_t bytes) { runtime::setMemoryLimit(bytes); }
  ~MemoryLimit() { runtime::setMemoryLimit(0); }
  MemoryLimit(const MemoryLimit&) = delete;
  MemoryLimit& operator=(const MemoryLimit&) = delete;
};

TEST_F(ClaimedSizes, StripBeyondTheMemoryLimitIsRefused) {
  const MemoryLimit limit(std::size_t{64} << 20);
  for (const int scheme : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS}) {
    write(40000, 40000, scheme);
    const OpenedFile file(path_, "rc");  // else libtiff chops one uncompressed strip into many
    EXPECT_THROW(call("readEncodedStrip", file, 0), std::bad_alloc) << scheme;
  }
}

// 16 bytes for each of 100,000 strips.
TEST_F(ClaimedSizes, TablesOfBlocksBeyondTheMemoryLimitAreRefused) {
  for (const std::size_t room : {1'600'000U, 1'599'999U}) {
    SCOPED_TRACE(room);
    const OpenedFile file(path_, "w");
    setFields(file, {{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK},
                     {TIFFTAG_BITSPERSAMPLE, 8},
                     {TIFFTAG_IMAGEWIDTH, 1},
                     {TIFFTAG_IMAGELENGTH, 100000},
                     {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG},
                     {TIFFTAG_ROWSPERSTRIP, 1}});
    const MemoryLimit limit(room);
    const auto write = [&] { callFor(0, "writeEncodedStrip", file, 0, zeros(vxUINT8, {1, 1})); };
    if (room == 1'600'000) {
      EXPECT_NO_THROW(write());
    } else {
      expectError<Tiff::stripWriteFailure>({1}, write);
    }
  }
}

// The most memory that the process has had so far.
std::size_t peakResidentBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

TEST_F(ClaimedSizes, StripThatDoesNotDecodeCostsNoMemory) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer's shadow memory counts as resident";
#endif
  for (const int scheme : {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE}) {
    write(20000, 20000, scheme);
    const OpenedFile file(path_, "rc");
    const std::size_t before = peakResidentBytes();
    const vxArrayPtr array = call("readEncodedStrip", file, 0);
    EXPECT_EQ(dimensionsOf(array), (Dimensions{20000, 20000}));
    EXPECT_LT(peakResidentBytes(), before + (std::size_t{64} << 20)) << scheme;
  }
}

TEST_F(ClaimedSizes, SizesBeyondAllNumbersAreRefused) {
  const OpenedFile file(path_, "w");
  setLayout(file.handle(), {.width = 4294967295U,
                            .length = 4294967295U,
                            .bits = 64,
                            .samples = 65535,
                            .format = SAMPLEFORMAT_IEEEFP});
  EXPECT_THROW(call("readEncodedStrip", file, 0), std::bad_alloc);
  EXPECT_THROW(call("readRGBAImage", file), std::bad_alloc);
  EXPECT_THROW(call("readRGBAStrip", file, 0), std::bad_alloc);
}

}  // namespace
}  // namespace tb::test

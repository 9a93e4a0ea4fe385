// Files that claim more than they have: what libtiff allocates for a directory is in proportion to
// the file, and honest files are none the worse for it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tiffio.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "host/tiff_utilities.h"
#include "runtime/loader.h"
#include "runtime/sanitizer.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using runtime::collectedDiagnostics;
using testing::HasSubstr;
namespace fs = std::filesystem;

// Bytes of a file that is put together by hand, in either byte order and size of offsets.
class FileBytes {
 public:
  FileBytes(bool isBig, bool isBigEndian) : isBig_(isBig), isBigEndian_(isBigEndian) {
    bytes_ = isBigEndian ? "MM" : "II";
    if (isBig) number(43, 2).number(8, 2).number(0, 2);
    if (!isBig) number(42, 2);
  }
  FileBytes& number(std::uint64_t value, std::size_t size) {
    for (std::size_t at = 0; at < size; ++at)
      bytes_.push_back(static_cast<char>(value >> (8 * (isBigEndian_ ? size - 1 - at : at))));
    return *this;
  }
  FileBytes& offset(std::uint64_t value) { return number(value, isBig_ ? 8 : 4); }
  FileBytes& entries(std::uint64_t count) { return number(count, isBig_ ? 8 : 2); }
  FileBytes& entry(std::uint16_t tag, TIFFDataType type, std::uint64_t count,
                   std::uint64_t valueOrOffset) {
    number(tag, 2).number(static_cast<std::uint64_t>(type), 2).offset(count);
    const bool isShort = type == TIFF_SHORT && count == 1;
    if (!isShort) return offset(valueOrOffset);
    return number(valueOrOffset, 2).number(0, isBig_ ? 6 : 2);
  }
  FileBytes& fill(std::size_t size) {
    bytes_.resize(size, 'x');
    return *this;
  }
  std::size_t size() const { return bytes_.size(); }
  void write(const fs::path& path) const { std::ofstream(path, std::ios::binary) << bytes_; }

 private:
  bool isBig_;
  bool isBigEndian_;
  std::string bytes_;
};

FileBytes& grayEntries(FileBytes& bytes, std::uint64_t width, std::uint64_t length,
                       std::uint64_t dataSize) {
  return bytes.entry(TIFFTAG_IMAGEWIDTH, TIFF_LONG, 1, width)
      .entry(TIFFTAG_IMAGELENGTH, TIFF_LONG, 1, length)
      .entry(TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, 1, 8)
      .entry(TIFFTAG_COMPRESSION, TIFF_SHORT, 1, COMPRESSION_NONE)
      .entry(TIFFTAG_PHOTOMETRIC, TIFF_SHORT, 1, PHOTOMETRIC_MINISBLACK)
      .entry(TIFFTAG_STRIPOFFSETS, TIFF_LONG, 1, 8)
      .entry(TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, 1, dataSize);
}
constexpr std::uint64_t kGrayEntries = 7;
constexpr std::uint64_t kSharedTags = 200;

class Bounds : public testing::Test {
 protected:
  Bounds() {
    TIFFSetErrorHandler(ZQTIFFerrHandler);
    TIFFSetWarningHandler(ZQTIFFwarnHandler);
    ZQTIFFinitializeErrorStack();
  }
  ~Bounds() override { ZQTIFFinitializeErrorStack(); }

  TiffHandle open(const char* mode) const {
    return TiffHandle(tiffutils::UOpen(path_.u16string(), mode));
  }
  static std::string lastMessage() {
    const auto said = collectedDiagnostics();
    return said.empty() ? "" : said.back().message;
  }
  // Adds a directory at kSharedTags: a gray image of one pixel with so many tags, all of the same
  // bytes, which are nearly the whole file.
  void writeSharedTags(FileBytes bytes, std::uint64_t tags = 4000,
                       std::size_t shared = 512 << 10) const {
    bytes.fill(kSharedTags).entries(kGrayEntries + tags);
    grayEntries(bytes, 1, 1, 1);
    for (std::uint64_t tag = 0; tag < tags; ++tag)
      bytes.entry(static_cast<std::uint16_t>(40000 + tag), TIFF_BYTE, shared, 16);
    bytes.offset(0).fill(shared + 100).write(path_);
  }

  TemporaryFolder folder_;
  const fs::path path_ = folder_ / "image.tif";
  const runtime::GatewayScope inside_;
};

struct Kind {
  const char* name;
  bool isBig;
  bool isBigEndian;
};

class EveryKind : public Bounds, public testing::WithParamInterface<Kind> {};

TEST_P(EveryKind, TagsThatShareTheirBytesAreRefused) {
  writeSharedTags(FileBytes(GetParam().isBig, GetParam().isBigEndian).offset(kSharedTags));
  for (const char* mode : {"r", "rm", "r+"}) {
    EXPECT_EQ(open(mode), nullptr) << mode;
    EXPECT_THAT(lastMessage(), HasSubstr("offset 200 would take far more memory")) << mode;
  }
  EXPECT_NE(open("a"), nullptr);  // which loads no directory
}
INSTANTIATE_TEST_SUITE_P(Kinds, EveryKind,
                         testing::Values(Kind{"Classic", false, false},
                                         Kind{"ClassicBigEndian", false, true},
                                         Kind{"Big", true, false},
                                         Kind{"BigBigEndian", true, true}),
                         [](const auto& test) { return test.param.name; });

TEST_F(Bounds, LaterDirectoriesCanBeAskedFor) {
  FileBytes bytes(false, false);
  bytes.offset(16).fill(16).entries(kGrayEntries);
  grayEntries(bytes, 1, 1, 1).offset(kSharedTags);
  writeSharedTags(bytes);
  for (const char* mode : {"r", "rm", "r+", "a"}) {
    const TiffHandle tif = open(mode);
    ASSERT_NE(tif, nullptr) << mode;
    EXPECT_TRUE(ZQTIFFdirectoryFits(tif.get(), 16)) << mode;
    EXPECT_TRUE(ZQTIFFdirectoryFits(tif.get(), 1 << 30)) << "there is no directory";
    EXPECT_FALSE(ZQTIFFdirectoryFits(tif.get(), kSharedTags)) << mode;
    EXPECT_THAT(lastMessage(), HasSubstr("offset 200"));
  }
}

// Each row is an 8-bit pixel or many; the strip is cut into pieces of 8 KiB when it is opened.
TEST_F(Bounds, RowsThatTheFileDoesNotHaveAreNotCutIntoStripsForEditing) {
  FileBytes bytes(false, false);
  bytes.offset(16).fill(16).entries(kGrayEntries);
  grayEntries(bytes, 100000, 1'000'000'000, 50).offset(0).fill(200).write(path_);
  EXPECT_NE(open("r"), nullptr);  // libtiff looks at the size of the file itself
  EXPECT_EQ(open("r+"), nullptr);
  EXPECT_THAT(lastMessage(), HasSubstr("would take far more memory"));
}

TEST_F(Bounds, StripsOfGigabytesThatTheFileDoesNotHaveAreNotCutForEditing) {
  FileBytes bytes(true, false);
  bytes.offset(16).fill(16).entries(kGrayEntries + 1);
  grayEntries(bytes, 600'000'000, 500'000'000, 50);
  bytes.entry(TIFFTAG_ROWSPERSTRIP, TIFF_LONG, 1, 250'000'000).offset(0).fill(400).write(path_);
  EXPECT_EQ(open("r+"), nullptr);
  EXPECT_THAT(lastMessage(), HasSubstr("would take far more memory"));
}

// An entry without type, count and value stands for tables that are to be made.
TEST_F(Bounds, TablesLeftToBeWrittenLaterAreNotMadeWithoutBound) {
  FileBytes bytes(false, false);
  bytes.offset(16)
      .fill(16)
      .entries(7)
      .entry(TIFFTAG_IMAGEWIDTH, TIFF_LONG, 1, 1 << 20)
      .entry(TIFFTAG_IMAGELENGTH, TIFF_LONG, 1, 1 << 20)
      .entry(TIFFTAG_PHOTOMETRIC, TIFF_SHORT, 1, PHOTOMETRIC_MINISBLACK)
      .entry(TIFFTAG_TILEWIDTH, TIFF_LONG, 1, 16)
      .entry(TIFFTAG_TILELENGTH, TIFF_LONG, 1, 16)
      .entry(TIFFTAG_TILEOFFSETS, TIFF_NOTYPE, 0, 0)
      .entry(TIFFTAG_TILEBYTECOUNTS, TIFF_NOTYPE, 0, 0)
      .offset(0)
      .write(path_);
  EXPECT_EQ(open("r+"), nullptr);
  EXPECT_THAT(lastMessage(), HasSubstr("would take far more memory"));
}

// --- What the file does have

TEST_F(Bounds, LongTagsOfALargeFileAreLoaded) {
  Layout layout;
  const std::string text(3 << 20, 'x');
  layout.more = [&](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, text.c_str());
    TIFFSetField(tif, TIFFTAG_XMLPACKET, 2 << 20, text.data());
  };
  writeTiff(path_, {layout});
  for (const char* mode : {"r", "rm", "r+"}) {
    const TiffHandle tif = open(mode);
    char* loaded = nullptr;
    ASSERT_EQ(TIFFGetField(tif.get(), TIFFTAG_IMAGEDESCRIPTION, &loaded), 1);
    EXPECT_TRUE(loaded == text) << mode;
  }
}

TEST_F(Bounds, TagsOfALargeFileMayTakeFourTimesItsSize) {
  for (const bool fits : {true, false}) {
    writeSharedTags(FileBytes(false, false).offset(kSharedTags), fits ? 4 : 5, 20 << 20);
    for (const char* mode : {"r", "rm", "r+"}) EXPECT_EQ(open(mode) != nullptr, fits) << mode;
  }
}

TEST_F(Bounds, ManyStripsOfARowEachAreLoaded) {
  writeTiff(path_, {{.width = 1, .length = 300000, .rowsPerStrip = 1}});
  for (const char* mode : {"r", "r+"})
    EXPECT_EQ(TIFFNumberOfStrips(open(mode).get()), 300000U) << mode;
}

TEST_F(Bounds, AnUndividedStripIsCutAsLibtiffDoes) {
  writeTiff(path_, {{.width = 20000, .length = 3000}});
  for (const char* mode : {"r", "r+"})
    EXPECT_EQ(TIFFNumberOfStrips(open(mode).get()), TIFFNumberOfStrips(openTiff(path_, mode).get()))
        << mode;
}

// PixarLog's decoder takes 288 MB for this strip whatever of it is asked for. Encoded are a row,
// and in the larger file what might be the others.
class DenseStrip : public Bounds {
 protected:
  void writeStrip(std::size_t padding) const {
    Layout layout{
        .width = kSide, .length = 1, .compression = COMPRESSION_PIXARLOG, .rowsPerStrip = 1};
    const fs::path row = folder_ / "row.tif";
    writeTiff(row, {layout});
    std::vector<std::byte> encoded = encodedBlock(openTiff(row, "r").get(), 0);
    layout.length = layout.rowsPerStrip = kSide;
    const TiffHandle tif = openTiff(path_, "w");
    setLayout(tif.get(), layout);
    TIFFSetField(tif.get(), TIFFTAG_IMAGEDESCRIPTION, std::string(padding, 'x').c_str());
    TIFFWriteRawStrip(tif.get(), 0, encoded.data(), static_cast<tmsize_t>(encoded.size()));
  }
  bool readsFirstRow() const {
    std::vector<std::byte> row(kSide);
    return TIFFReadEncodedStrip(open("r").get(), 0, row.data(), kSide) != -1;
  }
  static constexpr std::uint32_t kSide = 12000;
};

TEST_F(DenseStrip, IsDecodedFromAFileThatMayHoldIt) {
  writeStrip(20000);
  EXPECT_TRUE(readsFirstRow());
}

TEST_F(DenseStrip, IsRefusedFromAFileThatCannotHoldIt) {
  writeStrip(1);
  ASSERT_LT(fs::file_size(path_), 9000U);
  EXPECT_FALSE(readsFirstRow());
  EXPECT_THAT(lastMessage(), HasSubstr("is beyond the 268435456 byte limit"));
}

TEST_F(Bounds, AFileThatCannotBeReadIsNotTakenForAnEmptyOne) {
  for (const char* mode : {"r", "r+", "a"}) {
    EXPECT_EQ(tiffutils::UOpen(u"/proc/self/mem", mode), nullptr);
    EXPECT_THAT(lastMessage(), HasSubstr("Input/output error")) << mode;
  }
}

// --- What is refused takes no memory

class InLittleMemory : public Bounds, public testing::WithParamInterface<const char*> {};

// In a process of its own. The status is 0 when the open was refused, for the right reason.
[[noreturn]] void openInLittleMemory(const fs::path& path, const char* mode) {
  constexpr rlim_t kMemory = rlim_t{512} << 20;
  const struct rlimit limit { kMemory, kMemory };
  setrlimit(RLIMIT_AS, &limit);
  TIFF* tif = tiffutils::UOpen(path.u16string(), mode);
  const auto said = collectedDiagnostics();
  const bool refused = tif == nullptr && said.size() == 1 &&
                       said[0].message.find("would take far more memory") != std::string::npos;
  _exit(refused ? 0 : 1);
}

TEST_P(InLittleMemory, AHostileFileIsRefused) {
  if (runtime::kAddressSanitizer) GTEST_SKIP() << "the sanitizer needs terabytes of addresses";
  writeSharedTags(FileBytes(false, false).offset(kSharedTags));
  EXPECT_EXIT(openInLittleMemory(path_, GetParam()), testing::ExitedWithCode(0), "");
}
INSTANTIATE_TEST_SUITE_P(Modes, InLittleMemory, testing::Values("r", "rm", "r+"));

}  // namespace
}  // namespace tb::test

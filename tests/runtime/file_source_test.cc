// Where libtiff reads and writes: interruptions, short transfers and errors of the system, and what
// becomes of a handle in a forked process.
#include "runtime/file_source.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <span>
#include <vector>

#include "host/tiff_utilities.h"
#include "runtime/loader.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using runtime::FileSource;
using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max() / 2;

// A file in memory behind an unreliable system.
struct Storage {
  std::vector<std::byte> bytes{};
  std::size_t mostAtOnce = ~std::size_t{0};
  bool interrupts = false;  // every other call
  std::uint64_t readErrorFrom = ~std::uint64_t{0};
  std::uint64_t writeErrorAt = ~std::uint64_t{0};
  unsigned readsBeforeError = ~0U;
  unsigned writesBeforeErrors = ~0U;
  std::size_t capacity = ~std::size_t{0};
  int closeError = 0;
  unsigned calls = 0;
  unsigned writes = 0;

  bool isInterrupted() { return interrupts && ++calls % 2 == 0; }
};

ssize_t failed(int error) {
  errno = error;
  return -1;
}

class StorageSource final : public FileSource {
 public:
  explicit StorageSource(Storage& storage) : storage_(storage) {}
  std::uint64_t size() noexcept override { return storage_.bytes.size(); }
  int close() noexcept override { return storage_.closeError; }

 private:
  ssize_t readSome(std::uint64_t offset, std::span<std::byte> buffer) noexcept override {
    if (storage_.isInterrupted()) return failed(EINTR);
    const std::uint64_t end = offset + buffer.size();
    if (end > storage_.readErrorFrom || storage_.readsBeforeError-- == 0) return failed(EIO);
    if (offset >= storage_.bytes.size()) return 0;
    const auto rest = std::span(storage_.bytes).subspan(static_cast<std::size_t>(offset));
    const std::size_t count = std::min({buffer.size(), storage_.mostAtOnce, rest.size()});
    std::memcpy(buffer.data(), rest.data(), count);
    return static_cast<ssize_t>(count);
  }

  ssize_t writeSome(std::uint64_t offset, std::span<const std::byte> data) noexcept override {
    if (storage_.isInterrupted()) return failed(EINTR);
    if (offset == storage_.writeErrorAt || storage_.writesBeforeErrors == 0) return failed(EIO);
    --storage_.writesBeforeErrors;
    if (offset >= storage_.capacity) return failed(ENOSPC);
    const auto start = static_cast<std::size_t>(offset);
    const std::size_t count =
        std::min({data.size(), storage_.mostAtOnce, storage_.capacity - start});
    ++storage_.writes;
    if (storage_.bytes.size() < start + count) storage_.bytes.resize(start + count);
    std::memcpy(storage_.bytes.data() + start, data.data(), count);
    return static_cast<ssize_t>(count);
  }

  bool shorten(std::uint64_t size) noexcept override {
    storage_.bytes.resize(static_cast<std::size_t>(size));
    return true;
  }

  Storage& storage_;
};

class Source : public testing::Test {
 protected:
  Source() {
    TIFFSetErrorHandler(ZQTIFFerrHandler);
    TIFFSetWarningHandler(ZQTIFFwarnHandler);
    ZQTIFFinitializeErrorStack();
  }
  ~Source() override { ZQTIFFinitializeErrorStack(); }

  static TiffHandle open(Storage& storage, const char* mode) {
    return TiffHandle(
        runtime::openSource(std::make_unique<StorageSource>(storage), "memory", mode, kNoLimit));
  }
  static TiffHandle open(const fs::path& path, const char* mode) {
    return TiffHandle(tiffutils::UOpen(path.u16string(), mode));
  }
  static std::vector<std::byte> blockOf(const TiffHandle& tif) { return readBlock(tif.get(), 0); }

  const Layout layout_{.width = 100, .length = 100};
  TemporaryFolder folder_;
  const runtime::GatewayScope inside_;
};

TEST_F(Source, GoesOnAfterInterruptionsAndShortTransfers) {
  Storage storage{.mostAtOnce = 7, .interrupts = true};
  writeImage(open(storage, "w").get(), layout_);
  const TiffHandle tif = open(storage, "rc");
  ASSERT_NE(tif, nullptr);
  EXPECT_EQ(blockOf(tif), blockBytes(layout_, 0));
  EXPECT_THAT(runtime::collectedDiagnostics(), testing::IsEmpty());
}

// libtiff would clear what is missing of encoded bytes from `buffer - 1` on.
TEST_F(Source, ReportsAnErrorOfReadingAsMissingBytes) {
  Storage storage;
  Layout layout = layout_;
  layout.compression = COMPRESSION_LZW;
  writeImage(open(storage, "w").get(), layout);
  const TiffHandle tif = open(storage, "r+");
  ASSERT_NE(tif, nullptr);
  storage.readErrorFrom = 0;
  std::vector<std::byte> block(static_cast<std::size_t>(TIFFStripSize(tif.get())));
  EXPECT_EQ(TIFFReadEncodedStrip(tif.get(), 0, block.data(), TIFFStripSize(tif.get())), -1);
  std::array<std::byte, 4> header{};
  EXPECT_EQ(runtime::sourceOf(tif.get())->readAt(0, header), 0U);
}

TEST_F(Source, TellsOnceOfAWriteThatFailed) {
  Storage storage{.capacity = 3000};
  const TiffHandle tif = open(storage, "w");
  setLayout(tif.get(), layout_);
  EXPECT_FALSE(ZQTIFFcheckWriteFailure(tif.get()));
  std::vector<std::byte> block = blockBytes(layout_, 0);
  EXPECT_EQ(TIFFWriteRawStrip(tif.get(), 0, block.data(), static_cast<tmsize_t>(block.size())), -1);
  EXPECT_EQ(storage.bytes.size(), 3000U);
  EXPECT_TRUE(ZQTIFFcheckWriteFailure(tif.get()));
  EXPECT_FALSE(ZQTIFFcheckWriteFailure(tif.get()));
  TIFFSetMode(tif.get(), O_RDONLY);
}

TEST_F(Source, SaysWhenClosingFails) {
  Storage storage;
  writeImage(open(storage, "w").get(), layout_);
  storage.closeError = EDQUOT;
  open(storage, "r").reset();
  ASSERT_EQ(runtime::collectedDiagnostics().size(), 1U);
  EXPECT_THAT(runtime::collectedDiagnostics()[0].message, HasSubstr("Disk quota exceeded"));
}

TEST_F(Source, CountsPositionsFromStartPositionAndEnd) {
  Storage storage{.bytes = std::vector<std::byte>(50)};
  StorageSource source(storage);
  const auto back = [](std::uint64_t bytes) { return ~bytes + 1; };
  EXPECT_EQ(source.seek(20, SEEK_SET), 20U);
  EXPECT_EQ(source.seek(5, SEEK_CUR), 25U);
  EXPECT_EQ(source.seek(back(10), SEEK_END), 40U);
  EXPECT_EQ(source.seek(100, SEEK_END), 150U);
  EXPECT_EQ(source.seek(back(1), SEEK_SET), FileSource::kNowhere);
  EXPECT_EQ(source.seek(0, SEEK_CUR), 150U);
}

TEST_F(Source, BelongsToHandlesThatWereOpenedHere) {
  const fs::path path = folder_ / "image.tif";
  writeTiff(path, {layout_});
  EXPECT_EQ(runtime::sourceOf(openTiff(path, "r+").get()), nullptr);
  EXPECT_FALSE(ZQTIFFcheckWriteFailure(openTiff(path, "r+").get()));
  const TiffHandle tif = open(path, "r");
  EXPECT_EQ(runtime::sourceOf(tif.get())->mapping().size(), fs::file_size(path));
}

// The default action of the signal that such a write raises ends the process.
TEST_F(Source, SurvivesTheLimitOnTheSizeOfFiles) {
  const TiffHandle tif = open(folder_ / "image.tif", "w");
  setLayout(tif.get(), layout_);
  std::vector<std::byte> block = blockBytes(layout_, 0);
  struct rlimit former;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &former), 0);
  const struct rlimit low { 3000, former.rlim_max };
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &low), 0);
  const tmsize_t written =
      TIFFWriteRawStrip(tif.get(), 0, block.data(), static_cast<tmsize_t>(block.size()));
  const bool failure = ZQTIFFcheckWriteFailure(tif.get());
  TIFFSetMode(tif.get(), O_RDONLY);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &former), 0);
  EXPECT_EQ(written, -1);
  EXPECT_TRUE(failure);
  EXPECT_EQ(fs::file_size(folder_ / "image.tif"), 3000U);
}

// Directories are changed in several places, which must all be as they were or as they shall be.
TEST_F(Source, PutsBackWhatAnUpdateHasReplacedWhenItFails) {
  Storage storage{.bytes = std::vector<std::byte>(50)};
  StorageSource source(storage);
  const std::vector<std::byte> ones(4, std::byte{1});
  source.beginUpdate();
  for (const std::uint64_t place : {0U, 20U}) {
    ASSERT_EQ(source.seek(place, SEEK_SET), place);
    ASSERT_EQ(source.write(ones), ones.size());
  }
  storage.writeErrorAt = 20;
  EXPECT_FALSE(source.commitUpdate());
  EXPECT_EQ(storage.bytes, std::vector<std::byte>(50));
}

// libtiff writes some tables a number at a time, and may write tens of thousands.
TEST_F(Source, WritesAtOnceWhatAnUpdateWritesInARow) {
  Storage storage{.bytes = std::vector<std::byte>(50)};
  StorageSource source(storage);
  source.beginUpdate();
  ASSERT_EQ(source.seek(10, SEEK_SET), 10U);
  std::vector<std::byte> expected(50);
  for (unsigned number = 1; number <= 20; ++number) {
    const std::byte next{static_cast<unsigned char>(number)};
    ASSERT_EQ(source.write(std::span(&next, 1)), 1U);
    expected[9 + number] = next;
  }
  EXPECT_TRUE(source.commitUpdate());
  EXPECT_EQ(storage.writes, 1U);
  EXPECT_EQ(storage.bytes, expected);
}

// libtiff empties a link to a directory before it sets it anew. Were both written, a disk that
// fails in between, also for putting things back, would leave a file without its directories.
TEST_F(Source, WritesBytesOnceThatAnUpdateChangesTwice) {
  Storage storage{.bytes = std::vector<std::byte>(50)};
  StorageSource source(storage);
  source.beginUpdate();
  for (const std::byte value : {std::byte{9}, std::byte{0}, std::byte{7}}) {
    const std::vector<std::byte> link(4, value);
    ASSERT_EQ(source.seek(20, SEEK_SET), 20U);
    ASSERT_EQ(source.write(link), link.size());
  }
  ASSERT_EQ(source.seek(19, SEEK_SET), 19U);
  const std::vector<std::byte> overlapping(2, std::byte{5});
  ASSERT_EQ(source.write(overlapping), overlapping.size());
  EXPECT_TRUE(source.commitUpdate());
  EXPECT_EQ(storage.writes, 2U);
  std::vector<std::byte> expected(50);
  std::ranges::fill(std::span(expected).subspan(20, 4), std::byte{7});
  std::ranges::fill(std::span(expected).subspan(19, 2), std::byte{5});
  EXPECT_EQ(storage.bytes, expected);
}

// Cut off, the directory at the end would take the chain with it, whose link to it may stay.
TEST_F(Source, KeepsWhatWasAppendedWhenALinkToItCannotBePutBack) {
  const Layout layout{.width = 100, .length = 100, .rowsPerStrip = 10};
  for (unsigned writes = 0; writes < 12; ++writes) {
    SCOPED_TRACE(writes);
    Storage storage;
    writeImage(open(storage, "w").get(), layout);
    const TiffHandle tif = open(storage, "r+");
    TIFFSetField(tif.get(), TIFFTAG_IMAGEDESCRIPTION, "longer than before");
    ASSERT_TRUE(ZQTIFFbeginUpdate(tif.get()));
    const bool isWritten = TIFFRewriteDirectory(tif.get()) != 0;
    storage.writesBeforeErrors = writes;
    ASSERT_TRUE(isWritten);
    (void)ZQTIFFcommitUpdate(tif.get());
    TIFFSetMode(tif.get(), O_RDONLY);
    storage.writesBeforeErrors = ~0U;
    const TiffHandle again = open(storage, "r");
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(blockOf(again) == blockBytes(layout, 0));
  }
}

// libtiff writes a header where it can read none.
TEST_F(Source, KeepsAHeaderThatCannotBeReadOnce) {
  Storage storage;
  writeImage(open(storage, "w").get(), layout_);
  const std::vector<std::byte> before = storage.bytes;
  storage.readsBeforeError = 0;
  EXPECT_EQ(open(storage, "r+"), nullptr);
  EXPECT_EQ(storage.bytes, before);
}

TEST_F(Source, SaysWhenReadingFails) {
  Storage storage;
  writeImage(open(storage, "w").get(), layout_);
  const TiffHandle tif = open(storage, "rc");
  ZQTIFFinitializeErrorStack();
  storage.readErrorFrom = 0;
  std::array<std::byte, 4> bytes{};
  EXPECT_EQ(TIFFGetReadProc(tif.get())(TIFFClientdata(tif.get()), bytes.data(), 4), 0);
  ASSERT_EQ(runtime::collectedDiagnostics().size(), 1U);
  EXPECT_THAT(runtime::collectedDiagnostics()[0].message, HasSubstr("Input/output error"));
  EXPECT_TRUE(ZQTIFFcheckReadFailure(tif.get()));
  EXPECT_FALSE(ZQTIFFcheckReadFailure(tif.get()));
}

// A forked process shares the position of a descriptor.
TEST_F(Source, IsNotMovedByAForkedProcess) {
  const fs::path path = folder_ / "image.tif";
  writeTiff(path, {layout_}, "wl");
  const TiffHandle tif = open(path, "rm");
  const auto seek = [&](toff_t offset) {
    return TIFFGetSeekProc(tif.get())(TIFFClientdata(tif.get()), offset, SEEK_SET);
  };
  ASSERT_EQ(seek(2), 2U);
  const pid_t child = fork();
  if (child == 0) _exit(seek(8) == 8 ? 0 : 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  char version = 0;
  EXPECT_EQ(TIFFGetReadProc(tif.get())(TIFFClientdata(tif.get()), &version, 1), 1);
  EXPECT_EQ(version, 42);
}

TEST_F(Source, ReadsItsOwnBytesAfterAForkedProcessHasRead) {
  const fs::path path = folder_ / "image.tif";
  writeTiff(path, {layout_}, "wl");
  const TiffHandle tif = open(path, "rm");
  const auto byteAt = [&](toff_t offset) {
    char byte = 0;
    TIFFGetSeekProc(tif.get())(TIFFClientdata(tif.get()), offset, SEEK_SET);
    return TIFFGetReadProc(tif.get())(TIFFClientdata(tif.get()), &byte, 1) == 1 ? byte : '?';
  };
  ASSERT_EQ(byteAt(0), 'I');
  const pid_t child = fork();
  if (child == 0) _exit(byteAt(2) == 42 ? 0 : 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(byteAt(1), 'I');
}

}  // namespace
}  // namespace tb::test

// Files that are objects: opened by their name, read and written through their functions, and never
// asked again once one of these has failed.
#include "runtime/file_objects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/tiff_utilities.h"
#include "runtime/loader.h"
#include "runtime/messages.h"
#include "runtime/sanitizer.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using runtime::FileObject;

// Bytes in memory; fails from the call with the number `failing` on.
class Memory final : public FileObject {
 public:
  std::size_t read(std::uint64_t offset, std::span<std::byte> bytes) noexcept override {
    if (fails() || offset >= data.size()) return 0;
    const std::size_t count =
        std::min(bytes.size(), data.size() - static_cast<std::size_t>(offset));
    std::memcpy(bytes.data(), data.data() + offset, count);
    return count;
  }
  std::size_t write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override {
    if (fails()) return 0;
    data.resize(std::max(data.size(), static_cast<std::size_t>(offset) + bytes.size()));
    std::ranges::copy(bytes, data.begin() + static_cast<std::ptrdiff_t>(offset));
    return bytes.size();
  }
  std::uint64_t size() noexcept override { return fails() ? 0 : data.size(); }
  bool clear() noexcept override {
    data.clear();
    return !fails();
  }
  bool hasFailed() const noexcept override { return failed; }

  std::vector<std::byte> data;
  int calls = 0;
  int failing = -1;
  bool failed = false;

 private:
  bool fails() {
    if (calls++ == failing) failed = true;
    return failed;
  }
};

class FileObjects : public testing::Test {
 protected:
  FileObjects() : name_(runtime::addFileObject(memory_, "a label")) {
    TIFFSetErrorHandler(ZQTIFFerrHandler);
    TIFFSetWarningHandler(ZQTIFFwarnHandler);
    ZQTIFFinitializeErrorStack();
  }
  ~FileObjects() override {
    runtime::removeFileObject(name_);
    ZQTIFFinitializeErrorStack();
  }

  TiffHandle open(const char* mode) const { return TiffHandle(tiffutils::UOpen(name_, mode)); }

  // A directory of one row.
  void writeRow() const {
    const TiffHandle tif = open("w");
    ASSERT_NE(tif, nullptr);
    TIFFSetField(tif.get(), TIFFTAG_IMAGEWIDTH, 4);
    TIFFSetField(tif.get(), TIFFTAG_IMAGELENGTH, 1);
    TIFFSetField(tif.get(), TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    char row[] = "row";
    ASSERT_EQ(TIFFWriteScanline(tif.get(), row, 0, 0), 1);
  }

  std::shared_ptr<Memory> memory_ = std::make_shared<Memory>();
  std::u16string name_;
  const runtime::GatewayScope inside_;
};

TEST_F(FileObjects, WhatIsWrittenIsReadBack) {
  writeRow();
  const TiffHandle tif = open("r");
  ASSERT_NE(tif, nullptr);
  char row[4] = {};
  EXPECT_EQ(TIFFReadScanline(tif.get(), row, 0, 0), 1);
  EXPECT_STREQ(row, "row");
}

TEST_F(FileObjects, AreNamedByTheirLabel) {
  writeRow();
  EXPECT_STREQ(TIFFFileName(open("r").get()), "a label");
}

TEST_F(FileObjects, HaveNoDescriptor) {
  writeRow();
  EXPECT_EQ(TIFFFileno(open("r").get()), -1);
}

TEST_F(FileObjects, WritingAnewDropsWhatWasThere) {
  memory_->data.resize(100000);
  writeRow();
  EXPECT_LT(memory_->data.size(), 1000U);
}

TEST_F(FileObjects, OpenFilesKeepTheObjectWhenTheNameIsGone) {
  writeRow();
  const std::weak_ptr<Memory> watched = memory_;
  {
    const TiffHandle tif = open("r");
    runtime::removeFileObject(name_);
    memory_.reset();
    EXPECT_FALSE(watched.expired());
    char row[4] = {};
    EXPECT_EQ(TIFFReadScanline(tif.get(), row, 0, 0), 1);
  }
  EXPECT_TRUE(watched.expired());
}

TEST_F(FileObjects, WithoutANameCannotBeOpened) {
  runtime::removeFileObject(name_);
  EXPECT_EQ(open("r"), nullptr);
}

TEST_F(FileObjects, OtherBytesAreNoTiffFile) {
  memory_->data.assign(100, std::byte{7});
  EXPECT_EQ(open("r"), nullptr);
}

TEST_F(FileObjects, AFailureDuringTheOpenIsThrown) {
  writeRow();
  const int calls = (memory_->calls = 0, open("r"), memory_->calls);
  ASSERT_GT(calls, 0);
  for (int call = 0; call < calls; ++call) {
    memory_->calls = 0;
    memory_->failed = false;
    memory_->failing = call;
    EXPECT_THROW(open("r"), runtime::FileObjectFailure) << "in call " << call;
  }
}

TEST_F(FileObjects, MessagesAreKeptOverWhatRunsOutside) {
  TIFFError("before", "said");
  {
    const runtime::OutsideScope outside;
    EXPECT_TRUE(runtime::collectedDiagnostics().empty());
    ZQTIFFinitializeErrorStack();
  }
  TIFFError("after", "said");
  EXPECT_EQ(runtime::collectedDiagnostics().size(), 2U);
}

void addAndRemove() {
  runtime::removeFileObject(runtime::addFileObject(std::make_shared<Memory>(), "shared"));
}

// The child has no thread that could release the lock that one of the parent's held.
TEST(FileObjectsOfManyThreads, CanBeAddedInAForkedProcess) {
  if (runtime::kAddressSanitizer) GTEST_SKIP() << "its allocator does not survive such a fork";
  std::atomic<bool> done = false;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&] {
      while (!done) addAndRemove();
    });
  }
  int good = 0;
  for (bool goesOn = true; goesOn && good < 200; good += goesOn ? 1 : 0) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(10);
      addAndRemove();
      _exit(0);
    }
    int status = -1;
    goesOn = waitpid(child, &status, 0) == child && status == 0;
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 200);
}

}  // namespace
}  // namespace tb::test

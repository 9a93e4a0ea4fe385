// Calls from several threads. Run under ThreadSanitizer as well, which sees what a failure here
// would leave to chance.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "core/open_files.h"
#include "gateway/cleanup.h"
#include "gateway/gateway.h"
#include "runtime/file_objects.h"
#include "runtime/loader.h"
#include "runtime/reporting.h"
#include "tests/support/arrays.h"
#include "tests/support/gateway_call.h"
#include "tests/support/scene.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/thread_calls.h"
#include "tests/support/tiff_files.h"

// ThreadSanitizer takes threads of the parent that nobody has joined yet for leaks of a forked
// child. The name is its own.
extern "C" const char* __tsan_default_options();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __tsan_default_options() { return "report_thread_leaks=0"; }

namespace tb::test {
namespace {

using testing::HasSubstr;

class Threads : public testing::Test {
 protected:
  Threads() {
    runtime::setErrorReporter(nullptr);
    runtime::setWarningSink(
        [](const resource_core::BaseMsgID& warning) { said.push_back(warning.name()); });
  }
  ~Threads() override { recordAgain(); }

  static Layout striped() { return {.width = 64, .length = 64, .rowsPerStrip = 16}; }

  std::filesystem::path write(const std::string& name, const Layout& layout) const {
    writeTiff(folder_ / name, {layout});
    return folder_ / name;
  }

  TemporaryFolder folder_;
};

// --- A file whose reads stand still until they are let through

class Slow final : public runtime::FileObject {
 public:
  explicit Slow(std::vector<std::byte> bytes) : bytes_(std::move(bytes)) {}

  // From now on reads wait; the future is ready when the first one does.
  std::future<void> stop() {
    isStopped_ = true;
    return reached_.get_future();
  }
  void go() {
    isStopped_ = false;
    isStopped_.notify_all();
  }

  std::size_t read(std::uint64_t offset, std::span<std::byte> to) noexcept override {
    if (isStopped_ && !isReached_.exchange(true)) reached_.set_value();
    isStopped_.wait(true);
    if (offset >= bytes_.size()) return 0;
    const auto rest = std::span(bytes_).subspan(static_cast<std::size_t>(offset));
    const std::size_t count = std::min(to.size(), rest.size());
    std::copy_n(rest.begin(), count, to.begin());
    return count;
  }
  std::size_t write(std::uint64_t, std::span<const std::byte>) noexcept override { return 0; }
  std::uint64_t size() noexcept override { return bytes_.size(); }
  bool clear() noexcept override { return false; }
  bool hasFailed() const noexcept override { return false; }

 private:
  std::vector<std::byte> bytes_;
  std::atomic<bool> isStopped_ = false;
  std::atomic<bool> isReached_ = false;
  std::promise<void> reached_;
};

std::vector<std::byte> contentsOf(const std::filesystem::path& path) {
  std::vector<std::byte> bytes(static_cast<std::size_t>(std::filesystem::file_size(path)));
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), file.get()), bytes.size());
  return bytes;
}

// While a call reads a strip and stands still.
class DuringACall : public Threads {
 protected:
  DuringACall() {
    const std::filesystem::path path = write("slow.tif", striped());
    slow_ = std::make_shared<Slow>(contentsOf(path));
    name_ = runtime::addFileObject(slow_, "slow");
    file_ = callOnThread({"open", text(name_), "r"});
    std::future<void> reached = slow_->stop();
    read_ = std::async(std::launch::async, [this] {
      return bytesOf(callOnThread({"readEncodedStrip", file_, 1}));
    });
    reached.wait();
  }
  ~DuringACall() override {
    slow_->go();
    if (read_.valid()) read_.wait();
    callOnThread({"close", file_});
    runtime::removeFileObject(name_);
  }

  // Whether a call that began has not ended after a while.
  template <class Future>
  static bool isWaiting(const Future& call) {
    return call.wait_for(std::chrono::milliseconds(50)) == std::future_status::timeout;
  }

  std::shared_ptr<Slow> slow_;
  std::u16string name_;
  vxArrayPtr file_;
  std::future<std::vector<std::byte>> read_;
};

TEST_F(DuringACall, OtherFilesAreOpenedReadAndClosed) {
  const std::filesystem::path path = write("other.tif", striped());
  const vxArrayPtr other = callOnThread({"open", path, "r"});
  EXPECT_EQ(bytesOf(callOnThread({"readEncodedStrip", other, 2})), hostBytes(striped(), 2));
  EXPECT_EQ(errorOf({"getField", other, 65000}), "unrecognizedTagNumber");
  callOnThread({"close", other});
  EXPECT_TRUE(isWaiting(read_));
}

TEST_F(DuringACall, AnotherCallOnTheFileWaits) {
  auto width = std::async(std::launch::async, [this] {
    return vxGetScalar(callOnThread({"getField", file_, 256}).get());
  });
  EXPECT_TRUE(isWaiting(width));
  slow_->go();
  EXPECT_EQ(read_.get(), hostBytes(striped(), 1));
  EXPECT_EQ(width.get(), 64);
}

TEST_F(DuringACall, CloseWaitsAndCallsThatWaitedFindTheFileClosed) {
  auto close = std::async(std::launch::async, [this] { callOnThread({"close", file_}); });
  EXPECT_TRUE(isWaiting(close));
  slow_->go();
  close.get();
  EXPECT_EQ(read_.get(), hostBytes(striped(), 1));
  EXPECT_EQ(errorOf({"getField", file_, 256}), "invalidFileId");
}

TEST_F(DuringACall, TheCleanupWaitsAndThenClosesTheFile) {
  auto cleanup = std::async(std::launch::async, [] { TagBridgeCleanup(); });
  EXPECT_TRUE(isWaiting(cleanup));
  slow_->go();
  cleanup.get();
  EXPECT_EQ(read_.get(), hostBytes(striped(), 1));
  EXPECT_EQ(errorOf({"getField", file_, 256}), "invalidFileId");
}

TEST_F(DuringACall, AFailedOpenDoesNotKeepOthersWaiting) {
  auto open = std::async(std::launch::async, [this] {
    return errorOf({"open", folder_ / "missing.tif", "r"});
  });
  const auto start = std::chrono::steady_clock::now();
  EXPECT_THAT(textOf(callOnThread({"getVersion"})), HasSubstr("LIBTIFF"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
  EXPECT_EQ(open.get(), "unableToOpenFile");
}

TEST(WaitingToTryAgain, DoesNotKeepTheCleanupWaiting) {
  const TemporaryFolder folder;
  auto open = std::async(std::launch::async, [&] {
    return errorOf({"open", folder / "missing.tif", "r"});
  });
  auto longest = std::chrono::steady_clock::duration::zero();
  do {
    const auto start = std::chrono::steady_clock::now();
    TagBridgeCleanup();
    longest = std::max(longest, std::chrono::steady_clock::now() - start);
  } while (open.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready);
  EXPECT_LT(longest, std::chrono::milliseconds(500));
  EXPECT_EQ(open.get(), "unableToOpenFile");
}

TEST_F(DuringACall, AForkWaitsAndTheChildCanCallTheModule) {
  const std::filesystem::path path = write("other.tif", striped());
  std::promise<void> forked;
  std::jthread later([this, hasForked = forked.get_future()] {
    EXPECT_TRUE(isWaiting(hasForked));
    slow_->go();
  });
  const pid_t child = fork();
  if (child != 0) forked.set_value();
  if (child == 0) {
    alarm(20);
    const vxArrayPtr other = callOnThread({"open", path, "r"});
    const bool isGood =
        bytesOf(callOnThread({"readEncodedStrip", other, 2})) == hostBytes(striped(), 2) &&
        bytesOf(callOnThread({"readEncodedStrip", file_, 3})) == hostBytes(striped(), 3);
    _exit(isGood ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

// --- Messages

// Another library installs its handlers at any time.
TEST_F(Threads, MessagesAboutAFileReachTheCallWhateverTheProcessesHandlersAre) {
  Layout damaged = striped();
  damaged.compression = COMPRESSION_ADOBE_DEFLATE;
  const std::filesystem::path path = write("damaged.tif", damaged);
  {
    const TiffHandle tif = openTiff(path, "r+");
    const std::uint64_t place = TIFFGetStrileOffset(tif.get(), 1);
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb+"), std::fclose);
    std::fseek(file.get(), static_cast<long>(place), SEEK_SET);
    std::fputs("broken", file.get());
  }
  std::atomic<bool> isDone = false;
  std::jthread other([&] {
    while (!isDone) TIFFSetErrorHandler(nullptr);
  });
  const vxArrayPtr file = callOnThread({"open", path, "r"});
  int lost = 0;
  for (int turn = 0; turn < 200; ++turn) {
    callOnThread({"readEncodedStrip", file, 1});
    lost += said.empty() ? 1 : 0;
  }
  isDone = true;
  callOnThread({"close", file});
  EXPECT_EQ(lost, 0);
}

// --- Everything at once

class Stress : public Threads {
 protected:
  static constexpr int kThreads = 8;
  static constexpr int kTurns = 25;

  static Layout tiled(int number) {
    Layout layout{.width = 96, .length = 80, .samples = 3, .photometric = PHOTOMETRIC_RGB};
    layout.compression = number % 2 == 0 ? COMPRESSION_LZW : COMPRESSION_NONE;
    layout.tileWidth = layout.tileLength = 32;
    return layout;
  }

  // Opens, looks, reads, fails and closes.
  void readOwn(const std::filesystem::path& path, int number) {
    const vxArrayPtr file = callOnThread({"open", path, "r"});
    for (std::uint32_t block = 0; block < blockCount(tiled(number)); ++block)
      ASSERT_EQ(bytesOf(callOnThread({"readEncodedTile", file, block})),
                hostBytes(tiled(number), block));
    EXPECT_EQ(vxGetScalar(callOnThread({"getField", file, 256}).get()), 96);
    EXPECT_EQ(errorOf({"readEncodedTile", file, 100 + number}), "badTileNumber");
    EXPECT_EQ(errorOf({"operation " + std::to_string(number)}), "InvalidOperation");
    callOnThread({"close", file});
    EXPECT_EQ(errorOf({"isTiled", file}), "invalidFileId");
  }

  void writeOwn(const std::filesystem::path& path, int number) {
    const vxArrayPtr file = callOnThread({"open", path, "w"});
    for (const Tag& tag : stripTags(PHOTOMETRIC_MINISBLACK, 8, 1))
      callOnThread({"setField", file, tag.number, tag.value});
    const vxArrayPtr pixels = image<std::uint8_t>(
        16, 16, 1, [&](auto, auto, auto) { return static_cast<std::uint8_t>(number); });
    callOnThread({"writeEncodedStrip", file, 0, pixels});
    callOnThread({"close", file});
    const vxArrayPtr again = callOnThread({"open", path, "r"});
    EXPECT_EQ(bytesOf(callOnThread({"readEncodedStrip", again, 0})), bytesOf(pixels));
    callOnThread({"close", again});
  }
};

TEST_F(Stress, ThreadsWorkOnTheirOwnFilesAndOnASharedOne) {
  for (int number = 0; number < kThreads; ++number)
    write(std::to_string(number) + ".tif", tiled(number));
  const vxArrayPtr shared = callOnThread({"open", write("shared.tif", tiled(0)), "r"});
  onThreads(kThreads, [&](int number) {
    const std::string name = std::to_string(number);
    for (int turn = 0; turn < kTurns; ++turn) {
      readOwn(folder_ / (name + ".tif"), number);
      writeOwn(folder_ / (name + "-new.tif"), number);
      const auto block = static_cast<std::uint32_t>((number + turn) % 9);
      ASSERT_EQ(bytesOf(callOnThread({"readEncodedTile", shared, block})),
                hostBytes(tiled(0), block));
      EXPECT_EQ(vxGetScalar(callOnThread({"currentDirectory", shared}).get()), 1);
    }
  });
  callOnThread({"close", shared});
}

TEST_F(Stress, OneOfTheThreadsClosesTheSharedFile) {
  const std::filesystem::path path = write("shared.tif", tiled(0));
  for (int turn = 0; turn < kTurns; ++turn) {
    const vxArrayPtr shared = callOnThread({"open", path, "r"});
    onThreads(kThreads, [&](int number) {
      for (std::uint32_t block = 0; block < 9; ++block) {
        if (number == 3 && block == 4) callOnThread({"close", shared});
        const std::string error = errorOf({"readEncodedTile", shared, block});
        EXPECT_THAT(error, testing::AnyOf("", "invalidFileId"));
      }
    });
  }
}

TEST_F(Stress, TheCleanupComesBetweenTheCalls) {
  for (int number = 0; number < kThreads; ++number)
    write(std::to_string(number) + ".tif", tiled(number));
  onThreads(kThreads, [&](int number) {
    const std::filesystem::path path = folder_ / (std::to_string(number) + ".tif");
    for (int turn = 0; turn < kTurns; ++turn) {
      if (number == 0) {
        TagBridgeCleanup();
        continue;
      }
      const vxArrayPtr file = callOnThread({"open", path, "r"});
      for (std::uint32_t block = 0; block < 9; ++block)
        EXPECT_THAT(errorOf({"readEncodedTile", file, block}), testing::AnyOf("", "invalidFileId"));
      callOnThread({"close", file});
    }
  });
}

}  // namespace
}  // namespace tb::test

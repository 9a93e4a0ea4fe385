// What several threads ask of the embedded host side by side: files that are objects, limits and
// decoders. Run under ThreadSanitizer as well.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "core/open_files.h"
#include "runtime/file_objects.h"
#include "runtime/memory.h"
#include "runtime/reporting.h"
#include "tests/support/codestreams.h"
#include "tests/support/scene.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/thread_calls.h"
#include "tests/support/tiff_files.h"

// As in threads_test.cc: threads of a parent are no leaks of its forked child. A process that exits
// does not wait a second for races.
extern "C" const char* __tsan_default_options();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __tsan_default_options() {
  return "report_thread_leaks=0:atexit_sleep_ms=0";
}

namespace tb::test {
namespace {

constexpr int kThreads = 8;
constexpr int kTurns = 25;

// Bytes in memory. One thread at a time uses it.
class Memory final : public runtime::FileObject {
 public:
  std::size_t read(std::uint64_t offset, std::span<std::byte> to) noexcept override {
    if (offset >= bytes_.size()) return 0;
    const auto rest = std::span(bytes_).subspan(static_cast<std::size_t>(offset));
    const std::size_t count = std::min(to.size(), rest.size());
    std::copy_n(rest.begin(), count, to.begin());
    return count;
  }
  std::size_t write(std::uint64_t offset, std::span<const std::byte> from) noexcept override {
    const auto start = static_cast<std::size_t>(offset);
    bytes_.resize(std::max(bytes_.size(), start + from.size()));
    std::ranges::copy(from, bytes_.begin() + static_cast<std::ptrdiff_t>(start));
    return from.size();
  }
  std::uint64_t size() noexcept override { return bytes_.size(); }
  bool clear() noexcept override {
    bytes_.clear();
    return true;
  }
  bool hasFailed() const noexcept override { return false; }

 private:
  std::vector<std::byte> bytes_;
};

class HostThreads : public testing::Test {
 protected:
  HostThreads() {
    runtime::setErrorReporter(nullptr);
    runtime::setWarningSink([](const resource_core::BaseMsgID&) {});
  }
  ~HostThreads() override { recordAgain(); }

  static vxArrayPtr pixels(int value) {
    return image<std::uint8_t>(16, 16, 1,
                               [&](auto, auto, auto) { return static_cast<std::uint8_t>(value); });
  }

  static void writeObject(const std::u16string& name, int value) {
    const vxArrayPtr file = callOnThread({"open", text(name), "w"});
    for (const Tag& tag : stripTags(PHOTOMETRIC_MINISBLACK, 8, 1))
      callOnThread({"setField", file, tag.number, tag.value});
    callOnThread({"writeEncodedStrip", file, 0, pixels(value)});
    callOnThread({"close", file});
  }

  static void expectObject(const std::u16string& name, int value) {
    const vxArrayPtr file = callOnThread({"open", text(name), "r"});
    EXPECT_EQ(bytesOf(callOnThread({"readEncodedStrip", file, 0})), bytesOf(pixels(value)));
    callOnThread({"close", file});
  }

  TemporaryFolder folder_;
};

TEST_F(HostThreads, WriteTheirOwnFileObjectsSideBySide) {
  onThreads(kThreads, [](int number) {
    std::u16string name;
    for (int turn = 0; turn < kTurns; ++turn) {
      name = runtime::addFileObject(std::make_shared<Memory>(), "object");
      writeObject(name, number + turn);
      expectObject(name, number + turn);
      runtime::removeFileObject(name);
    }
    EXPECT_EQ(errorOf({"open", text(name), "r"}), "unableToOpenFile");
  });
}

TEST_F(HostThreads, MayTakeTheNameOfAnObjectWhileOthersUseIt) {
  const std::u16string name = runtime::addFileObject(std::make_shared<Memory>(), "shared");
  writeObject(name, 7);
  std::atomic<int> opened = 0;
  onThreads(kThreads, [&](int number) {
    const vxArrayPtr file = callOnThread({"open", text(name), "r"});
    if (++opened == kThreads) opened.notify_all();
    for (int now = opened; now < kThreads; now = opened) opened.wait(now);
    if (number == 3) runtime::removeFileObject(name);
    for (int turn = 0; turn < kTurns; ++turn) {
      const std::u16string own = runtime::addFileObject(std::make_shared<Memory>(), "own");
      EXPECT_TRUE(runtime::findFileObject(own));
      runtime::removeFileObject(own);
    }
    callOnThread({"close", file});
  });
  EXPECT_FALSE(runtime::findFileObject(name));
}

TEST_F(HostThreads, MaySetLimitsDuringCalls) {
  const Layout layout{.width = 64, .length = 64, .rowsPerStrip = 16};
  writeTiff(folder_ / "a.tif", {layout});
  const std::size_t cacheLimit = runtime::cacheLimit();
  std::atomic<bool> isDone = false;
  std::jthread other([&] {
    for (std::size_t turn = 0; !isDone; ++turn) {
      runtime::setMemoryLimit(std::size_t{1} << (24 + turn % 8));
      runtime::setCacheLimit(turn % 3 * 100'000);
    }
  });
  onThreads(kThreads, [&](int) {
    for (int turn = 0; turn < kTurns; ++turn) {
      const vxArrayPtr file = callOnThread({"open", folder_ / "a.tif", "r"});
      for (std::uint32_t block = 0; block < 4; ++block) {
        EXPECT_EQ(bytesOf(callOnThread({"readEncodedStrip", file, block})),
                  hostBytes(layout, block));
      }
      callOnThread({"close", file});
    }
  });
  isDone = true;
  other.join();
  runtime::setMemoryLimit(0);
  runtime::setCacheLimit(cacheLimit);
}

// Every open may install the decoder.
TEST_F(HostThreads, ReadJpeg2000WhileOthersOpen) {
  Layout layout{.width = 40, .length = 32, .rowsPerStrip = 16};
  layout.compression = kJpeg2000;
  writeJpeg2000(folder_ / "a.tif", layout);
  onThreads(kThreads, [&](int number) {
    for (int turn = 0; turn < kTurns; ++turn) {
      const vxArrayPtr file = callOnThread({"open", folder_ / "a.tif", "r"});
      if (number % 2 == 0) {
        for (std::uint32_t block = 0; block < 2; ++block) {
          EXPECT_EQ(bytesOf(callOnThread({"readEncodedStrip", file, block})),
                    hostBytes(layout, block));
        }
      }
      callOnThread({"close", file});
    }
  });
}

[[noreturn]] void exitWhileThreadsRead(const std::filesystem::path& path) {
  static std::atomic<int> reads = 0;
  for (int number = 0; number < kThreads; ++number) {
    std::thread([path] {
      for (;;) {
        const vxArrayPtr file = callOnThread({"open", path, "r"});
        callOnThread({"readEncodedStrip", file, 0});
        callOnThread({"close", file});
        ++reads;
      }
    }).detach();
  }
  while (reads < 10 * kThreads) std::this_thread::yield();
  std::exit(0);
}

// Over and over, for it takes luck that a thread needs just what goes.
TEST_F(HostThreads, MayReadWhileTheProcessExits) {
  writeTiff(folder_ / "a.tif", {Layout{.width = 64, .length = 64, .rowsPerStrip = 16}});
  for (int turn = 0; turn < 40; ++turn)
    ASSERT_EXIT(exitWhileThreadsRead(folder_ / "a.tif"), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tb::test

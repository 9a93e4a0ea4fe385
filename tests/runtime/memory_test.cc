// Limits of memory, and the cache of released blocks.
#include "runtime/memory.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <new>
#include <thread>
#include <vector>

#include "host/array.h"
#include "runtime/sanitizer.h"

namespace tb::runtime {
namespace {

constexpr std::size_t kMiB = std::size_t{1} << 20;
using Sizes = std::initializer_list<std::size_t>;

long pageFaults() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt;
}

std::size_t residentBytes() {
  std::ifstream statistics("/proc/self/statm");
  std::size_t total = 0, resident = 0;
  statistics >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

vxArrayPtr bytesArray(std::size_t count) {
  const std::size_t dimensions[] = {count, 1};
  return matrix::detail::do_create_uninitnumeric(vxUINT8, dimensions);
}

class Memory : public testing::Test {
 protected:
  ~Memory() override {
    setMemoryLimit(0);
    setCacheLimit(kDefaultCacheLimit);
    releaseCachedMemory();
  }
};

class Cache : public Memory {
 protected:
  void SetUp() override {
    if (kIsWatched) GTEST_SKIP() << "nothing is kept when memory is watched";
    releaseCachedMemory();
  }
};

TEST_F(Memory, LimitIsThePhysicalMemoryUnlessSet) {
  const auto installed = static_cast<std::uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                         static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const auto addressable = std::uint64_t{std::numeric_limits<std::ptrdiff_t>::max()};
  const auto physical = static_cast<std::size_t>(std::min(installed, addressable));
  EXPECT_EQ(memoryLimit(), physical);
  setMemoryLimit(5 * kMiB);
  EXPECT_EQ(memoryLimit(), 5 * kMiB);
  setMemoryLimit(0);
  EXPECT_EQ(memoryLimit(), physical);
}

TEST_F(Memory, LimitAppliesToEachArrayAndBlock) {
  setMemoryLimit(kMiB);
  std::vector<vxArrayPtr> arrays;
  for (int i = 0; i < 3; ++i) arrays.push_back(bytesArray(kMiB));
  vxFree(vxCalloc(kMiB / 8, 8));
  EXPECT_THROW((void)bytesArray(kMiB + 1), std::bad_alloc);
  EXPECT_THROW((void)vxCalloc(kMiB + 1, 1), std::bad_alloc);
  EXPECT_THROW((void)vxMalloc(kMiB + 1), std::bad_alloc);
}

TEST_F(Memory, LimitAppliesToScalars) {
  setMemoryLimit(4);
  constexpr std::size_t kDimensions[] = {1, 1};
  EXPECT_NO_THROW((void)matrix::detail::do_create_numeric(vxSINGLE, kDimensions));
  EXPECT_THROW((void)matrix::detail::do_create_numeric(vxDOUBLE, kDimensions), std::bad_alloc);
}

TEST_F(Memory, RefusalTouchesNoMemory) {
  const std::size_t tooMuch = memoryLimit() + 1;
  const std::size_t before = residentBytes();
  EXPECT_THROW((void)vxCalloc(tooMuch, 1), std::bad_alloc);
  EXPECT_THROW((void)bytesArray(tooMuch), std::bad_alloc);
  EXPECT_LT(residentBytes(), before + 8 * kMiB);
}

TEST_F(Memory, ProductOfCountAndSizeMayNotOverflow) {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
  EXPECT_THROW((void)vxCalloc(kMost / 2 + 1, 2), std::bad_alloc);
  EXPECT_THROW((void)vxCalloc(kMost, 1), std::bad_alloc);
  EXPECT_THROW((void)vxMalloc(kMost), std::bad_alloc);
  setMemoryLimit(kMost);
  EXPECT_THROW((void)vxMalloc(kMost - 8), std::bad_alloc);
}

TEST_F(Memory, BlocksAreAlignedAndMayBeNothing) {
  for (const std::size_t size : Sizes{0, 1, 63, 900, 1000, 4095, 4096, kMiB, 5 * kMiB}) {
    SCOPED_TRACE(size);
    void* block = vxMalloc(size);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 64, 0U);
    std::memset(block, 1, size);
    vxFree(block);
  }
  vxFree(nullptr);
}

TEST_F(Memory, ZeroedBlocksAreZeroAlsoWhenReused) {
  for (const std::size_t size : Sizes{10, 1000, 5000, 200000, kMiB, 5 * kMiB}) {
    for (int turn = 0; turn < 2; ++turn) {
      auto* block = static_cast<std::uint8_t*>(vxCalloc(size, 1));
      for (std::size_t at = 0; at < size; ++at) ASSERT_EQ(block[at], 0) << size << " " << at;
      std::memset(block, 0xFF, size);
      vxFree(block);
    }
  }
}

TEST_F(Memory, ZeroedLargeBlockIsNotTouched) {
  const std::size_t before = residentBytes();
  void* block = vxCalloc(512 * kMiB, 1);
  EXPECT_LT(residentBytes(), before + 16 * kMiB + (kAddressSanitizer ? 128 * kMiB : 0));
  vxFree(block);
}

TEST_F(Cache, LargeBlocksStartOneKibibyteIntoAPage) {
  for (const std::size_t size : Sizes{4096, 70000, kMiB, 6 * kMiB}) {
    void* block = vxMalloc(size);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 4096, 1024U) << size;
    vxFree(block);
  }
}

class PageFaults : public Cache, public testing::WithParamInterface<std::size_t> {};

TEST_P(PageFaults, DoNotOccurInALoopOverEqualBlocks) {
  const std::size_t size = GetParam();
  const auto readOneBlock = [&] {
    void* decoded = vxCalloc(size, 1);
    const vxArrayPtr array = bytesArray(size);
    std::memset(vxGetWritableData(array.get()), 1, size);
    std::memset(decoded, 1, size);
    vxFree(decoded);
  };
  readOneBlock();
  readOneBlock();
  const long before = pageFaults();
  for (int turn = 0; turn < 10; ++turn) readOneBlock();
  EXPECT_EQ(pageFaults() - before, 0);
}
INSTANTIATE_TEST_SUITE_P(Sizes, PageFaults,
                         testing::Values(1000, 8192, 65536, kMiB, 3 * kMiB, 4 * kMiB, 16 * kMiB));

TEST_F(Cache, ReusesTheBlockReleasedLast) {
  void* first = vxMalloc(kMiB);
  vxFree(first);
  void* second = vxMalloc(kMiB - 100);
  EXPECT_EQ(second, first);
  vxFree(second);
}

TEST_F(Cache, GivesMemoryBackOnRequest) {
  const std::size_t before = residentBytes();
  {
    const vxArrayPtr array = bytesArray(64 * kMiB);
    std::memset(vxGetWritableData(array.get()), 1, 64 * kMiB);
  }
  EXPECT_GE(cachedBytes(), 64 * kMiB);
  EXPECT_GT(residentBytes(), before + 48 * kMiB);
  releaseCachedMemory();
  EXPECT_EQ(cachedBytes(), 0U);
  EXPECT_LT(residentBytes(), before + 16 * kMiB);
}

TEST_F(Cache, StaysWithinItsLimit) {
  setCacheLimit(8 * kMiB);
  EXPECT_EQ(cacheLimit(), 8 * kMiB);
  std::vector<vxArrayPtr> arrays;
  for (std::size_t i = 1; i <= 20; ++i) arrays.push_back(bytesArray(i * kMiB / 4));
  arrays.clear();
  EXPECT_LE(cachedBytes(), 8 * kMiB);
  EXPECT_GT(cachedBytes(), 0U);
  setCacheLimit(kMiB);
  EXPECT_LE(cachedBytes(), kMiB);
  setCacheLimit(0);
  EXPECT_EQ(cachedBytes(), 0U);
  (void)bytesArray(kMiB);
  EXPECT_EQ(cachedBytes(), 0U);
}

TEST_F(Cache, FollowsAChangeOfBlockSizes) {
  setCacheLimit(8 * kMiB);
  for (const std::size_t size : {2 * kMiB, 3 * kMiB}) {
    std::vector<vxArrayPtr> arrays;
    for (int i = 0; i < 4; ++i) arrays.push_back(bytesArray(size));
  }
  void* block = vxMalloc(3 * kMiB);  // the older blocks gave way to these
  const std::size_t keptMeanwhile = cachedBytes();
  vxFree(block);
  EXPECT_GT(cachedBytes(), keptMeanwhile + 3 * kMiB - 1);
  EXPECT_LE(cachedBytes(), 8 * kMiB);
}

// The child has no thread that could release what another thread of the parent had locked; nor has
// the sanitizer's allocator then, which this fixture leaves out.
TEST_F(Cache, IsServedInAForkedProcess) {
  std::atomic<bool> done = false;
  const auto work = [&] {
    while (!done) {
      std::vector<vxArrayPtr> arrays(200);
      for (vxArrayPtr& array : arrays) array = bytesArray(100);
      vxFree(vxMalloc(10000));
    }
  };
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) threads.emplace_back(work);
  int good = 0;
  for (int turn = 0; turn < 100; ++turn) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(10);
      std::vector<vxArrayPtr> arrays(200);
      for (vxArrayPtr& array : arrays) array = bytesArray(100);
      vxFree(vxMalloc(10000));
      _exit(0);
    }
    int status = -1;
    good += waitpid(child, &status, 0) == child && status == 0 ? 1 : 0;
  }
  done = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, 100);
}

TEST_F(Memory, ServesManyThreadsAtOnce) {
  const auto work = [](unsigned seed) {
    std::vector<void*> blocks(40, nullptr);
    for (unsigned turn = 0; turn < 4000; ++turn) {
      seed = seed * 1664525U + 1013904223U;
      void*& place = blocks[(seed >> 8) % blocks.size()];
      vxFree(place);
      const std::size_t size = std::size_t{1} << ((seed >> 20) % 18);
      place = vxMalloc(size);
      std::memset(place, static_cast<int>(seed), size);
    }
    for (void* block : blocks) vxFree(block);
  };
  std::vector<std::thread> threads;
  for (unsigned seed = 1; seed <= 4; ++seed) threads.emplace_back(work, seed);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace tb::runtime

// The kernels on every instruction set of this machine against plain loops: any sizes, strides and
// alignments, in memory that ends with the last byte that a kernel may touch.
#include <fuzzer/FuzzedDataProvider.h>
#include <hwy/targets.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/finding.h"
#include "kernels/block_copy.h"
#include "kernels/logicals.h"
#include "runtime/rgb_bytes.h"
#include "runtime/sanitizer.h"
#include "tests/support/plain_kernels.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tb::fuzz {
namespace {

namespace plain = test::plain;

constexpr std::size_t kMostBytes = std::size_t{1} << 21;
constexpr std::size_t kPage = 4096;

// Some bytes, the first of which lies at any alignment and the last at the end of the memory.
class Memory {
 public:
  Memory(FuzzedDataProvider& input, std::size_t size)
      : offset_(input.ConsumeIntegralInRange<std::size_t>(0, 15)),
        bytes_(std::max<std::size_t>(offset_ + size, 1)) {  // arrays of no bytes have a place too
    std::minstd_rand random(input.ConsumeIntegral<std::uint16_t>());
    const bool isSparse = input.ConsumeBool();  // half of them 0
    for (std::byte& byte : bytes_) {
      const auto drawn = static_cast<unsigned>(random()) >> 8;
      byte = static_cast<std::byte>(isSparse && (drawn & 0x100U) != 0 ? 0U : drawn);
    }
  }
  std::byte* data() { return bytes_.data() + offset_; }
  const std::byte* data() const { return bytes_.data() + offset_; }
  // Not byte by byte, as vectors of std::byte are compared.
  friend bool operator==(const Memory& a, const Memory& b) {
    return a.offset_ == b.offset_ && a.bytes_.size() == b.bytes_.size() &&
           std::memcmp(a.bytes_.data(), b.bytes_.data(), a.bytes_.size()) == 0;
  }

 private:
  std::size_t offset_;
  std::vector<std::byte> bytes_;
};

// Calls `work` once for every instruction set, with its name.
template <class Work>
void onEveryTarget(const Work& work) {
  for (const std::int64_t target : hwy::SupportedAndGeneratedTargets()) {
    // Highway's emulation loads words from any address as if they were aligned, which is undefined.
    if (target == HWY_EMU128 && runtime::kAddressSanitizer) continue;
    hwy::SetSupportedTargetsForTest(target);
    work(hwy::TargetName(target));
  }
  hwy::SetSupportedTargetsForTest(0);
}

// --- Blocks and planes

std::size_t anySize(FuzzedDataProvider& input) {
  constexpr std::size_t kLarge[] = {255, 256, 257, 511, 513, 1023, 1024, 1031};
  const auto choice = input.ConsumeIntegralInRange<std::size_t>(0, 159);
  return choice < 150 ? choice : kLarge[choice % std::size(kLarge)];
}

// At least `least`: exactly, a little more, or in whole pages.
std::size_t anyStride(FuzzedDataProvider& input, std::size_t least, std::size_t elementSize) {
  const auto more = input.ConsumeIntegralInRange<std::size_t>(0, 99);
  if (more < 40) return least;
  if (more < 85) return least + (more - 40);
  return std::max<std::size_t>(1, (least * elementSize + kPage - 1) / kPage) * kPage / elementSize;
}

// `rowBytes` tells the bytes of a row of the block.
template <class RowBytes>
BlockShape anyShape(FuzzedDataProvider& input, std::size_t elementSize, std::size_t mostSamples,
                    const RowBytes& rowBytes) {
  BlockShape shape{.rows = anySize(input),
                   .columns = anySize(input),
                   .samples = input.ConsumeIntegralInRange<std::size_t>(1, mostSamples),
                   .blockStride = 0,
                   .columnStride = 0,
                   .planeStride = 0};
  if (input.ConsumeBool()) {  // the samples of a column behind one another, then the next column
    shape.planeStride = anyStride(input, shape.rows, elementSize);
    shape.columnStride = anyStride(input, shape.planeStride * shape.samples, elementSize);
  } else {
    shape.columnStride = anyStride(input, shape.rows, elementSize);
    shape.planeStride = anyStride(input, shape.columnStride * shape.columns, elementSize);
  }
  shape.blockStride = anyStride(input, rowBytes(shape), 1);
  const std::size_t blockBytes = shape.rows * shape.blockStride;
  if (std::max(blockBytes, plain::planeBytes(shape, elementSize)) <= kMostBytes) return shape;
  shape.rows = std::min<std::size_t>(shape.rows, 20);
  shape.columns = std::min<std::size_t>(shape.columns, 20);
  shape.columnStride = shape.rows;
  shape.planeStride = shape.rows * shape.columns;
  shape.blockStride = rowBytes(shape);
  return shape;
}

// Runs `kernel` on every target and `reference` once, both from `from` to copies of `to`.
template <class Kernel>
void compare(const char* name, const std::string& shape, Memory& from, Memory& to,
             const Kernel& kernel, const Kernel& reference) {
  Memory expected = to;
  reference(from.data(), expected.data());
  onEveryTarget([&](const char* target) {
    Memory result = to;
    kernel(from.data(), result.data());
    if (!(result == expected)) fail(std::string(name) + " of " + target + " for " + shape);
  });
}

using Copy = std::function<void(const std::byte* from, std::byte* to)>;

void tryCopies(FuzzedDataProvider& input) {
  constexpr std::size_t kElementSizes[] = {1, 2, 4, 8};
  const std::size_t size = input.PickValueInArray(kElementSizes);
  const BlockShape shape = anyShape(input, size, 9, [size](const BlockShape& each) {
    return each.columns * each.samples * size;
  });
  const std::string text = std::to_string(size) + " bytes, " + plain::described(shape);
  Memory block(input, plain::blockBytes(shape, size));
  Memory planes(input, plain::planeBytes(shape, size));
  compare<Copy>(
      "copyBlockToColumns", text, block, planes,
      [&](auto* from, auto* to) { copyBlockToColumns(from, to, size, shape); },
      [&](auto* from, auto* to) { plain::copyBlockToColumns(from, to, size, shape); });
  compare<Copy>(
      "copyColumnsToBlock", text, planes, block,
      [&](auto* from, auto* to) { copyColumnsToBlock(from, to, size, shape); },
      [&](auto* from, auto* to) { plain::copyColumnsToBlock(from, to, size, shape); });
}

void tryUnpacking(FuzzedDataProvider& input) {
  const BlockShape shape = anyShape(input, 1, 9, plain::bitRowBytes);
  Memory block(input, plain::bitBlockBytes(shape));
  Memory planes(input, plain::planeBytes(shape, 1));
  compare<Copy>(
      "unpackBitsToLogicals", plain::described(shape), block, planes,
      [&](auto* from, auto* to) { unpackBitsToLogicals(from, to, shape); },
      [&](auto* from, auto* to) { plain::unpackBitsToLogicals(from, to, shape); });
}

void tryPacking(FuzzedDataProvider& input) {
  const BlockShape shape = anyShape(input, 1, 1, plain::bitRowBytes);
  Memory block(input, plain::bitBlockBytes(shape));
  Memory planes(input, plain::planeBytes(shape, 1));
  compare<Copy>(
      "packLogicalsToBits", plain::described(shape), planes, block,
      [&](auto* from, auto* to) { packLogicalsToBits(from, to, shape); },
      [&](auto* from, auto* to) { plain::packLogicalsToBits(from, to, shape); });
}

// --- Units

YCbCrShape anyUnits(FuzzedDataProvider& input) {
  const auto factor = [&] { return input.ConsumeIntegralInRange<std::size_t>(1, 5); };
  const std::size_t horizontal = factor();
  const std::size_t vertical = factor();
  const std::size_t padding = input.ConsumeIntegralInRange<std::size_t>(0, 20);
  return plain::covering(anySize(input), std::min<std::size_t>(anySize(input), 300), horizontal,
                         vertical, padding);
}

void trySplitting(FuzzedDataProvider& input) {
  YCbCrShape shape = anyUnits(input);
  // Units that reach past the array, as those at the edges of an image do.
  shape.lumaRows -= std::min(shape.lumaRows, input.ConsumeIntegralInRange<std::size_t>(0, 9));
  shape.lumaColumns -= std::min(shape.lumaColumns, input.ConsumeIntegralInRange<std::size_t>(0, 9));
  Memory units(input, plain::unitsBytes(shape));
  Memory y(input, plain::lumaBytes(shape));
  Memory cb(input, plain::chromaBytes(shape)), cr(input, plain::chromaBytes(shape));
  Memory expectedY = y, expectedCb = cb, expectedCr = cr;
  plain::splitYCbCrUnits(units.data(), expectedY.data(), expectedCb.data(), expectedCr.data(),
                         shape);
  onEveryTarget([&](const char* target) {
    Memory gotY = y, gotCb = cb, gotCr = cr;
    splitYCbCrUnits(units.data(), gotY.data(), gotCb.data(), gotCr.data(), shape);
    if (!(gotY == expectedY && gotCb == expectedCb && gotCr == expectedCr))
      fail("splitYCbCrUnits of " + std::string(target) + " for " + plain::described(shape));
  });
}

void tryJoining(FuzzedDataProvider& input) {
  YCbCrShape shape = anyUnits(input);
  shape.lumaRows = shape.unitRows * shape.vertical;
  shape.lumaColumns = shape.unitColumns * shape.horizontal;
  shape.lumaColumnStride = anyStride(input, shape.lumaRows, 1);
  if (shape.unitColumns > 0 && input.ConsumeIntegralInRange(0, 9) == 0)
    shape.unitStride = shape.unitColumns - 1;  // rows of units overlap
  Memory y(input, plain::lumaBytes(shape));
  Memory cb(input, plain::chromaBytes(shape)), cr(input, plain::chromaBytes(shape));
  Memory units(input, plain::unitsBytes(shape));
  Memory expected = units;
  plain::joinYCbCrUnits(y.data(), cb.data(), cr.data(), expected.data(), shape);
  onEveryTarget([&](const char* target) {
    Memory got = units;
    joinYCbCrUnits(y.data(), cb.data(), cr.data(), got.data(), shape);
    if (!(got == expected))
      fail("joinYCbCrUnits of " + std::string(target) + " for " + plain::described(shape));
  });
}

// --- RGB

// Numbers that begin at any multiple of their size, and end with the last that a kernel may read.
class Plane {
 public:
  Plane(FuzzedDataProvider& input, std::size_t count)
      : offset_(input.ConsumeIntegralInRange<std::size_t>(0, 3)),
        numbers_(std::max<std::size_t>(offset_ + count, 1)) {
    std::minstd_rand random(input.ConsumeIntegral<std::uint16_t>());
    // Signed samples as well, and more of the least and the greatest than there would be.
    const bool isExtreme = input.ConsumeBool();
    constexpr std::int32_t kExtremes[] = {-128, -1, 0, 1, 127, 128, 254, 255};
    for (std::int32_t& number : numbers_) {
      const auto drawn = static_cast<unsigned>(random()) >> 8;
      number = isExtreme ? kExtremes[drawn % std::size(kExtremes)]
                         : static_cast<std::int32_t>(drawn % 384) - 128;
    }
  }
  const std::int32_t* data() const { return numbers_.data() + offset_; }

 private:
  std::size_t offset_;
  std::vector<std::int32_t> numbers_;
};

using Planes = std::array<Plane, 3>;

void checkJoinedRgb(const Planes& planes, std::size_t count, const Memory& before) {
  Memory expected = before;
  for (std::size_t i = 0; i < 3 * count; ++i)
    expected.data()[i] = static_cast<std::byte>(planes[i % 3].data()[i / 3]);
  onEveryTarget([&](const char* target) {
    Memory got = before;
    runtime::joinRgbBytes(planes[0].data(), planes[1].data(), planes[2].data(), count,
                          reinterpret_cast<std::uint8_t*>(got.data()));
    if (!(got == expected))
      fail("joinRgbBytes of " + std::string(target) + " for " + std::to_string(count));
  });
}

// Whether a byte is as near to a number as rounding takes it, or, between two, either of them.
bool isNearest(std::byte byte, double exact) {
  constexpr double kNearest = 0.5001;
  return std::abs(std::to_integer<int>(byte) - std::clamp(exact, 0.0, 255.0)) <= kNearest;
}

// The colours of pixels; what lies beyond them is given back to `got`.
bool areColours(Memory& got, const Planes& planes, std::size_t count, const Memory& before) {
  bool areAll = true;
  for (std::size_t i = 0; i < count; ++i) {
    const double y = planes[0].data()[i];
    const double cb = planes[1].data()[i] - 128, cr = planes[2].data()[i] - 128;
    const std::byte* const pixel = got.data() + 3 * i;
    areAll = areAll && isNearest(pixel[0], y + 1.402 * cr) &&
             isNearest(pixel[1], y - 0.344136286 * cb - 0.714136286 * cr) &&
             isNearest(pixel[2], y + 1.772 * cb);
  }
  std::memcpy(got.data(), before.data(), 3 * count);
  return areAll && got == before;
}

void checkConvertedRgb(const Planes& planes, std::size_t count, const Memory& before) {
  onEveryTarget([&](const char* target) {
    Memory got = before;
    runtime::joinRgbBytesFromYCbCr(planes[0].data(), planes[1].data(), planes[2].data(), count,
                                   reinterpret_cast<std::uint8_t*>(got.data()));
    if (!areColours(got, planes, count, before))
      fail("joinRgbBytesFromYCbCr of " + std::string(target) + " for " + std::to_string(count));
  });
}

void tryRgb(FuzzedDataProvider& input) {
  const std::size_t count = anySize(input);
  const Planes planes{Plane(input, count), Plane(input, count), Plane(input, count)};
  const Memory rgb(input, 3 * count);
  checkJoinedRgb(planes, count, rgb);
  checkConvertedRgb(planes, count, rgb);
}

using Trial = void (*)(FuzzedDataProvider&);
constexpr Trial kTrials[] = {tryCopies, tryUnpacking, tryPacking, trySplitting, tryJoining, tryRgb};

}  // namespace
}  // namespace tb::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  input.PickValueInArray(tb::fuzz::kTrials)(input);
  return 0;
}

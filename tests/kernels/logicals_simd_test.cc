// The kernels between packed bits and logical bytes, on every instruction set, against loops over
// single bits.

#include "hwy/tests/hwy_gtest.h"
#include "kernels/logicals.h"
#include "tests/support/kernel_memory.h"
#include "tests/support/plain_kernels.h"

namespace tb {
namespace {

namespace plain = test::plain;
using test::KernelInput;
using test::KernelOutput;
using test::Sizes;

BlockShape tight(std::size_t rows, std::size_t columns, std::size_t samples) {
  return {rows, columns, samples, (columns * samples + 7) / 8, rows, rows * columns};
}

BlockShape clipped(std::size_t rows, std::size_t columns, std::size_t samples) {
  return {
      rows, columns, samples, (columns * samples + 7) / 8 + 3, rows + 5, (rows + 5) * columns + 7};
}

void expectUnpacked(const BlockShape& shape) {
  KernelInput block(plain::bitBlockBytes(shape));
  KernelOutput logicals(plain::planeBytes(shape, 1)), expected = logicals;
  plain::unpackBitsToLogicals(block.data(), expected.data(), shape);

  unpackBitsToLogicals(block.data(), logicals.data(), shape);

  ASSERT_TRUE(logicals == expected) << plain::described(shape);
}

// Sparse non-zero bytes of any value, so that zeros and ones are about as frequent.
KernelInput someLogicals(std::size_t size) {
  KernelInput logicals(size);
  for (std::size_t i = 0; i < size; ++i)
    if ((logicals.data()[i] & std::byte{8}) != std::byte{0}) logicals.data()[i] = std::byte{0};
  return logicals;
}

void expectPacked(const BlockShape& shape) {
  KernelInput logicals = someLogicals(plain::planeBytes(shape, 1));
  KernelOutput block(plain::bitBlockBytes(shape)), expected = block;
  plain::packLogicalsToBits(logicals.data(), expected.data(), shape);

  packLogicalsToBits(logicals.data(), block.data(), shape);

  ASSERT_TRUE(block == expected) << plain::described(shape);
}

constexpr std::size_t kHeights[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11,  12,  13,  14,
                                    15, 16, 17, 31, 32, 33, 63, 64, 65, 96, 127, 130, 257, 300};

class LogicalsSimd : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(LogicalsSimd);

TEST_P(LogicalsSimd, BitsOfEveryHeightAndWidthAreUnpacked) {
  for (const std::size_t rows : kHeights)
    for (std::size_t columns = 1; columns <= 140; ++columns)
      ASSERT_NO_FATAL_FAILURE(expectUnpacked(tight(rows, columns, 1)));
}

TEST_P(LogicalsSimd, BitsOfSeveralSamplesGoToTheirPlanes) {
  for (std::size_t samples = 2; samples <= 6; ++samples)
    for (const std::size_t rows : kHeights)
      for (std::size_t columns = 1; columns <= 45; ++columns)
        ASSERT_NO_FATAL_FAILURE(expectUnpacked(tight(rows, columns, samples)));
}

TEST_P(LogicalsSimd, UnpackingLeavesPaddingAlone) {
  for (const std::size_t rows : kHeights)
    for (const std::size_t columns : Sizes{1, 7, 8, 9, 127, 128, 513, 1031})
      for (const std::size_t samples : Sizes{1, 3})
        ASSERT_NO_FATAL_FAILURE(expectUnpacked(clipped(rows, columns, samples)));
}

TEST_P(LogicalsSimd, LogicalsOfEveryHeightAndWidthArePacked) {
  for (const std::size_t rows : kHeights)
    for (std::size_t columns = 1; columns <= 140; ++columns)
      ASSERT_NO_FATAL_FAILURE(expectPacked(tight(rows, columns, 1)));
}

TEST_P(LogicalsSimd, PackingLeavesBytesBehindARowAlone) {
  for (const std::size_t rows : kHeights)
    for (const std::size_t columns : Sizes{1, 7, 8, 9, 127, 128, 513, 1031})
      ASSERT_NO_FATAL_FAILURE(expectPacked(clipped(rows, columns, 1)));
}

TEST_P(LogicalsSimd, WideThinStripsAreExact) {
  for (std::size_t rows = 1; rows <= 18; ++rows)
    for (const std::size_t columns : Sizes{1024, 1025, 2055, 8209}) {
      ASSERT_NO_FATAL_FAILURE(expectUnpacked(tight(rows, columns, 1)));
      ASSERT_NO_FATAL_FAILURE(expectPacked(tight(rows, columns, 1)));
    }
}

TEST_P(LogicalsSimd, NothingToCopyTouchesNothing) {
  for (const BlockShape shape : {BlockShape{0, 4, 1, 4, 4, 16}, BlockShape{0, 4, 1, 4, 0, 0},
                                 BlockShape{4, 0, 1, 4, 4, 16}}) {
    unpackBitsToLogicals(nullptr, nullptr, shape);
    packLogicalsToBits(nullptr, nullptr, shape);
  }
}

}  // namespace
}  // namespace tb

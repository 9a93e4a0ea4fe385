// The kernels between row-major blocks and column-major planes, on every instruction set, against
// loops over single elements.

#include <ostream>
#include <utility>

#include "hwy/tests/hwy_gtest.h"
#include "kernels/block_copy.h"
#include "tests/support/kernel_memory.h"
#include "tests/support/plain_kernels.h"

namespace tb {
namespace {

namespace plain = test::plain;
using test::KernelInput;
using test::KernelOutput;
using test::Sizes;

struct Case {
  std::size_t elementSize;
  BlockShape shape;
};

std::ostream& operator<<(std::ostream& out, const Case& c) {
  return out << c.elementSize << " bytes, " << plain::described(c.shape);
}

void expectBothDirections(const Case& c) {
  const std::size_t blockBytes = plain::blockBytes(c.shape, c.elementSize);
  const std::size_t planeBytes = plain::planeBytes(c.shape, c.elementSize);
  KernelInput block(blockBytes), planes(planeBytes);
  KernelOutput toPlanes(planeBytes), expectedPlanes(planeBytes);
  KernelOutput toBlock(blockBytes), expectedBlock(blockBytes);
  plain::copyBlockToColumns(block.data(), expectedPlanes.data(), c.elementSize, c.shape);
  plain::copyColumnsToBlock(planes.data(), expectedBlock.data(), c.elementSize, c.shape);

  copyBlockToColumns(block.data(), toPlanes.data(), c.elementSize, c.shape);
  copyColumnsToBlock(planes.data(), toBlock.data(), c.elementSize, c.shape);

  ASSERT_TRUE(toPlanes == expectedPlanes) << "block to columns, " << c;
  ASSERT_TRUE(toBlock == expectedBlock) << "columns to block, " << c;
}

// Block and array end with the copied pixels.
Case tight(std::size_t elementSize, std::size_t rows, std::size_t columns, std::size_t samples) {
  return {elementSize,
          {rows, columns, samples, columns * samples * elementSize, rows, rows * columns}};
}

// The copied pixels are part of a wider block and a taller array.
Case clipped(std::size_t elementSize, std::size_t rows, std::size_t columns, std::size_t samples) {
  return {elementSize,
          {rows, columns, samples, (columns * samples + 3) * elementSize + 1, rows + 5,
           (rows + 5) * columns + 7}};
}

constexpr std::size_t wholePages(std::size_t bytes) { return (bytes + 4095) / 4096 * 4096; }

// All rows of the block, and all columns of the array, meet in one set of the cache.
Case conflicting(std::size_t elementSize, std::size_t rows, std::size_t columns,
                 std::size_t samples) {
  const std::size_t columnStride = wholePages(rows * elementSize) / elementSize;
  return {elementSize,
          {rows, columns, samples, wholePages(columns * samples * elementSize), columnStride,
           columnStride * columns}};
}

// The same for the rows only, as in a strip; nothing lies between its columns.
Case conflictingRows(std::size_t elementSize, std::size_t rows, std::size_t columns,
                     std::size_t samples) {
  Case strip = tight(elementSize, rows, columns, samples);
  strip.shape.blockStride = wholePages(strip.shape.blockStride);
  return strip;
}

constexpr std::size_t kElementSizes[] = {1, 2, 4, 8};
constexpr std::size_t kSizesAroundVectors[] = {1,  2,  3,  4,  5,  7,  8,  9,   15,  16,
                                               17, 31, 32, 33, 63, 64, 65, 100, 127, 130};

class BlockCopySimd : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(BlockCopySimd);

TEST_P(BlockCopySimd, EveryHeightAndWidthUpToPastAPanelIsExact) {
  for (const std::size_t elementSize : kElementSizes)
    for (std::size_t rows = 1; rows <= 68; ++rows)
      for (std::size_t columns = 1; columns <= 68; ++columns)
        ASSERT_NO_FATAL_FAILURE(expectBothDirections(tight(elementSize, rows, columns, 1)));
}

TEST_P(BlockCopySimd, InterleavedSamplesGoToTheirPlanes) {
  for (const std::size_t elementSize : kElementSizes)
    for (std::size_t samples = 2; samples <= 6; ++samples)
      for (const std::size_t rows : kSizesAroundVectors)
        for (const std::size_t columns : Sizes{1, 2, 3, 5, 6, 8, 11, 16, 21, 22, 33, 64, 67})
          ASSERT_NO_FATAL_FAILURE(expectBothDirections(tight(elementSize, rows, columns, samples)));
}

TEST_P(BlockCopySimd, PaddingOfBlockAndArrayIsLeftAlone) {
  for (const std::size_t elementSize : kElementSizes)
    for (const std::size_t samples : Sizes{1, 3, 4})
      for (const std::size_t rows : kSizesAroundVectors)
        for (const std::size_t columns : kSizesAroundVectors)
          ASSERT_NO_FATAL_FAILURE(
              expectBothDirections(clipped(elementSize, rows, columns, samples)));
}

TEST_P(BlockCopySimd, StridesOfWholeCacheWaysAreExact) {
  for (const std::size_t elementSize : kElementSizes)
    for (const std::size_t samples : Sizes{1, 3})
      for (const std::size_t rows : Sizes{1, 2, 8, 9, 16, 17, 64, 65, 130})
        for (const std::size_t columns : Sizes{1, 15, 64, 100, 130}) {
          ASSERT_NO_FATAL_FAILURE(
              expectBothDirections(conflicting(elementSize, rows, columns, samples)));
          ASSERT_NO_FATAL_FAILURE(
              expectBothDirections(conflictingRows(elementSize, rows, columns, samples)));
        }
}

TEST_P(BlockCopySimd, NoRowsOrNoColumnsMoveNothing) {
  for (const std::size_t elementSize : kElementSizes)
    for (const std::size_t samples : Sizes{1, 3, 5})
      for (const auto& [rows, columns] : {std::pair<std::size_t, std::size_t>{0, 70}, {70, 0}}) {
        Case empty = conflicting(elementSize, 70, 70, samples);
        empty.shape.rows = rows;
        empty.shape.columns = columns;
        KernelInput from(1);
        KernelOutput to(1), untouched(1);
        copyBlockToColumns(from.data(), to.data(), elementSize, empty.shape);
        copyColumnsToBlock(from.data(), to.data(), elementSize, empty.shape);
        ASSERT_TRUE(to == untouched) << empty;
      }
}

TEST_P(BlockCopySimd, WideThinStripsAreExact) {
  for (const std::size_t elementSize : kElementSizes)
    for (const std::size_t samples : Sizes{1, 2, 3, 4, 5})
      for (std::size_t rows = 1; rows <= 17; ++rows) {
        ASSERT_NO_FATAL_FAILURE(expectBothDirections(tight(elementSize, rows, 1031, samples)));
        ASSERT_NO_FATAL_FAILURE(expectBothDirections(clipped(elementSize, rows, 1031, samples)));
      }
}

TEST_P(BlockCopySimd, LargeBlocksAreExact) {
  for (const std::size_t elementSize : kElementSizes) {
    ASSERT_NO_FATAL_FAILURE(expectBothDirections(tight(elementSize, 1029, 1031, 1)));
    ASSERT_NO_FATAL_FAILURE(expectBothDirections(conflicting(elementSize, 256, 1024, 1)));
  }
}

TEST_P(BlockCopySimd, NothingToCopyTouchesNothing) {
  for (const BlockShape shape : {BlockShape{0, 4, 1, 4, 4, 16}, BlockShape{4, 0, 1, 4, 4, 16}}) {
    copyBlockToColumns(nullptr, nullptr, 1, shape);
    copyColumnsToBlock(nullptr, nullptr, 1, shape);
  }
}

}  // namespace
}  // namespace tb

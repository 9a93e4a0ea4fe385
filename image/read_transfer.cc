#include "image/read_transfer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "core/errors.h"
#include "core/values.h"
#include "kernels/block_copy.h"
#include "kernels/logicals.h"

namespace tb {
namespace {

struct Matrix {
  std::size_t rows;
  std::size_t columns;
};

Matrix matrixOf(const vxArray& array) {
  const std::size_t* dimensions = vxGetDimensions(&array);
  return {dimensions[0], dimensions[1]};
}

std::uint64_t bitsPerBlockRow(const TiffImageMetaData_& record) {
  return std::uint64_t{record.blockWidth} * record.samplesPerBlock * record.bitsPerSample;
}

// Rows that are wholly inside the block's bytes.
std::size_t completeRows(std::span<const std::byte> block, const TiffImageMetaData_& record) {
  const std::size_t rowBytes = bytesPerBlockRow(record);
  if (rowBytes == 0) return 0;
  return std::min<std::size_t>(record.blockLength, block.size() / rowBytes);
}

BlockShape blockShape(const Matrix& matrix, std::size_t rows, const TiffImageMetaData_& record) {
  return {.rows = std::min(matrix.rows, rows),
          .columns = std::min<std::size_t>(matrix.columns, record.blockWidth),
          .samples = record.samplesPerBlock,
          .blockStride = bytesPerBlockRow(record),
          .columnStride = matrix.rows,
          .planeStride = matrix.rows * matrix.columns};
}

// A block that is shorter than its directory says. Pixels are taken in the array's column-major
// order for as many as the block has bytes for, and each only if its own bytes are there.
void transferPartialBlock(std::span<const std::byte> block, vxArray& array,
                          const TiffImageMetaData_& record) {
  const Matrix matrix = matrixOf(array);
  const std::size_t elementSize = record.bitsPerSample / 8U;
  const std::size_t pixelSize = elementSize * record.samplesPerBlock;
  if (pixelSize == 0 || record.blockLength == 0) return;
  const std::size_t pixelCount = block.size() / pixelSize;
  std::byte* data = writableDataOf(&array);
  for (std::size_t pixel = 0; pixel < pixelCount; ++pixel) {
    const std::size_t row = pixel % record.blockLength;
    const std::size_t column = pixel / record.blockLength;
    const std::uint64_t place = column + std::uint64_t{row} * record.blockWidth;
    if (row >= matrix.rows || column >= matrix.columns || place >= pixelCount) continue;
    const auto source = static_cast<std::size_t>(place);
    for (std::size_t sample = 0; sample < record.samplesPerBlock; ++sample) {
      const std::size_t target = row + column * matrix.rows + sample * matrix.rows * matrix.columns;
      std::memcpy(data + target * elementSize, &block[source * pixelSize + sample * elementSize],
                  elementSize);
    }
  }
}

}  // namespace

// Rows of bits start on a byte boundary; wider samples fill whole bytes anyway. No block has a row
// that is longer than memory.
std::size_t bytesPerBlockRow(const TiffImageMetaData_& record) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::size_t>::max();
  return static_cast<std::size_t>(std::min((bitsPerBlockRow(record) + 7) / 8, kMost));
}

vxArrayPtr createBlockArray(BlockExtent extent, const TiffImageMetaData_& record,
                            InitialElements elements) {
  const vxClassID classId = determineClassId(record);
  const std::size_t dimensions[] = {extent.rows, extent.columns, record.samplesPerPixel};
  const bool interleaved =
      record.planarConfig == PLANARCONFIG_CONTIG && record.samplesPerPixel >= 2;
  const std::span<const std::size_t> used(dimensions, interleaved ? 3 : 2);
  return elements == InitialElements::kAllStored
             ? matrix::detail::do_create_uninitnumeric(classId, used)
             : matrix::detail::do_create_numeric(classId, used);
}

bool coversExtent(std::span<const std::byte> block, BlockExtent extent,
                  const TiffImageMetaData_& record) {
  return extent.columns <= record.blockWidth && extent.rows <= completeRows(block, record);
}

void transferBlockToVx(std::span<const std::byte> block, vxArray& array,
                       const TiffImageMetaData_& record) {
  const std::uint16_t bits = record.bitsPerSample;
  if (bits != 8 && bits != 16 && bits != 32 && bits != 64)
    raise<Tiff::unhandledBitsPerSample>(bits);
  const Matrix matrix = matrixOf(array);
  const std::size_t rows = completeRows(block, record);
  if (record.samplesPerBlock == 1 || rows >= matrix.rows) {
    copyBlockToColumns(block.data(), writableDataOf(&array), bits / 8U,
                       blockShape(matrix, rows, record));
  } else {
    transferPartialBlock(block, array, record);
  }
}

void transferLogicalBlockToVx(std::span<const std::byte> block, vxArray& array,
                              const TiffImageMetaData_& record) {
  unpackBitsToLogicals(block.data(), writableDataOf(&array),
                       blockShape(matrixOf(array), completeRows(block, record), record));
}

}  // namespace tb

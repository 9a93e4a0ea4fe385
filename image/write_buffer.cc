#include "image/write_buffer.h"

#include <algorithm>
#include <cstdint>

#include "core/errors.h"
#include "core/values.h"
#include "kernels/block_copy.h"
#include "kernels/logicals.h"

namespace tb {
namespace {

struct ClipWarnings {
  Warning length;
  Warning width;
};
constexpr ClipWarnings kStripWarnings = {Warning::dataLengthExceedsRowsPerStrip,
                                         Warning::dataWidthExceedsImageWidth};
constexpr ClipWarnings kTileWarnings = {Warning::dataLengthExceedsTileLength,
                                        Warning::dataWidthExceedsTileWidth};

std::size_t clip(std::size_t size, std::size_t limit, Warning warning) {
  if (size <= limit) return size;
  warn(warning, limit, size);
  return limit;
}

// Calls `fill(rows, columns, firstRow)` for the part of a rows x columns block whose bytes are in
// the buffer: complete rows, then what fits of one more. `pixelsIn(bytes)` says how many pixels of
// a row a number of bytes holds.
template <class Fill, class PixelsIn>
void fillWithinBuffer(std::size_t bufferSize, std::size_t rowBytes, std::size_t rows,
                      std::size_t columns, const PixelsIn& pixelsIn, const Fill& fill) {
  if (rowBytes == 0) return;
  const std::size_t complete = std::min(rows, bufferSize / rowBytes);
  fill(complete, columns, 0);
  if (complete < rows) {
    fill(1, std::min(columns, pixelsIn(bufferSize - complete * rowBytes)), complete);
  }
}

}  // namespace

void fillWriteBuffer(InputImages images, std::span<std::byte> buffer,
                     const TiffImageMetaData_& record) {
  const std::size_t* dimensions = vxGetDimensions(images[0]);
  const ClipWarnings& warnings = record.isTiled ? kTileWarnings : kStripWarnings;
  const std::size_t rows = clip(dimensions[0], record.blockLength, warnings.length);
  const std::size_t columns = clip(dimensions[1], record.blockWidth, warnings.width);
  if (record.bitsPerSample == 1) {
    fillWriteBufferLogical(images[0], buffer, record, rows, columns);
  } else if (record.photometric == PHOTOMETRIC_YCBCR && record.jpegColorMode == JPEGCOLORMODE_RAW) {
    fillWriteBufferYCbCr(images, buffer, record, rows, columns);
  } else {
    fillWriteBufferNotLogical(images[0], buffer, record, rows, columns);
  }
}

bool fillsWholeBuffer(InputImages images, std::size_t bufferSize,
                      const TiffImageMetaData_& record) {
  const bool logical = record.bitsPerSample == 1;
  if (record.photometric == PHOTOMETRIC_YCBCR && !logical) return false;
  const std::size_t* dimensions = vxGetDimensions(images[0]);
  const std::size_t samples = logical ? 1 : record.samplesPerBlock;
  const std::uint64_t rowBits = std::uint64_t{record.blockWidth} * samples * record.bitsPerSample;
  return rowBits % 8 == 0 && bufferSize == rowBits / 8 * record.blockLength &&
         dimensions[0] >= record.blockLength && dimensions[1] >= record.blockWidth;
}

void fillWriteBufferNotLogical(const vxArray* image, std::span<std::byte> buffer,
                               const TiffImageMetaData_& record, std::size_t rows,
                               std::size_t columns) {
  const std::uint16_t bits = record.bitsPerSample;
  if (bits != 8 && bits != 16 && bits != 32 && bits != 64)
    raise<Tiff::unhandledBitsPerSample>(bits);
  const std::size_t elementSize = bits / 8U;
  const std::size_t pixelSize = elementSize * record.samplesPerBlock;
  const std::size_t rowBytes = record.blockWidth * pixelSize;
  const std::size_t* dimensions = vxGetDimensions(image);
  fillWithinBuffer(
      buffer.size(), rowBytes, rows, columns, [&](std::size_t bytes) { return bytes / pixelSize; },
      [&](std::size_t rowCount, std::size_t columnCount, std::size_t firstRow) {
        copyColumnsToBlock(dataOf(image) + firstRow * elementSize,
                           buffer.data() + firstRow * rowBytes, elementSize,
                           {.rows = rowCount,
                            .columns = columnCount,
                            .samples = record.samplesPerBlock,
                            .blockStride = rowBytes,
                            .columnStride = dimensions[0],
                            .planeStride = dimensions[0] * dimensions[1]});
      });
}

void fillWriteBufferLogical(const vxArray* image, std::span<std::byte> buffer,
                            const TiffImageMetaData_& record, std::size_t rows,
                            std::size_t columns) {
  const std::size_t rowBytes = (std::size_t{record.blockWidth} + 7) / 8;
  fillWithinBuffer(
      buffer.size(), rowBytes, rows, columns, [](std::size_t bytes) { return bytes * 8; },
      [&](std::size_t rowCount, std::size_t columnCount, std::size_t firstRow) {
        packLogicalsToBits(dataOf(image) + firstRow, buffer.data() + firstRow * rowBytes,
                           {.rows = rowCount,
                            .columns = columnCount,
                            .samples = 1,
                            .blockStride = rowBytes,
                            .columnStride = rows,
                            .planeStride = rows * columns});
      });
}

}  // namespace tb

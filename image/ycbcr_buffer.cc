// Y, Cb and Cr to libtiff's units. Units that lie wholly inside the luma array and the buffer go
// through the kernel; those at the array's lower and right edge wrap around and are built byte by
// byte.
#include <algorithm>
#include <cstdint>

#include "core/values.h"
#include "image/unsigned_arithmetic.h"
#include "image/write_buffer.h"
#include "kernels/ycbcr_units.h"

namespace tb {
namespace {

struct UnitWriter {
  const std::byte* y;
  const std::byte* cb;
  const std::byte* cr;
  std::span<std::byte> buffer;
  std::size_t lumaRows;
  std::size_t lumaColumns;
  std::size_t chromaRows;
  std::size_t horizontal;
  std::size_t vertical;
  std::size_t unitStride;      // units from one unit row to the next
  std::size_t bytesPerSample;  // spreads the units apart; a sample is one byte all the same

  std::size_t lumaPerUnit() const { return horizontal * vertical; }
  std::size_t unitSize() const { return lumaPerUnit() + 2; }

  void store(std::size_t position, std::byte value) const {
    if (position < buffer.size()) buffer[position] = value;
  }

  void writeUnit(std::size_t unitRow, std::size_t unitColumn) const {
    const std::size_t start = unitSize() * bytesPerSample * (unitColumn + unitRow * unitStride);
    // Factors of 65535 make a unit of billions of samples: only those that have room are counted.
    const std::size_t room = buffer.size() - std::min(start, buffer.size());
    for (std::size_t k = 0; k < std::min(lumaPerUnit(), room); ++k) {
      const std::size_t row = k / horizontal + unitRow * vertical;
      const std::size_t column = k % horizontal + unitColumn * horizontal;
      buffer[start + k] = y[(row + column * lumaRows) % (lumaRows * lumaColumns)];
    }
    const std::size_t chroma = unitRow + unitColumn * chromaRows;
    store(start + lumaPerUnit(), cb[chroma]);
    store(start + lumaPerUnit() + 1, cr[chroma]);
  }

  // True when the first `unitColumns` units of a unit row need neither wrapping nor clipping.
  bool isInside(std::size_t unitRow, std::size_t unitColumns) const {
    return bytesPerSample == 1 && (unitRow + 1) * vertical <= lumaRows &&
           (unitRow * unitStride + unitColumns) * unitSize() <= buffer.size();
  }

  void writeUnits(std::size_t firstUnitRow, std::size_t unitRows, std::size_t unitColumns) const {
    joinYCbCrUnits(y + firstUnitRow * vertical, cb + firstUnitRow, cr + firstUnitRow,
                   buffer.data() + firstUnitRow * unitStride * unitSize(),
                   {.unitRows = unitRows,
                    .unitColumns = unitColumns,
                    .unitStride = unitStride,
                    .horizontal = horizontal,
                    .vertical = vertical,
                    .lumaRows = lumaRows,
                    .lumaColumns = lumaColumns,
                    .lumaColumnStride = lumaRows,
                    .chromaColumnStride = chromaRows});
  }
};

UnitWriter unitWriter(InputImages images, std::span<std::byte> buffer,
                      const TiffImageMetaData_& record) {
  const std::size_t* luma = vxGetDimensions(images[0]);
  const std::size_t h = record.ycbcrSubsampling[0];
  return {.y = dataOf(images[0]),
          .cb = dataOf(images[1]),
          .cr = dataOf(images[2]),
          .buffer = buffer,
          .lumaRows = luma[0],
          .lumaColumns = luma[1],
          .chromaRows = vxGetDimensions(images[1])[0],
          .horizontal = h,
          .vertical = record.ycbcrSubsampling[1],
          .unitStride = record.blockWidth / h,
          .bytesPerSample = record.bitsPerSample / 8U};
}

// Unit rows that can be written together: the kernel's rows must not overlap the units after them.
std::size_t insideRows(const UnitWriter& writer, std::size_t unitRows, std::size_t unitColumns) {
  std::size_t inside = std::min(unitRows, writer.lumaRows / writer.vertical);
  while (inside > 0 && !writer.isInside(inside - 1, unitColumns)) --inside;
  return inside;
}

}  // namespace

void fillWriteBufferYCbCr(InputImages images, std::span<std::byte> buffer,
                          const TiffImageMetaData_& record, std::size_t rows, std::size_t columns) {
  const UnitWriter writer = unitWriter(images, buffer, record);
  const std::size_t unitRows = quotientUp(rows, writer.vertical);
  const std::size_t unitColumns = quotientUp(columns, writer.horizontal);
  const std::size_t insideColumns = std::min(unitColumns, writer.lumaColumns / writer.horizontal);
  // With an odd width the last unit of a row lies where the next row begins, and the next row
  // stays: rows are then written one by one, in order.
  const bool overlaps = unitColumns > writer.unitStride;
  const std::size_t together = overlaps ? 0 : insideRows(writer, unitRows, insideColumns);
  if (together > 0) writer.writeUnits(0, together, insideColumns);
  for (std::size_t unitRow = 0; unitRow < unitRows; ++unitRow) {
    std::size_t unitColumn = insideColumns;
    if (unitRow >= together) {
      if (writer.isInside(unitRow, insideColumns)) {
        writer.writeUnits(unitRow, 1, insideColumns);
      } else {
        unitColumn = 0;
      }
    }
    for (; unitColumn < unitColumns; ++unitColumn) writer.writeUnit(unitRow, unitColumn);
  }
}

}  // namespace tb

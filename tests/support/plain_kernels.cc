#include "tests/support/plain_kernels.h"

#include <algorithm>
#include <cstring>

namespace tb::test::plain {
namespace {

// Calls visit(blockOffset, planeOffset) with the byte offsets of every element.
template <class Visit>
void forEachElement(const BlockShape& shape, std::size_t elementSize, const Visit& visit) {
  for (std::size_t row = 0; row < shape.rows; ++row)
    for (std::size_t column = 0; column < shape.columns; ++column)
      for (std::size_t sample = 0; sample < shape.samples; ++sample)
        visit(row * shape.blockStride + (column * shape.samples + sample) * elementSize,
              (row + column * shape.columnStride + sample * shape.planeStride) * elementSize);
}

// Calls luma(unitByte, lumaRow, lumaColumn) and chroma(unitByte, element) for each unit, rows of
// units from the first to the last.
template <class Luma, class Chroma>
void forEachUnit(const YCbCrShape& shape, const Luma& luma, const Chroma& chroma) {
  for (std::size_t unitRow = 0; unitRow < shape.unitRows; ++unitRow)
    for (std::size_t unitColumn = 0; unitColumn < shape.unitColumns; ++unitColumn) {
      const std::size_t unit = (unitRow * shape.unitStride + unitColumn) * unitBytes(shape);
      for (std::size_t k = 0; k < unitBytes(shape) - 2; ++k)
        luma(unit + k, unitRow * shape.vertical + k / shape.horizontal,
             unitColumn * shape.horizontal + k % shape.horizontal);
      chroma(unit + unitBytes(shape) - 2, unitRow + unitColumn * shape.chromaColumnStride);
    }
}

bool isEmpty(const BlockShape& shape) { return shape.rows == 0 || shape.columns == 0; }

}  // namespace

void copyBlockToColumns(const std::byte* block, std::byte* columns, std::size_t elementSize,
                        const BlockShape& shape) {
  forEachElement(shape, elementSize, [=](std::size_t inBlock, std::size_t inPlanes) {
    std::memcpy(columns + inPlanes, block + inBlock, elementSize);
  });
}

void copyColumnsToBlock(const std::byte* columns, std::byte* block, std::size_t elementSize,
                        const BlockShape& shape) {
  forEachElement(shape, elementSize, [=](std::size_t inBlock, std::size_t inPlanes) {
    std::memcpy(block + inBlock, columns + inPlanes, elementSize);
  });
}

void unpackBitsToLogicals(const std::byte* block, std::byte* columns, const BlockShape& shape) {
  for (std::size_t row = 0; row < shape.rows; ++row)
    for (std::size_t bit = 0; bit < shape.columns * shape.samples; ++bit)
      columns[row + bit / shape.samples * shape.columnStride +
              bit % shape.samples * shape.planeStride] =
          block[row * shape.blockStride + bit / 8] >> (7 - bit % 8) & std::byte{1};
}

void packLogicalsToBits(const std::byte* columns, std::byte* block, const BlockShape& shape) {
  for (std::size_t row = 0; row < shape.rows; ++row) {
    std::byte* bits = block + row * shape.blockStride;
    std::fill_n(bits, bitRowBytes(shape), std::byte{0});
    for (std::size_t column = 0; column < shape.columns; ++column)
      if (columns[row + column * shape.columnStride] != std::byte{0})
        bits[column / 8] |= std::byte{0x80} >> (column % 8);
  }
}

void splitYCbCrUnits(const std::byte* units, std::byte* y, std::byte* cb, std::byte* cr,
                     const YCbCrShape& shape) {
  forEachUnit(
      shape,
      [&](std::size_t from, std::size_t row, std::size_t column) {
        if (row < shape.lumaRows && column < shape.lumaColumns)
          y[row + column * shape.lumaColumnStride] = units[from];
      },
      [&](std::size_t from, std::size_t element) {
        cb[element] = units[from];
        cr[element] = units[from + 1];
      });
}

void joinYCbCrUnits(const std::byte* y, const std::byte* cb, const std::byte* cr, std::byte* units,
                    const YCbCrShape& shape) {
  forEachUnit(
      shape,
      [&](std::size_t to, std::size_t row, std::size_t column) {
        units[to] = y[row + column * shape.lumaColumnStride];
      },
      [&](std::size_t to, std::size_t element) {
        units[to] = cb[element];
        units[to + 1] = cr[element];
      });
}

std::size_t blockBytes(const BlockShape& shape, std::size_t elementSize) {
  if (isEmpty(shape)) return 0;
  return (shape.rows - 1) * shape.blockStride + shape.columns * shape.samples * elementSize;
}

std::size_t planeBytes(const BlockShape& shape, std::size_t elementSize) {
  if (isEmpty(shape)) return 0;
  return ((shape.samples - 1) * shape.planeStride + (shape.columns - 1) * shape.columnStride +
          shape.rows) *
         elementSize;
}

std::size_t bitRowBytes(const BlockShape& shape) { return (shape.columns * shape.samples + 7) / 8; }

std::size_t bitBlockBytes(const BlockShape& shape) {
  return isEmpty(shape) ? 0 : (shape.rows - 1) * shape.blockStride + bitRowBytes(shape);
}

std::size_t unitBytes(const YCbCrShape& shape) { return shape.horizontal * shape.vertical + 2; }

std::size_t unitsBytes(const YCbCrShape& shape) {
  if (shape.unitRows == 0 || shape.unitColumns == 0) return 0;
  return ((shape.unitRows - 1) * shape.unitStride + shape.unitColumns) * unitBytes(shape);
}

std::size_t lumaBytes(const YCbCrShape& shape) {
  if (shape.lumaRows == 0 || shape.lumaColumns == 0) return 0;
  return (shape.lumaColumns - 1) * shape.lumaColumnStride + shape.lumaRows;
}

std::size_t chromaBytes(const YCbCrShape& shape) {
  if (shape.unitRows == 0 || shape.unitColumns == 0) return 0;
  return (shape.unitColumns - 1) * shape.chromaColumnStride + shape.unitRows;
}

YCbCrShape covering(std::size_t rows, std::size_t columns, std::size_t horizontal,
                    std::size_t vertical, std::size_t padding) {
  const std::size_t unitRows = (rows + vertical - 1) / vertical;
  const std::size_t unitColumns = (columns + horizontal - 1) / horizontal;
  return {unitRows, unitColumns, unitColumns + padding, horizontal,        vertical,
          rows,     columns,     rows + padding,        unitRows + padding};
}

std::string described(const BlockShape& shape) {
  return std::to_string(shape.rows) + " x " + std::to_string(shape.columns) + " x " +
         std::to_string(shape.samples) + ", block stride " + std::to_string(shape.blockStride) +
         ", column stride " + std::to_string(shape.columnStride) + ", plane stride " +
         std::to_string(shape.planeStride);
}

std::string described(const YCbCrShape& shape) {
  return std::to_string(shape.lumaRows) + " x " + std::to_string(shape.lumaColumns) +
         ", subsampled " + std::to_string(shape.horizontal) + " x " +
         std::to_string(shape.vertical) + ", unit stride " + std::to_string(shape.unitStride);
}

}  // namespace tb::test::plain

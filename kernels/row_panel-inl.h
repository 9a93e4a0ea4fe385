// Local memory for some rows of a block, compiled once per instruction set.
//
// The rows of a block 4096 bytes wide, or a multiple of that, share a few sets of the cache and
// push each other out of it when they are read or written side by side. So a panel of such rows
// passes through local memory, one row at a time. Interleaved samples are separated or put together
// on that way, and what remains is to transpose planes of single samples.

#if defined(TAGBRIDGE_KERNELS_ROW_PANEL_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_KERNELS_ROW_PANEL_INL_H_
#undef TAGBRIDGE_KERNELS_ROW_PANEL_INL_H_
#else
#define TAGBRIDGE_KERNELS_ROW_PANEL_INL_H_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "kernels/block_shape.h"
#include "kernels/lines.h"
#include "kernels/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Half of a small first-level cache.
constexpr std::size_t kRowPanelBytes = 16384;

// The samples that there are routines to separate.
constexpr std::size_t kMostSeparated = 4;

// Whether the rows of a block should pass through panels. More rows of several samples are not so
// thin that a table of their columns would matter, and more elements of 8 bytes are staged by the
// square. `lines` is how many lines the cache must hold beside so many rows.
template <class T>
bool NeedsRowPanels(const BlockShape& shape, std::size_t lines) {
  if (shape.rows <= 1 || shape.samples == 0 || shape.samples > kMostSeparated) return false;
  const bool thin = shape.rows <= kMostInterleaved<T>;
  if (shape.samples > 1) return thin;
  const std::size_t rows = std::min(shape.rows, kLineElements<T>);
  return (thin || sizeof(T) < 8) && isConflictingStride(shape.blockStride, rows + lines);
}

// A part of a block, and where its samples lie in local memory: those of a row behind one another,
// the rows of a sample behind one another.
template <class T>
struct RowPanel {
  std::size_t firstRow, rows, firstColumn, columns;
  std::uint8_t* local;
  std::size_t lineBytes, planeBytes;

  // The elements of one row, sample by sample, and the rows of one sample.
  StridedLines<std::uint8_t> samplesOf(std::size_t row) const {
    return {local + row * lineBytes, planeBytes};
  }
  StridedLines<std::uint8_t> rowsOf(std::size_t sample) const {
    return {local + sample * planeBytes, lineBytes};
  }
  // The pixels of one row in a block, and the columns of one sample in planes.
  template <class Byte>
  StridedLines<Byte> pixelsOf(std::size_t row, Byte* block, const BlockShape& shape) const {
    const std::size_t pixelBytes = shape.samples * sizeof(T);
    return {block + (firstRow + row) * shape.blockStride + firstColumn * pixelBytes, pixelBytes};
  }
  template <class Byte>
  StridedLines<Byte> columnsOf(std::size_t sample, Byte* planes, const BlockShape& shape) const {
    const std::size_t first =
        firstRow + firstColumn * shape.columnStride + sample * shape.planeStride;
    return {planes + first * sizeof(T), shape.columnStride * sizeof(T)};
  }
};

// Calls visit(panel) for panels that cover the block. As many rows fill a cache line of a column.
template <class T, class Visit>
HWY_INLINE void ForEachRowPanel(const BlockShape& shape, const Visit& visit) {
  alignas(kCacheLine) std::uint8_t local[kRowPanelBytes];
  const std::size_t mostRows = std::min(shape.rows, kLineElements<T>);
  const std::size_t lineBytes =
      kRowPanelBytes / (mostRows * shape.samples) / kCacheLine * kCacheLine;
  const std::size_t mostColumns = lineBytes / sizeof(T);
  RowPanel<T> panel{0, 0, 0, 0, local, lineBytes, mostRows * lineBytes};
  for (std::size_t column = 0; column < shape.columns; column += mostColumns) {
    panel.firstColumn = panelStart(column, shape.columns, kLineElements<T>);
    panel.columns = std::min(mostColumns, shape.columns - panel.firstColumn);
    for (std::size_t row = 0; row < shape.rows; row += mostRows) {
      panel.firstRow = row;
      panel.rows = std::min(mostRows, shape.rows - row);
      visit(panel);
    }
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

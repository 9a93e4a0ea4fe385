#include <cstdint>

#include "kernels/block_copy.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/block_copy_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "kernels/row_panel-inl.h"
#include "kernels/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

template <class T>
void CopyRowPanelsToColumns(const std::uint8_t* block, std::uint8_t* columns,
                            const BlockShape& shape) {
  ForEachRowPanel<T>(shape, [&](const RowPanel<T>& panel) {
    for (std::size_t row = 0; row < panel.rows; ++row)
      TransposeLines<T>(panel.pixelsOf(row, block, shape), panel.columns, panel.samplesOf(row),
                        shape.samples);
    for (std::size_t sample = 0; sample < shape.samples; ++sample)
      TransposeLines<T>(panel.rowsOf(sample), panel.rows, panel.columnsOf(sample, columns, shape),
                        panel.columns);
  });
}

template <class T>
HWY_INLINE void CopyBlockToColumnsOf(const std::uint8_t* block, std::uint8_t* columns,
                                     const BlockShape& shape) {
  // A row without gaps between its columns is a block of one sample a row for each pixel.
  if (shape.rows == 1 && shape.columnStride == 1) {
    const StridedLines<const std::uint8_t> pixels{block, shape.samples * sizeof(T)};
    const StridedLines<std::uint8_t> planes{columns, shape.planeStride * sizeof(T)};
    return TransposeLines<T>(pixels, shape.columns, planes, shape.samples);
  }
  if (NeedsRowPanels<T>(shape, 0)) return CopyRowPanelsToColumns<T>(block, columns, shape);
  const StridedLines<const std::uint8_t> rows{block, shape.blockStride};
  const PlaneColumns<std::uint8_t> columnLines{
      columns, shape.samples, shape.columnStride * sizeof(T), shape.planeStride * sizeof(T)};
  TransposeLines<T>(rows, shape.rows, columnLines, shape.columns * shape.samples);
}

void CopyBlockToColumns(const std::uint8_t* block, std::uint8_t* columns, std::size_t elementSize,
                        const BlockShape& shape) {
  switch (elementSize) {
    case 1:
      return CopyBlockToColumnsOf<std::uint8_t>(block, columns, shape);
    case 2:
      return CopyBlockToColumnsOf<std::uint16_t>(block, columns, shape);
    case 4:
      return CopyBlockToColumnsOf<std::uint32_t>(block, columns, shape);
    case 8:
      return CopyBlockToColumnsOf<std::uint64_t>(block, columns, shape);
  }
}

template <class T>
void CopyColumnsToRowPanels(const std::uint8_t* columns, std::uint8_t* block,
                            const BlockShape& shape) {
  ForEachRowPanel<T>(shape, [&](const RowPanel<T>& panel) {
    for (std::size_t sample = 0; sample < shape.samples; ++sample)
      TransposeLines<T>(panel.columnsOf(sample, columns, shape), panel.columns,
                        panel.rowsOf(sample), panel.rows);
    for (std::size_t row = 0; row < panel.rows; ++row)
      TransposeLines<T>(panel.samplesOf(row), shape.samples, panel.pixelsOf(row, block, shape),
                        panel.columns);
  });
}

template <class T>
HWY_INLINE void CopyColumnsToBlockOf(const std::uint8_t* columns, std::uint8_t* block,
                                     const BlockShape& shape) {
  // A row without gaps between its columns is a block of one sample a row for each pixel.
  if (shape.rows == 1 && shape.columnStride == 1) {
    const StridedLines<std::uint8_t> pixels{block, shape.samples * sizeof(T)};
    const StridedLines<const std::uint8_t> planes{columns, shape.planeStride * sizeof(T)};
    return TransposeLines<T>(planes, shape.samples, pixels, shape.columns);
  }
  if (NeedsRowPanels<T>(shape, 1)) return CopyColumnsToRowPanels<T>(columns, block, shape);
  const StridedLines<std::uint8_t> rows{block, shape.blockStride};
  const PlaneColumns<const std::uint8_t> columnLines{
      columns, shape.samples, shape.columnStride * sizeof(T), shape.planeStride * sizeof(T)};
  TransposeLines<T>(columnLines, shape.columns * shape.samples, rows, shape.rows);
}

void CopyColumnsToBlock(const std::uint8_t* columns, std::uint8_t* block, std::size_t elementSize,
                        const BlockShape& shape) {
  switch (elementSize) {
    case 1:
      return CopyColumnsToBlockOf<std::uint8_t>(columns, block, shape);
    case 2:
      return CopyColumnsToBlockOf<std::uint16_t>(columns, block, shape);
    case 4:
      return CopyColumnsToBlockOf<std::uint32_t>(columns, block, shape);
    case 8:
      return CopyColumnsToBlockOf<std::uint64_t>(columns, block, shape);
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tb {

HWY_EXPORT(CopyBlockToColumns);
void copyBlockToColumns(const std::byte* block, std::byte* columns, std::size_t elementSize,
                        const BlockShape& shape) {
  HWY_DYNAMIC_DISPATCH(CopyBlockToColumns)
  (reinterpret_cast<const std::uint8_t*>(block), reinterpret_cast<std::uint8_t*>(columns),
   elementSize, shape);
}

HWY_EXPORT(CopyColumnsToBlock);
void copyColumnsToBlock(const std::byte* columns, std::byte* block, std::size_t elementSize,
                        const BlockShape& shape) {
  HWY_DYNAMIC_DISPATCH(CopyColumnsToBlock)
  (reinterpret_cast<const std::uint8_t*>(columns), reinterpret_cast<std::uint8_t*>(block),
   elementSize, shape);
}

}  // namespace tb
#endif

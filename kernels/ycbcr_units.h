#pragma once

#include <cstddef>

namespace tb {

// Subsampled YCbCr data as libtiff holds it: rows of units, each of horizontal*vertical luma
// bytes (row by row within the unit) followed by one Cb and one Cr byte. Unit (unitRow,
// unitColumn) covers the luma rectangle that starts at row unitRow*vertical and column
// unitColumn*horizontal, and starts itself at unit number unitRow*unitStride + unitColumn.
struct YCbCrShape {
  std::size_t unitRows;            // rows of units to move
  std::size_t unitColumns;         // units of each row to move
  std::size_t unitStride;          // units from one row of units to the next
  std::size_t horizontal;          // luma columns of a unit
  std::size_t vertical;            // luma rows of a unit
  std::size_t lumaRows;            // rows of the luma array
  std::size_t lumaColumns;         // columns of the luma array
  std::size_t lumaColumnStride;    // bytes from one luma column to the next
  std::size_t chromaColumnStride;  // bytes from one chroma column to the next
};

// Takes units apart into three column-major arrays of bytes. Luma outside
// lumaRows x lumaColumns is skipped.
void splitYCbCrUnits(const std::byte* units, std::byte* y, std::byte* cb, std::byte* cr,
                     const YCbCrShape& shape);

// Puts units together from three column-major arrays of bytes. All luma of the units lies inside
// the array: lumaRows and lumaColumns are not consulted. A unitStride below unitColumns makes rows
// of units overlap; the later row then stays.
void joinYCbCrUnits(const std::byte* y, const std::byte* cb, const std::byte* cr, std::byte* units,
                    const YCbCrShape& shape);

}  // namespace tb

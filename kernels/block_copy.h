#pragma once

#include <cstddef>

#include "kernels/block_shape.h"

namespace tb {

// Copies the samples of a row-major block to the column-major planes at `columns`, laid out as
// `shape` says. `elementSize` is 1, 2, 4 or 8 bytes; an element moves whole, so that class and
// byte order are the caller's matter. The block needs no alignment, blockStride may be any number
// of bytes, and the two memory ranges do not overlap.
void copyBlockToColumns(const std::byte* block, std::byte* columns, std::size_t elementSize,
                        const BlockShape& shape);

// Copies the column-major planes at `columns` into a row-major block, laid out as `shape` says:
// the reverse of copyBlockToColumns, under the same conditions. Bytes of the block outside the
// copied samples (padding columns and rows) keep their values.
void copyColumnsToBlock(const std::byte* columns, std::byte* block, std::size_t elementSize,
                        const BlockShape& shape);

}  // namespace tb

#pragma once

#include <cstddef>

#include "kernels/block_shape.h"

namespace tb {

// Copies the column-major planes at `columns` into a row-major block, laid out as `shape` says:
// the reverse of copyBlockToColumns, under the same conditions. Bytes of the block outside the
// copied samples (padding columns and rows) keep their values.
void copyColumnsToBlock(const std::byte* columns, std::byte* block, std::size_t elementSize,
                        const BlockShape& shape);

}  // namespace tb

#pragma once

#include <cstddef>

#include "kernels/block_shape.h"

namespace tb {

// Packs one byte per pixel into bits: a non-zero byte sets bit `column` of its block row, counted
// from the most significant bit of the row's first byte. The last byte of a row that holds fewer
// than eight pixels gets zeros in its low bits; bytes beyond it keep their values. shape.samples is
// 1 and shape.planeStride is not used.
void packLogicalsToBits(const std::byte* columns, std::byte* block, const BlockShape& shape);

}  // namespace tb

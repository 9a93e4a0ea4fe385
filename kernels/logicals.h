#pragma once

#include <cstddef>

#include "kernels/block_shape.h"

namespace tb {

// Spreads 1-bit samples to one byte each, 0 or 1. Sample s of pixel (row, column) is bit
// column*samples + s of its block row, counted from the most significant bit of the row's first
// byte; strides of the planes count bytes, as a logical element is one byte.
void unpackBitsToLogicals(const std::byte* block, std::byte* columns, const BlockShape& shape);

// Packs one byte per pixel into bits: a non-zero byte sets bit `column` of its block row, counted
// from the most significant bit of the row's first byte. The last byte of a row that holds fewer
// than eight pixels gets zeros in its low bits; bytes beyond it keep their values. shape.samples is
// 1 and shape.planeStride is not used.
void packLogicalsToBits(const std::byte* columns, std::byte* block, const BlockShape& shape);

}  // namespace tb

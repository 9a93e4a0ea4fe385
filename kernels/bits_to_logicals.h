#pragma once

#include <cstddef>

#include "kernels/block_shape.h"

namespace tb {

// Spreads 1-bit samples to one byte each, 0 or 1. Sample s of pixel (row, column) is bit
// column*samples + s of its block row, counted from the most significant bit of the row's first
// byte; strides of the planes count bytes, as a logical element is one byte.
void unpackBitsToLogicals(const std::byte* block, std::byte* columns, const BlockShape& shape);

}  // namespace tb

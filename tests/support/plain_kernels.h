// What the kernels do (kernels/*.h), in loops over single elements, bits and bytes. Each has the
// arguments of the kernel of its name.
#pragma once

#include <cstddef>
#include <string>

#include "kernels/block_shape.h"
#include "kernels/ycbcr_units.h"

namespace tb::test::plain {

void copyBlockToColumns(const std::byte* block, std::byte* columns, std::size_t elementSize,
                        const BlockShape& shape);
void copyColumnsToBlock(const std::byte* columns, std::byte* block, std::size_t elementSize,
                        const BlockShape& shape);
void unpackBitsToLogicals(const std::byte* block, std::byte* columns, const BlockShape& shape);
void packLogicalsToBits(const std::byte* columns, std::byte* block, const BlockShape& shape);
void splitYCbCrUnits(const std::byte* units, std::byte* y, std::byte* cb, std::byte* cr,
                     const YCbCrShape& shape);
void joinYCbCrUnits(const std::byte* y, const std::byte* cb, const std::byte* cr, std::byte* units,
                    const YCbCrShape& shape);

// The bytes from the first that a kernel may touch to the last; 0 when it may touch none.
// `elementSize` is 1 for the planes of logicals.
std::size_t blockBytes(const BlockShape& shape, std::size_t elementSize);
std::size_t planeBytes(const BlockShape& shape, std::size_t elementSize);
std::size_t bitRowBytes(const BlockShape& shape);
std::size_t bitBlockBytes(const BlockShape& shape);
std::size_t unitBytes(const YCbCrShape& shape);
std::size_t unitsBytes(const YCbCrShape& shape);
std::size_t lumaBytes(const YCbCrShape& shape);
std::size_t chromaBytes(const YCbCrShape& shape);

// The units that cover rows x columns of luma; `padding` widens every stride.
YCbCrShape covering(std::size_t rows, std::size_t columns, std::size_t horizontal,
                    std::size_t vertical, std::size_t padding);

// For people.
std::string described(const BlockShape& shape);
std::string described(const YCbCrShape& shape);

}  // namespace tb::test::plain

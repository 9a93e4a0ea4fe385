// Large uncompressed strips, moved to their columns a few rows at a time. The rows of such a strip
// often lie a multiple of 4096 bytes apart, where the cache has little room for them, so they are
// copied apart first. Those that libtiff has to decode would leave the cache before they are moved,
// if they came as a whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "host/array.h"
#include "image/block_geometry.h"

namespace tb {

// Whether a strip is so large that it pays.
bool isMovedByRows(BlockExtent extent, const TiffImageMetaData_& record);

// The array of such a strip, whose bytes lie in memory as libtiff would deliver them; null when
// they are too few.
vxArrayPtr moveStripByRows(std::span<const std::byte> strip, BlockExtent extent,
                           const TiffImageMetaData_& record);

// Whether libtiff can decode such a strip row by row.
bool isReadByRows(std::uint32_t strip, BlockExtent extent, const TiffImageMetaData_& record);

// The array of such a strip. Null when libtiff fails, which has said why.
vxArrayPtr readStripByRows(std::uint32_t strip, BlockExtent extent,
                           const TiffImageMetaData_& record);

}  // namespace tb

// Large uncompressed strips, read a few rows at a time. A whole strip would leave the processor's
// cache between libtiff, which decodes it, and the kernel that moves it to its columns; and its
// rows often lie a multiple of 4096 bytes apart, where the cache has little room for them.
#pragma once

#include <cstdint>

#include "host/array.h"
#include "image/block_geometry.h"

namespace tb {

// Whether a strip can be read in this way and is so large that it pays.
bool isReadByRows(std::uint32_t strip, BlockExtent extent, const TiffImageMetaData_& record);

// The array of such a strip. Null when libtiff fails, which has said why.
vxArrayPtr readStripByRows(std::uint32_t strip, BlockExtent extent,
                           const TiffImageMetaData_& record);

}  // namespace tb

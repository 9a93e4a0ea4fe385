// Large uncompressed strips, read a few rows at a time. A whole strip would leave the processor's
// cache between libtiff, which decodes it, and the kernel that moves it to its columns; and its
// rows often lie a multiple of 4096 bytes apart, where the cache has little room for them.
#pragma once

#include <cstdint>

#include "host/array.h"
#include "image/block_geometry.h"

namespace tb {

// The array of a strip that can be read in this way, of `extent`.
// Null when it is better read whole or when libtiff fails, which then says so once more.
vxArrayPtr readStripByRows(std::uint32_t strip, BlockExtent extent,
                           const TiffImageMetaData_& record);

}  // namespace tb

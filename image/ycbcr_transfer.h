// YCbCr blocks, in which libtiff keeps luma and subsampled chroma samples together in units of
// h*v luma samples (row by row), one Cb and one Cr, unit rows from top to bottom.
#pragma once

#include <cstddef>
#include <span>

#include "core/image_metadata.h"
#include "core/operation.h"
#include "image/block_geometry.h"

namespace tb {

// Where the arrays of a YCbCr block go: the first three slots.
struct OutputSlots {
  int count;
  vxArrayPtr* slots;
};

// Splits a decoded block of contiguous YCbCr into three arrays of the record's class and stores
// them: Y of `extent`, Cb and Cr of ceil(rows/v) x ceil(columns/h). Samples are single bytes at the
// element's linear index whatever the class; of a wider class the other bytes are 0.
// Raises unsupportedYCbCrConfiguration for 4 samples per pixel or more and for a subsampling factor
// of 0, and what determineClassId raises.
void transferYCbCrContigBlockToVx(std::span<const std::byte> block, BlockExtent extent,
                                  OutputSlots outputs, const TiffImageMetaData_& record);

}  // namespace tb

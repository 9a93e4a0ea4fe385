// Reading one block that has passed the checks: its bytes, as libtiff delivers them, are spread
// over column-major arrays in the output slots.
//
// A block that cannot be decoded is no error: libtiff has said what is wrong, and the arrays hold
// what could be decoded between zeros. Both functions raise what determineClassId and the transfer
// of a block raise.
#pragma once

#include <cstdint>

#include "core/image_metadata.h"
#include "image/block_geometry.h"
#include "image/ycbcr_transfer.h"

namespace tb {

// Raises tooManyBytes(strip, size of a strip, bytes decoded) as well.
void readStrip(std::uint32_t strip, BlockExtent extent, OutputSlots outputs,
               const TiffImageMetaData_& record);

void readTile(std::uint32_t tile, BlockExtent extent, OutputSlots outputs,
              const TiffImageMetaData_& record);

}  // namespace tb

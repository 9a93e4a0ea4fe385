// From a decoded block, as libtiff delivers it, to column-major host arrays.
#pragma once

#include <cstddef>
#include <span>

#include "core/image_metadata.h"
#include "core/operation.h"
#include "image/block_geometry.h"

namespace tb {

// What the elements of a new array are: 0, or anything because all of them will be stored.
enum class InitialElements { kZero, kAllStored };

// The bytes of a row of a block, padding columns and those of the last bits included.
std::size_t bytesPerBlockRow(const TiffImageMetaData_& record);

// An array for a block's pixels: extent.rows x extent.columns, and by SamplesPerPixel when several
// samples are interleaved. Raises what determineClassId raises.
vxArrayPtr createBlockArray(BlockExtent extent, const TiffImageMetaData_& record,
                            InitialElements elements);

// Copies a decoded block into `array`: pixel (row, column, sample) goes to element
// row + column*M + sample*M*N of the M-by-N-by-S array. `block` holds record.blockLength rows of
// record.blockWidth pixels, samples interleaved, in native byte order; rows past M and columns
// past N are padding and are skipped. What a block shorter than that does not hold keeps its value.
// Raises unhandledBitsPerSample(bitsPerSample) unless samples have 8, 16, 32 or 64 bits.
void transferBlockToVx(std::span<const std::byte> block, vxArray& array,
                       const TiffImageMetaData_& record);

// The same for 1-bit samples, packed eight to a byte, most significant bit first, each row from a
// byte boundary on; `array` is logical.
void transferLogicalBlockToVx(std::span<const std::byte> block, vxArray& array,
                              const TiffImageMetaData_& record);

// True when the block holds every element that `extent` takes from it, so that a transfer leaves no
// element of the array as it was.
bool coversExtent(std::span<const std::byte> block, BlockExtent extent,
                  const TiffImageMetaData_& record);

}  // namespace tb

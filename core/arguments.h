// The numbers that operations take. All are elements by their value, whatever their class,
// truncated toward zero (see convertNumber), and throw Boost's numeric overflow at or below -1 and
// at or above 2^32, or 2^N for a number of N bits.
#pragma once

#include <cstdint>

#include "core/image_metadata.h"
#include "host/array.h"

namespace tb {

// The first element, as the number of a tag, strip, tile, row or directory; libtiff counts from 0.
std::uint32_t unpack_ttag_t(const vxArray* argument);
std::uint32_t unpack_tstrip_t(const vxArray* argument);
std::uint32_t unpack_ttile_t(const vxArray* argument);
std::uint32_t unpackRow(const vxArray* argument);
std::uint32_t unpackDirectoryNumber(const vxArray* argument);

// The file offset of a sub-directory. 64-bit integers stay exact past 2^53, where doubles leave
// offsets out.
std::uint64_t unpackDirectoryOffset(const vxArray* argument);

// Element 2 of a [row column] or [x y] pair into `x`, then element 1 into `y`.
void unpackPixelXY(const vxArray* argument, std::uint32_t& x, std::uint32_t& y);

// The sample (plane) number of an operation with an optional third argument; `argumentCount` counts
// all arguments after the operation name. At most samplesPerPixel.
// Raises sampleParameterRequired for separate planes without the argument and
// sampleParameterNotAllowedInChunkyCase for contiguous samples with it.
std::uint16_t unpack_tsample_t(int argumentCount, const vxArray* sampleArgument,
                               const TiffImageMetaData_& record);

}  // namespace tb

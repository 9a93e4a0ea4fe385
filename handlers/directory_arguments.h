#pragma once

#include <cstdint>

#include "host/array.h"

namespace tb {

// A directory number for libtiff, which counts from 0: the first element as a double.
// Throws Boost's numeric overflow at or below -1 and at or above 2^32.
std::uint32_t unpackDirectoryNumber(const vxArray* argument);

// The file offset of a sub-directory. A uint32 or uint64 array is read as it is, so that offsets
// past 2^53 stay exact; the bytes of any other class are taken as a double.
// Throws Boost's numeric overflow for a double at or below -1 or at or above 2^64.
std::uint64_t unpackDirectoryOffset(const vxArray* argument);

}  // namespace tb

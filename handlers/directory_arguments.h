#pragma once

#include <cstdint>

#include "host/array.h"

namespace tb {

// A directory number for libtiff, which counts from 0: the first element by its value.
// Throws Boost's numeric overflow at or below -1 and at or above 2^32.
std::uint32_t unpackDirectoryNumber(const vxArray* argument);

// The file offset of a sub-directory: the first element by its value. 64-bit integers stay exact
// past 2^53, where doubles leave offsets out.
// Throws Boost's numeric overflow at or below -1 and at or above 2^64.
std::uint64_t unpackDirectoryOffset(const vxArray* argument);

}  // namespace tb

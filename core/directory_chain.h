#pragma once

#include <tiffio.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace tb {

// Whether the chain of directories that starts in the file's header comes to an end: whether no
// link leads back or out of the file. libtiff follows the chain without asking when it appends or
// moves a directory.
bool chainEnds(TIFF* tif);

// Whether the chain comes to the directory at `offset`. A sub-directory is not in it.
bool chainHolds(TIFF* tif, std::uint64_t offset);

// The offset of the directory that comes after so many in the chain, and of the one that follows
// the directory at `offset`; 0 when there is none.
std::uint64_t offsetOfDirectory(TIFF* tif, std::uint32_t number);
std::uint64_t offsetAfter(TIFF* tif, std::uint64_t offset);

// The byte counts of the blocks of the directory at `offset`, as the file has them. Nothing when it
// has not as many places, or does not store both as integers of 16, 32 or (BigTIFF) 64 bits.
std::optional<std::vector<std::uint64_t>> storedByteCounts(TIFF* tif, std::uint64_t offset);

}  // namespace tb

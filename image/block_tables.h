#pragma once

#include <tiffio.h>

#include <cstdint>

namespace tb {

// Whether the directory has its tables of offsets and byte counts, or libtiff may make them at the
// first write: it fills 16 bytes for each of all `blockCount` blocks, of which a few tags can make
// half a milliard. False, after a message of libtiff's kind, when that is above a gigabyte or the
// host's memory limit.
bool hasRoomForTables(TIFF* tif, std::uint32_t blockCount);

}  // namespace tb

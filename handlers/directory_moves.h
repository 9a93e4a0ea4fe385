// Moving to another directory. A move that fails leaves the handle as it was: the same directory is
// current, with what was stored in it. Should the way back fail as well, the handle has no
// directory until a move succeeds.
#pragma once

#include <tiffio.h>

#include <cstdint>

namespace tb {

// TIFFReadDirectory, TIFFSetDirectory and TIFFSetSubDirectory. They return whether libtiff
// succeeded.
bool moveToNextDirectory(TIFF* tif);
bool moveToDirectory(TIFF* tif, std::uint32_t number);
bool moveToSubDirectory(TIFF* tif, std::uint64_t offset);

}  // namespace tb

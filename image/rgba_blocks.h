// Strips and tiles as libtiff's RGBA interface reads them.
//
// libtiff converts whatever its decoder left in a buffer, also when that failed at once: a file of
// a few kilobytes of nonsense becomes a picture of any size. Part of a block is worth having; a
// block of which not even the first row can be decoded is told apart here.
#pragma once

#include <cstdint>

#include "core/image_metadata.h"

namespace tb {

// The strip whose first row is `row`, with column 0, or the tile whose first pixel is at
// (column, row).
struct RgbaBlock {
  std::uint32_t column;
  std::uint32_t row;
};

enum class RgbaRead {
  kDone,     // the raster holds the block, or the part of it that could be decoded
  kNothing,  // nothing of it could be decoded, and the raster is as it was
  kFailed    // libtiff cannot convert the image, or the block is not in the file
};

// Reads a block of the image into `raster`, which has room for it.
RgbaRead readRgbaBlock(const TiffImageMetaData_& record, RgbaBlock block, std::uint32_t* raster);

// The same for a block of which nothing could be decoded, as libtiff converts what is not there.
// Returns false when it does not.
bool convertUndecodedBlock(const TiffImageMetaData_& record, RgbaBlock block,
                           std::uint32_t* raster);

// Throws std::bad_alloc when `entries` entries of RGBA and the decoded block that libtiff holds
// besides exceed the host's memory limit together.
void requireMemoryForRgba(const TiffImageMetaData_& record, std::uint64_t entries);

}  // namespace tb

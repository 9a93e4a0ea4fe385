#pragma once

#include <cstdint>

#include "core/image_metadata.h"

namespace tb {

// The part of a block that belongs to the image; the rest is padding.
struct BlockExtent {
  std::uint32_t rows;
  std::uint32_t columns;
};

// The last strip of every plane has the rows that are left, every other strip RowsPerStrip.
BlockExtent stripExtent(const TiffImageMetaData_& record, std::uint32_t strip);

// The tiles of the last tile row and of the last tile column may reach past the image. `tileCount`
// counts the tiles of all planes. The extent is never larger than the tile.
BlockExtent tileExtent(const TiffImageMetaData_& record, std::uint32_t tile,
                       std::uint32_t tileCount);

}  // namespace tb

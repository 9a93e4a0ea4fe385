#pragma once

#include <tiffio.h>

#include <cstdint>

namespace tb {

// The tags that determine how many bytes a tile has.
struct TileLayout {
  bool isTiled = false;
  std::uint32_t width = 0;
  std::uint32_t length = 0;
  std::uint16_t bitsPerSample = 0;
  std::uint16_t samplesPerPixel = 0;
  std::uint16_t planarConfig = 0;
  std::uint16_t photometric = 0;
  std::uint16_t subsampling[2] = {0, 0};

  bool operator==(const TileLayout&) const = default;
};

// Those of the current directory; 0 where a tag is not set and has no default.
TileLayout tileLayout(TIFF* tif);

// Whether storing `tag` can change them.
bool isTileLayoutTag(std::uint32_t tag) noexcept;

}  // namespace tb

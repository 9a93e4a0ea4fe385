#pragma once

#include <tiffio.h>

#include <cstdint>

namespace tb {

// What libtiff and its codecs computed, or compute, the sizes of blocks and rows by. Tags that make
// no difference are left out: most photometric interpretations are alike, subsampling counts for
// YCbCr only, and one sample has one plane.
struct Layout {
  bool isTiled = false;
  tmsize_t tileSize = 0;  // bytes of a decoded tile, 0 for strips
  tmsize_t rowSize = 0;   // bytes of a decoded row of the image
  std::uint32_t imageWidth = 0;
  std::uint32_t tileWidth = 0;  // 0 for strips, as tileLength
  std::uint32_t tileLength = 0;
  std::uint32_t rowsPerStrip = 0;  // 0 for tiles
  std::uint16_t compression = 0;
  std::uint16_t bitsPerSample = 0;
  std::uint16_t samplesPerPixel = 0;
  std::uint16_t sampleFormat = 0;
  std::uint16_t planarConfig = 0;
  std::uint16_t photometric = 0;  // 0 unless a codec treats it in its own way
  std::uint16_t subsampling[2] = {0, 0};
  std::uint16_t predictor = 0;
  std::uint32_t faxOptions = 0;  // Group 3's: coding in two dimensions needs the row above

  bool operator==(const Layout&) const = default;
};

// That of the current directory; 0 where a tag is not set and has no default.
Layout layoutOf(TIFF* tif);

}  // namespace tb

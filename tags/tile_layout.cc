#include "tags/tile_layout.h"

#include <algorithm>
#include <iterator>

namespace tb {
namespace {

// A value that cannot be fetched stays 0.
template <class... T>
void fetch(TIFF* tif, std::uint32_t tag, T&... values) {
  (void)TIFFGetFieldDefaulted(tif, tag, &values...);
}

// Not SGILogDataFmt and JPEGColorMode: their codecs have libtiff compute its sizes anew.
constexpr std::uint32_t kTags[] = {
    TIFFTAG_BITSPERSAMPLE, TIFFTAG_PHOTOMETRIC, TIFFTAG_SAMPLESPERPIXEL,  TIFFTAG_PLANARCONFIG,
    TIFFTAG_TILEWIDTH,     TIFFTAG_TILELENGTH,  TIFFTAG_YCBCRSUBSAMPLING,
};

}  // namespace

TileLayout tileLayout(TIFF* tif) {
  TileLayout layout{.isTiled = TIFFIsTiled(tif) != 0};
  fetch(tif, TIFFTAG_TILEWIDTH, layout.width);
  fetch(tif, TIFFTAG_TILELENGTH, layout.length);
  fetch(tif, TIFFTAG_BITSPERSAMPLE, layout.bitsPerSample);
  fetch(tif, TIFFTAG_SAMPLESPERPIXEL, layout.samplesPerPixel);
  fetch(tif, TIFFTAG_PLANARCONFIG, layout.planarConfig);
  fetch(tif, TIFFTAG_PHOTOMETRIC, layout.photometric);
  fetch(tif, TIFFTAG_YCBCRSUBSAMPLING, layout.subsampling[0], layout.subsampling[1]);
  return layout;
}

bool isTileLayoutTag(std::uint32_t tag) noexcept {
  return std::ranges::find(kTags, tag) != std::end(kTags);
}

}  // namespace tb

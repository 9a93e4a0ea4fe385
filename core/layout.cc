#include "core/layout.h"

#include <algorithm>
#include <iterator>

#include "core/field_guard.h"
#include "core/unheard.h"

namespace tb {
namespace {

// The interpretations by which codecs choose what they decode to.
constexpr std::uint16_t kTreatedByCodecs[] = {
    PHOTOMETRIC_PALETTE, PHOTOMETRIC_MASK, PHOTOMETRIC_YCBCR, PHOTOMETRIC_LOGL, PHOTOMETRIC_LOGLUV};

std::uint16_t photometricClass(TIFF* tif) {
  const auto photometric = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_PHOTOMETRIC);
  return std::ranges::find(kTreatedByCodecs, photometric) != std::end(kTreatedByCodecs)
             ? photometric
             : std::uint16_t{0};
}

void fetchBlocks(TIFF* tif, Layout& layout) {
  layout.isTiled = TIFFIsTiled(tif) != 0;
  fetchDefaulted(tif, TIFFTAG_IMAGEWIDTH, layout.imageWidth);
  if (layout.isTiled) {
    layout.tileSize = TIFFTileSize(tif);
    fetchDefaulted(tif, TIFFTAG_TILEWIDTH, layout.tileWidth);
    fetchDefaulted(tif, TIFFTAG_TILELENGTH, layout.tileLength);
  } else {
    fetchDefaulted(tif, TIFFTAG_ROWSPERSTRIP, layout.rowsPerStrip);
  }
  layout.rowSize = TIFFScanlineSize(tif);
}

void fetchSamples(TIFF* tif, Layout& layout) {
  fetchDefaulted(tif, TIFFTAG_BITSPERSAMPLE, layout.bitsPerSample);
  fetchDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, layout.samplesPerPixel);
  fetchDefaulted(tif, TIFFTAG_SAMPLEFORMAT, layout.sampleFormat);
  layout.planarConfig = PLANARCONFIG_CONTIG;
  if (layout.samplesPerPixel > 1) fetchDefaulted(tif, TIFFTAG_PLANARCONFIG, layout.planarConfig);
}

}  // namespace

Layout layoutOf(TIFF* tif) {
  const Unheard unheard;  // libtiff complains of sizes that cannot be computed
  Layout layout;
  fetchBlocks(tif, layout);
  fetchSamples(tif, layout);
  fetchDefaulted(tif, TIFFTAG_COMPRESSION, layout.compression);
  layout.photometric = photometricClass(tif);
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    fetchDefaulted(tif, TIFFTAG_YCBCRSUBSAMPLING, layout.subsampling[0], layout.subsampling[1]);
  }
  (void)fetchField(tif, TIFFTAG_PREDICTOR, &layout.predictor);
  if (layout.compression == COMPRESSION_CCITTFAX3) {
    (void)fetchField(tif, TIFFTAG_GROUP3OPTIONS, &layout.faxOptions);
  }
  return layout;
}

}  // namespace tb

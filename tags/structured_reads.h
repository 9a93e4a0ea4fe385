// Readers of tags whose value needs shaping. Each returns a finished array of the caller's.
//
// The pointers that libtiff hands out are its own and stay so; one that is null although the tag
// counts as set stands for no values.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>

#include "host/array.h"

namespace tb {

// ColorMap as a 2^BitsPerSample-by-3 double matrix: the red, green and blue columns, each entry
// divided by 65535. Raises tagRetrievalFailed("ColorMap"); overflows at 64 bits and more.
vxArrayPtr retrieveColorMap(TIFF* tif);

// TransferFunction, unscaled: a 2^BitsPerSample-by-3 double matrix for three samples per pixel, but
// a 1-by-2^BitsPerSample row for one. A curve that libtiff does not hold, because two of three
// samples are extra ones, is 0.
// Raises badTransferFunctionSppCombination(samplesPerPixel) for any other number of samples, then
// tagRetrievalFailed("TransferFunction"); overflows at 64 bits and more.
vxArrayPtr retrieveTransferFunction(TIFF* tif);

// StripOffsets, StripByteCounts, TileOffsets or TileByteCounts as a 1-by-N uint64 row, one element
// for each strip or tile of all planes; those that libtiff does not hold are 0.
// Raises strippedOperationOnTiledImage or tiledOperationOnStrippedImage when the tag is not of the
// image's layout, then tagRetrievalFailed(tagName).
vxArrayPtr retrievePerTilePerStrip(TIFF* tif, std::uint32_t tag, const std::string& tagName);

// InkNames as a 1-by-NumberOfInks cell of char rows. Raises tagRetrievalFailed("InkNames").
vxArrayPtr retrieveInkNames(TIFF* tif);

// PlanarConfiguration as a 1-by-1 double, libtiff's default when it is absent.
vxArrayPtr retrievePlanarConfiguration(TIFF* tif);

}  // namespace tb

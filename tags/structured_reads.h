// Readers of tags whose value needs shaping. Each returns a finished array of the caller's.
//
// The pointers that libtiff hands out are its own and stay so; one that is null although the tag
// counts as set stands for no values.
#pragma once

#include "tags/tag_table.h"

namespace tb {

// ColorMap as a 2^BitsPerSample-by-3 double matrix: the red, green and blue columns, each entry
// divided by 65535. Raises tagRetrievalFailed(tagName); overflows at 64 bits and more.
TagReader retrieveColorMap;

// TransferFunction, unscaled: a 2^BitsPerSample-by-3 double matrix for three samples per pixel, but
// a 1-by-2^BitsPerSample row for one. A curve that libtiff does not hold, because two of three
// samples are extra ones, is 0.
// Raises badTransferFunctionSppCombination(samplesPerPixel) for any other number of samples, then
// tagRetrievalFailed(tagName); overflows at 64 bits and more.
TagReader retrieveTransferFunction;

enum class BlockKind { strip, tile };

// libtiff's functions for the offset and for the byte count of one strip or tile.
using BlockNumber = std::uint64_t(TIFF*, std::uint32_t block, int* failed);

// The offsets or byte counts of an image's strips or tiles as a 1-by-N uint64 row, one element for
// each of all planes; those that libtiff does not hold are 0.
// Raises strippedOperationOnTiledImage or tiledOperationOnStrippedImage when the image has no such
// blocks, then tagRetrievalFailed(tagName).
TagReaderWith<BlockKind, BlockNumber*> retrievePerTilePerStrip;

// InkNames as a 1-by-NumberOfInks cell of char rows. Raises tagRetrievalFailed(tagName).
TagReader retrieveInkNames;

// PlanarConfiguration as a 1-by-1 double, libtiff's default when it is absent.
TagReader retrievePlanarConfiguration;

}  // namespace tb

// The operations on image data. Inputs are listed after the operation name. Numbers of strips and
// tiles are libtiff's, from 0, all blocks of plane 0 first; they are truncated toward zero, and
// argumentOutOfBounds is raised when they do not fit. Every operation raises badFileId and
// invalidFileId first, then what retrieveImageMetadata raises.
#pragma once

#include "core/operation.h"

namespace tb {

// "readEncodedStrip"(file, strip) -> rows x ImageWidth [x SamplesPerPixel] array of the class that
// determineClassId gives, or three arrays Y, Cb, Cr for contiguous YCbCr. A block that libtiff
// cannot decode gives what was delivered and 0 elsewhere; libtiff's message becomes a warning.
// Raises what validateReadConfiguration raises, strippedOperationOnTiledImage,
// badStripNumber(number of strips) or imageDepthStrippedLayoutMismatch(ImageDepth),
// tooManyBytes(strip, expected, delivered), and what determineClassId raises.
Handler TIFFReadEncodedStrip_handler;

// "readEncodedTile"(file, tile): the same for a tile, without its padding. A third input is
// ignored. Raises what validateReadConfiguration raises, tiledOperationOnStrippedImage, what
// determineClassId raises, and badTileNumber(number of tiles).
Handler TIFFReadEncodedTile_handler;

// "readRGBAStrip"(file, row) -> 4 x ImageWidth x RowsPerStrip uint8 (red, green, blue, alpha), the
// strip with that row, bottom row first. Rows that the last strip does not have are 0.
// Raises strippedOperationOnTiledImage, stripReadErrorRGBA(first row of the strip + 1).
Handler TIFFReadRGBAStrip_handler;

// "readRGBATile"(file, x, y) -> 4 x TileWidth x TileLength uint8, the tile with that pixel.
// Raises tiledOperationOnStrippedImage, tileReadErrorRGBA(tile's first row + 1, first column + 1).
Handler TIFFReadRGBATile_handler;

// "readRGBAImage"(file) -> 4 x ImageWidth x ImageLength uint8, bottom row first.
// Raises imageReadErrorRGBA.
Handler TIFFReadRGBAImage_handler;

// "writeEncodedStrip"(file, strip, image) or (file, strip, Y, Cb, Cr): encodes one strip. An array
// beyond the strip is cut with the warning dataLengthExceedsRowsPerStrip or
// dataWidthExceedsImageWidth(strip size, array size).
// Raises what validateWriteConfiguration raises, tiledOperationOnStrippedImage,
// stripNumberTooLarge(number of strips), stripWriteFailure(strip + 1).
Handler TIFFWriteEncodedStrip_handler;

// "writeEncodedTile": the same for a tile, with dataLengthExceedsTileLength and
// dataWidthExceedsTileWidth.
// Raises what validateWriteConfiguration raises, tiledOperationOnStrippedImage,
// tileNumberTooLarge(number of tiles), tileWritefailure(tile + 1).
Handler TIFFWriteEncodedTile_handler;

}  // namespace tb

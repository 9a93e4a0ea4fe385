// The operations on files, directories and the metadata summary. Inputs are listed after the
// operation name; results go to slot 0. Numbers handed back are libtiff's plus one, in unsigned
// 32-bit arithmetic; numbers taken are passed to libtiff as they are, truncated toward zero
// (argumentOutOfBounds when they do not fit). Every operation with a file identifier raises
// badFileId and invalidFileId first.
#pragma once

#include "core/operation.h"

namespace tb {

// "open"(file name, mode) -> file identifier. TIFFOpen's modes.
// Raises argumentWasNotChar("file"), argumentWasNotChar("access mode"), unableToOpenFile(file name)
// after 11 attempts 100 ms apart, and what validateCompressionScheme raises.
Handler TIFFOpen_handler;

// "close"(file identifier). An identifier that is not open is ignored; 0 raises badFileId.
Handler TIFFClose_handler;

// "getVersion"() -> char row with libtiff's version text.
Handler TIFFGetVersion_handler;

// "computeStrip"(file, row, [sample]) -> double: number of the strip with that row. A row at or
// past ImageLength counts as the last row.
// Raises what retrieveImageMetadata and unpack_tsample_t raise.
Handler TIFFComputeStrip_handler;

// "computeTile"(file, [row column], [sample]) -> double: number of the tile with that pixel. The
// row is limited to ImageLength and the column to ImageWidth, not to one less: libtiff judges them.
// Raises what retrieveImageMetadata and unpack_tsample_t raise.
Handler TIFFComputeTile_handler;

// "currentDirectory"(file) -> double; "isTiled"(file), "lastDirectory"(file) -> logical;
// "numberOfStrips"(file), "numberOfTiles"(file) -> double, all planes counted.
Handler TIFFCurrentDirectory_handler;
Handler TIFFIsTiled_handler;
Handler TIFFLastDirectory_handler;
Handler TIFFNumberOfStrips_handler;
Handler TIFFNumberOfTiles_handler;

// "readDirectory"(file): on to the next directory. Raises unableToReadDir.
Handler TIFFReadDirectory_handler;

// "rewriteDirectory"(file): writes the current directory anew at the end of the file.
// Raises unableToWriteDir, also when the file is open for reading.
Handler TIFFRewriteDirectory_handler;

// "writeDirectory"(file): writes the current directory and starts an empty one.
// Raises unableToWriteCurrentDir.
Handler TIFFWriteDirectory_handler;

// "setDirectory"(file, number from 0).
// Raises unableToChangeDir(number + 1) and what validateCompressionScheme raises.
Handler TIFFSetDirectory_handler;

// "setSubDirectory"(file, offset as uint32, uint64 or double): only offsets in the current
// directory's SubIFD tag (330) are accepted.
// Raises noSubDirectories, noSuchSubDirectory, unableToChangeSubdir(offset) and what
// validateCompressionScheme raises.
Handler TIFFSetSubDirectory_handler;

// "retrieveMetadata"(file) -> struct with the 16 settings of the current directory's image that are
// needed to size strips and tiles. Raises what retrieveImageMetadata raises.
Handler retrieveMetadata_handler;

}  // namespace tb

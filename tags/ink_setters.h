// Setters of the ink tags, which only go with separated images. They return the status of the
// store, 0 when libtiff refuses the value; a failed check stores nothing.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>

#include "host/array.h"

namespace tb {

// One double element of at least SamplesPerPixel less the number of ExtraSamples, and at most
// SamplesPerPixel.
// Raises as checkForSeparatedPhotometricInterpretation and unpackTagScalar, then
// tagRetrievalBeforeWriteFailed("SamplesPerPixel", "NumberOfInks"),
// invalidNumberOfInksValue(value, SamplesPerPixel, number of ExtraSamples).
int setNumberOfInks(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

// A cell of NumberOfInks texts; the caller has checked that the image is separated.
// Raises notCellString("InkNames") for a value that is no cell,
// badNumberOfInkNames(NumberOfInks), notCellString("InkNames") for a cell that is no text.
int setInkNames(TIFF* tif, std::uint32_t tag, const vxArray* value);

}  // namespace tb

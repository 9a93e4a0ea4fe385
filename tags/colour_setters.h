// Setters of the colour tags, whose arrays have a shape tied to the rest of the directory. A failed
// check stores nothing.
//
// They return the status of the store, 0 when libtiff refuses the value. Arrays convert as
// unpackTagArray does, with its errors.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/array.h"

namespace tb {

// Fills the three tables of a ColorMap from a 2^BitsPerSample-by-3 double matrix with elements of 0
// to 1, scaled to 0 to 65535 and rounded; NaN becomes 0.
// Raises tagRetrievalBeforeWriteFailed("BitsPerSample", "ColorMap"),
// badColorMap(2^BitsPerSample, BitsPerSample) for another class or shape and
// colorMapValuesNotNormalized; overflows at 64 bits and more. The vectors are then unchanged.
void unpack_colormap(TIFF* tif, const vxArray* value, std::vector<std::uint16_t>& red,
                     std::vector<std::uint16_t>& green, std::vector<std::uint16_t>& blue);

// One curve of n = 2^BitsPerSample elements, a row or a column, for one sample per pixel; an n-by-3
// matrix for three.
// Raises tagRetrievalBeforeWriteFailed("PhotometricInterpretation", "TransferFunction"),
// badTagUsedWithPhotometric("TransferFunction", ...),
// badTransferFunctionSize(BitsPerSample, SamplesPerPixel, n, SamplesPerPixel),
// badTransferFunctionSppCombination(SamplesPerPixel). n is 0 when it exceeds 64 bits.
int setTransferFunction(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                        const vxArray* value);

// Six elements. Raises as checkForRgbColorimetryPhotometricInterpretation, then
// badTagValueCount("PrimaryChromaticities", 6).
int setPrimaryChromaticities(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                             const vxArray* value);

// Six elements. Raises as checkForRgbColorimetryPhotometricInterpretation, then
// badTagUsedWithPhotometric("ReferenceBlackWhite", "RGB, YCbCr") for a palette and
// badTagValueCount("ReferenceBlackWhite", 6).
int setReferenceBlackWhite(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                           const vxArray* value);

// Two elements. Raises tagRetrievalBeforeWriteFailed("PhotometricInterpretation", "WhitePoint"),
// badTagUsedWithPhotometric("WhitePoint", ...), badTagValueCount(tagName, 2).
int setWhitePoint(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

}  // namespace tb

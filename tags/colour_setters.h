// Setters of the colour tags, whose arrays have a shape tied to the rest of the directory. Arrays
// convert as unpackTagArray does, with its errors.
#pragma once

#include "tags/tag_table.h"

namespace tb {

// A 2^BitsPerSample-by-3 double matrix with elements of 0 to 1, which are scaled to 0 to 65535 and
// rounded; NaN becomes 0.
// Raises tagRetrievalBeforeWriteFailed("BitsPerSample", "ColorMap"),
// badColorMap(2^BitsPerSample, BitsPerSample) for another class or shape and
// colorMapValuesNotNormalized; overflows at 64 bits and more.
TagSetter setColorMap;

// One curve of n = 2^BitsPerSample elements, a row or a column, for one sample per pixel; an n-by-3
// matrix for three.
// Raises tagRetrievalBeforeWriteFailed("PhotometricInterpretation", "TransferFunction"),
// badTagUsedWithPhotometric("TransferFunction", ...),
// badTransferFunctionSize(BitsPerSample, SamplesPerPixel, n, SamplesPerPixel),
// badTransferFunctionSppCombination(SamplesPerPixel). n is 0 when it exceeds 64 bits.
TagSetter setTransferFunction;

// Six elements. Raises as checkForRgbColorimetryPhotometricInterpretation, then
// badTagValueCount("PrimaryChromaticities", 6).
TagSetter setPrimaryChromaticities;

// Six elements. Raises as checkForRgbColorimetryPhotometricInterpretation, then
// badTagUsedWithPhotometric("ReferenceBlackWhite", "RGB, YCbCr") for a palette and
// badTagValueCount("ReferenceBlackWhite", 6).
TagSetter setReferenceBlackWhite;

// Two elements. Raises tagRetrievalBeforeWriteFailed("PhotometricInterpretation", "WhitePoint"),
// badTagUsedWithPhotometric("WhitePoint", ...), badTagValueCount(tagName, 2).
TagSetter setWhitePoint;

}  // namespace tb

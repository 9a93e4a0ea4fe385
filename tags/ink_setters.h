// Setters of the ink tags, which only go with separated images.
#pragma once

#include "tags/tag_table.h"

namespace tb {

// One double element of at least SamplesPerPixel less the number of ExtraSamples, and at most
// SamplesPerPixel.
// Raises as checkForSeparatedPhotometricInterpretation and unpackTagScalar, then
// tagRetrievalBeforeWriteFailed("SamplesPerPixel", "NumberOfInks"),
// invalidNumberOfInksValue(value, SamplesPerPixel, number of ExtraSamples).
TagSetter setNumberOfInks;

// A cell of NumberOfInks texts.
// Raises as checkForSeparatedPhotometricInterpretation, then notCellString("InkNames") for a value
// that is no cell, badNumberOfInkNames(NumberOfInks), notCellString("InkNames") for a cell that is
// no text.
TagSetter setInkNames;

}  // namespace tb

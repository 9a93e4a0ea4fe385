// Setters of the tags that fix the layout of the samples. Each lets through only combinations that
// the module can write, and most of them read PhotometricInterpretation back, which therefore has
// to be set first.
//
// A value that is not one double element raises as unpackTagScalar does; the required tags that are
// not set raise tagRetrievalBeforeWriteFailed(required, set). setSamplesPerPixel and
// setSgiLogDataFmt convert the value after they have read the directory, the others before; the
// other errors are named here in order.
#pragma once

#include "tags/tag_table.h"

namespace tb {

// Any 16-bit value: the combinations are checked when the other tags are set.
TagSetter setPhotometric;

// Raises badBitsPerSampleValue, badPhotometricLabPaletteBitsPerSampleCombination,
// doNotSetForLogLuv("BitsPerSample").
TagSetter setBitsPerSample;

// Raises doNotSetForLogLuv("SamplesPerPixel"), badSamplesPerPixelBitsPerSampleCombination.
TagSetter setSamplesPerPixel;

// Raises doNotSetForLogLuv("SampleFormat"), badValue, badSampleFormatfor1Bps,
// sampleFormatValueNotSupported.
TagSetter setSampleFormat;

// Raises badBitsPerSampleCompressionCombination, ccittNotSupportedForCreating,
// unsupportedCompressionScheme(value).
TagSetter setCompression;

// Raises badPlanarConfigurationValue(value), badPhotometricPlanarConfigurationCombination.
TagSetter setPlanarConfiguration;

// Raises badThresholdingValue(value),
// badTagUsedWithPhotometric("Thresholding", "MinIsWhite, MinIsBlack").
TagSetter setThresholding;

// Stores SamplesPerPixel (1 for LogL, 3 for LogLuv) before the format, and keeps it when libtiff
// refuses the format. The format can be chosen once a directory.
// Raises badCompressionForSgiLogDataFmt, tagRetrievalFailed("SGILogDataFmt"), fmtAlreadySet,
// invalidSGILogDataFmtValue(value), unableToWriteTag("SamplesPerPixel").
TagSetter setSgiLogDataFmt;

// The kinds of the samples beyond those that Photometric has: doubles in an array of any shape.
// Raises as unpackTagArray.
TagSetter setExtraSamples;

}  // namespace tb

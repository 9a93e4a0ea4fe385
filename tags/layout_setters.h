// Setters of the tags that fix the layout of the samples. Each lets through only combinations that
// the module can write, and most of them read PhotometricInterpretation back, which therefore has
// to be set first. A failed check stores nothing.
//
// They return the status of the store, 0 when libtiff refuses the value. A value that is not one
// double element raises as unpackTagScalar does; the required tags that are not set raise
// tagRetrievalBeforeWriteFailed(required, set). setSamplesPerPixel, setNumberOfInks and
// setSgiLogDataFmt convert the value after they have read the directory, the others before; the
// other errors are named here in order.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>

#include "host/array.h"

namespace tb {

// Any 16-bit value: the combinations are checked when the other tags are set.
int setPhotometric(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

// Raises badBitsPerSampleValue, badPhotometricLabPaletteBitsPerSampleCombination,
// doNotSetForLogLuv("BitsPerSample").
int setBitsPerSample(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                     const vxArray* value);

// Raises doNotSetForLogLuv("SamplesPerPixel"), badSamplesPerPixelBitsPerSampleCombination.
int setSamplesPerPixel(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                       const vxArray* value);

// Raises doNotSetForLogLuv("SampleFormat"), badValue, badSampleFormatfor1Bps,
// sampleFormatValueNotSupported.
int setSampleFormat(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

// Raises badBitsPerSampleCompressionCombination, ccittNotSupportedForCreating,
// unsupportedCompressionScheme(value).
int setCompression(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

// Raises badPlanarConfigurationValue(value), badPhotometricPlanarConfigurationCombination.
int setPlanarConfiguration(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                           const vxArray* value);

// Raises badThresholdingValue(value),
// badTagUsedWithPhotometric("Thresholding", "MinIsWhite, MinIsBlack").
int setThresholding(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

// Stores SamplesPerPixel (1 for LogL, 3 for LogLuv) before the format, and keeps it when libtiff
// refuses the format. The format can be chosen once a directory.
// Raises badCompressionForSgiLogDataFmt, tagRetrievalFailed("SGILogDataFmt"), fmtAlreadySet,
// invalidSGILogDataFmtValue(value), unableToWriteTag("SamplesPerPixel").
int setSgiLogDataFmt(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                     const vxArray* value);

}  // namespace tb

// Checks of the arrays that are to be written against the layout that the directory was given.
// Nothing is written here; everything raises before the file is touched.
#pragma once

#include <span>

#include "core/image_metadata.h"
#include "host/array.h"

namespace tb {

// The arrays after the strip or tile number: one image, or Y, Cb and Cr.
using InputImages = std::span<const vxArray* const>;

// All checks, in this order. Raises imageDimensionsNotSet; tileDimensionsNotSet; what
// validatePhotometric, validateExtraSamples and validateCompression raise;
// badPlanarConfigurationSamplesPerPixelCombination.
void validateWriteConfiguration(const TiffImageMetaData_& record, InputImages images);

// Number, class and shape of the arrays as the photometric interpretation demands them. Returns the
// class of the last array that was looked at.
// Raises wrongNumberOfInputImages; eightBitSgiFormatNotAllowedWhenWriting and luvCodecNotSet (LogL,
// LogLuv); badRgbSamplesPerPixelConfiguration; badDatatypeForPaletteImage(bits, bits),
// badPaletteWriteConfiguration and colorMapShouldbeSet (palette); unsupportedYCbCrConfiguration and
// badYCbCrDimensions(Y rows, Y columns, Cb rows, Cb columns, Cr rows, Cr columns, horizontal,
// vertical subsampling); what validateInputImage raises.
vxClassID validatePhotometric(const TiffImageMetaData_& record, InputImages images);

// The array's class against bits per sample, its shape against the planar configuration, its class
// against the sample format, in this order. Returns the class.
// Raises imageDatatypeNotLogical, ...Not8bit, ...Not16bit, ...Not32bit or ...NotDouble(class name);
// unsupportedBitsPerSample(bits); badPlanarImage, badContigImageOneSpp or
// badContigImageMultipleSpp; badDatatypeForSampleFormat(format name, class names); badSampleFormat.
vxClassID validateInputImage(const vxArray* image, const TiffImageMetaData_& record);

// Warns missingExtraSamples (grey, separated) or raises badExtraSamples(name, samplesPerPixel)
// (RGB, palette) when the samples that are not extra are not the photometric interpretation's;
// raises improperUsageOfExtraSamples(count) where extra samples have no place.
void validateExtraSamples(const TiffImageMetaData_& record);

// What JPEG asks of the layout. Raises jpegBitsPerSampleMustBeEight,
// jpegCompressionRequiresThreeSamplesPerPixel, tiledJpegCompressionRequires16,
// strippedJpegInvalidRowsPerStrip.
void validateCompression(const TiffImageMetaData_& record);

}  // namespace tb

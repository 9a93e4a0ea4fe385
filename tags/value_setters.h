// Setters of the sample ranges and of the opaque byte blocks. They return the status of the store,
// 0 when libtiff refuses the value; a failed check stores nothing.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>

#include "host/array.h"

namespace tb {

// SMinSampleValue and SMaxSampleValue: one element, converted to the type that SampleFormat and
// BitsPerSample give the samples, and stored as a double. 0 is stored, whatever the value, for a
// format other than 1, 2 and 3.
// Raises tagValueNotDoublePrecisionScalar(tagName), tagRetrievalBeforeWriteFailed("SampleFormat",
// tagName), tagRetrievalBeforeWriteFailed("BitsPerSample", tagName), then
// badSampleFormatBitsPerSampleCombination(SampleFormat, BitsPerSample), or
// tagValueNotDoublePrecisionArray(tagName) and badSMinMaxValueForBiLevelImage(tagName).
int setSSampleValue(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

// RichTIFFIPTC, Photoshop and ICC Profile: the bytes of a uint8 array of any shape.
// Raises badUninterpretedTagType(tagName), lengthTooShort("Photoshop", 7); overflows when the count
// exceeds 32 bits.
int setUninterpretedByteType(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                             const vxArray* value);

// XMLPacket: the elements of a char array of any shape, one byte each, NULs included.
// Raises badXmlPacketTagType, lengthTooShort("XMP", 5).
int setXmlPacket(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value);

}  // namespace tb

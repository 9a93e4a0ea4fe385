// Setters of values with rules of their own: sample ranges, opaque bytes, the date and the number
// of sub-directories.
#pragma once

#include "tags/tag_table.h"

namespace tb {

// SMinSampleValue and SMaxSampleValue: one element, converted to the type that SampleFormat and
// BitsPerSample give the samples, and stored as a double. 0 is stored, whatever the value, for a
// format other than 1, 2 and 3. libtiff's refusal is not reported: callers rely on being able to
// set the range of any format.
// Raises tagValueNotDoublePrecisionScalar(tagName), tagRetrievalBeforeWriteFailed("SampleFormat",
// tagName), tagRetrievalBeforeWriteFailed("BitsPerSample", tagName), then
// badSampleFormatBitsPerSampleCombination(SampleFormat, BitsPerSample), or
// tagValueNotDoublePrecisionArray(tagName) and badSMinMaxValueForBiLevelImage(tagName).
TagSetter setSSampleValue;

// The bytes of a uint8 array of any shape, at least so many.
// Raises badUninterpretedTagType(tagName), lengthTooShort(tagName, least); overflows when the count
// exceeds 32 bits.
TagSetterWith<std::uint32_t> setUninterpretedByteType;

// XMLPacket: the elements of a char array of any shape, one byte each, NULs included.
// Raises badXmlPacketTagType, lengthTooShort("XMP", 5).
TagSetter setXmlPacket;

// DateTime: text, padded with blanks. Raises as unpack_string, then dateTimeTooLong.
TagSetter setDateTime;

// SubIFD: the number of sub-directories that will follow, the first element of an array of numbers
// of any class; libtiff fills their offsets in.
// Raises argumentOutOfBounds for what holds no numbers, which would count as 0, or as its first
// letter, and cost the directory those that it has; overflows at 65536.
TagSetter setSubIfd;

}  // namespace tb

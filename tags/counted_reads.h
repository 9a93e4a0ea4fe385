// Readers of tags whose value is an array: bytes, floats of a known length, and arrays with a
// count.
//
// Each returns a finished array of the caller's and raises tagRetrievalFailed(tagName) first of all
// when the tag is absent. A count without values, which a file with an empty tag leads to, is 0.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <span>
#include <string>

#include "core/values.h"
#include "host/array.h"

namespace tb {

// XMLPacket as a char row of its bytes, undecoded; RichTIFFIPTC, Photoshop and ICC Profile as a
// uint8 row.
vxArrayPtr retrieveCountpVoidpp(TIFF* tif, std::uint32_t tag, const std::string& tagName);

// WhitePoint (2 values), PrimaryChromaticities (6), YCbCrCoefficients (3) and ReferenceBlackWhite
// (6) as a double row. Null for any other tag.
vxArrayPtr retrieveFloatpp(TIFF* tif, std::uint32_t tag, const std::string& tagName);

// ModelTiepointTag as a matrix with one tie point a row, and the other GeoTIFF and RPC tags of
// doubles as a row.
// Raises badMultipleTagValueRetrieved(count, "ModelTiepointTag", 6). Warns, and goes on, with
// wrongSizedTagRetrieval(expected, tagName, count) for ModelPixelScaleTag and
// ModelTransformationTag, with badMultipleTagValueRetrieved(count, tagName, expected) for
// RPCCoefficientTag.
vxArrayPtr retrieveCountpDoublepp(TIFF* tif, std::uint32_t tag, const std::string& tagName);

// GeoKeyDirectoryTag as a matrix with one key entry a row.
// Raises badMultipleTagValueRetrieved(count, "GeoKeyDirectoryTag", 4), then unableToReadTag(tag).
vxArrayPtr retrieveGeoKeyDirectory(TIFF* tif, std::uint32_t tag, const std::string& tagName);

// ExtraSamples as a double row, SubIFD as a uint64 row. Raise unableToReadTag(tag).
vxArrayPtr retrieveExtraSamples(TIFF* tif, std::uint32_t tag, const std::string& tagName);
vxArrayPtr retrieveSubIfd(TIFF* tif, std::uint32_t tag, const std::string& tagName);

}  // namespace tb

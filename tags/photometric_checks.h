// Guards for tags that only go with certain photometric interpretations. Photometric must have been
// set: nothing here falls back to a default, so that a caller has to set it first.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <string>

namespace tb {

// PhotometricInterpretation of the current directory, read before the tag `tagName` is set.
// Raises tagRetrievalBeforeWriteFailed("PhotometricInterpretation", tagName) when it is not set.
std::uint16_t photometricBeforeWrite(TIFF* tif, const std::string& tagName);

// A 16-bit tag `tag`, called `requiredName`, read before `tagName` is set.
// Raises tagRetrievalBeforeWriteFailed(requiredName, tagName) when it is not set.
std::uint16_t requiredBeforeWrite(TIFF* tif, std::uint32_t tag, const char* requiredName,
                                  const std::string& tagName);

// Returns when PhotometricInterpretation is 5 (separated).
// Raises as photometricBeforeWrite, then photometricInterpretationNotSeparated(tagName).
void checkForSeparatedPhotometricInterpretation(TIFF* tif, std::uint32_t tag,
                                                const std::string& tagName);

// Returns PhotometricInterpretation when it is 2 (RGB), 3 (palette) or 6 (YCbCr).
// Raises as photometricBeforeWrite, then badTagUsedWithPhotometric(tagName,
// "RGB, YCbCr, Palette").
std::uint16_t checkForRgbColorimetryPhotometricInterpretation(TIFF* tif, std::uint32_t tag,
                                                              const std::string& tagName);

// True for LogL and LogLuv, whose sample layout SGILogDataFmt alone decides.
bool isLogPhotometric(std::uint16_t photometric) noexcept;

}  // namespace tb

#include "tags/photometric_checks.h"

#include "core/errors.h"
#include "core/field_guard.h"

namespace tb {

std::uint16_t requiredBeforeWrite(TIFF* tif, std::uint32_t tag, const char* requiredName,
                                  const std::string& tagName) {
  std::uint16_t value = 0;
  if (!fetchField(tif, tag, &value))
    raise<Tiff::tagRetrievalBeforeWriteFailed>(requiredName, tagName);
  return value;
}

std::uint16_t photometricBeforeWrite(TIFF* tif, const std::string& tagName) {
  return requiredBeforeWrite(tif, TIFFTAG_PHOTOMETRIC, "PhotometricInterpretation", tagName);
}

void checkForSeparatedPhotometricInterpretation(TIFF* tif, std::uint32_t,
                                                const std::string& tagName) {
  if (photometricBeforeWrite(tif, tagName) != PHOTOMETRIC_SEPARATED)
    raise<Tiff::photometricInterpretationNotSeparated>(tagName);
}

std::uint16_t checkForRgbColorimetryPhotometricInterpretation(TIFF* tif, std::uint32_t,
                                                              const std::string& tagName) {
  const std::uint16_t photometric = photometricBeforeWrite(tif, tagName);
  if (photometric != PHOTOMETRIC_RGB && photometric != PHOTOMETRIC_PALETTE &&
      photometric != PHOTOMETRIC_YCBCR)
    raise<Tiff::badTagUsedWithPhotometric>(tagName, "RGB, YCbCr, Palette");
  return photometric;
}

bool isLogPhotometric(std::uint16_t photometric) noexcept {
  return photometric == PHOTOMETRIC_LOGL || photometric == PHOTOMETRIC_LOGLUV;
}

}  // namespace tb

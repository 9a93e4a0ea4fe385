#include "image/read_checks.h"

#include <cstdint>

#include "core/errors.h"

namespace tb {

void validateReadConfiguration(const TiffImageMetaData_& record) {
  if (record.photometric == PHOTOMETRIC_YCBCR) {
    if (record.planarConfig == PLANARCONFIG_SEPARATE) {
      raise<Tiff::unsupportedYCbCrConfiguration>();
    }
    if (record.jpegColorMode == JPEGCOLORMODE_RGB) raise<Tiff::readWithJpegColorModeRGB>();
  } else if (record.photometric == PHOTOMETRIC_LOGL || record.photometric == PHOTOMETRIC_LOGLUV) {
    // As unsigned, so that -1, nothing chosen yet, is refused too.
    if (static_cast<std::uint32_t>(record.sgiLogDataFmt) >= 4) raise<Tiff::luvCodecNotSet>();
  }
}

}  // namespace tb

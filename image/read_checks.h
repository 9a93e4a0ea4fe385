#pragma once

#include "core/image_metadata.h"

namespace tb {

// Raises unsupportedYCbCrConfiguration for YCbCr in separate planes, readWithJpegColorModeRGB when
// the JPEG codec is set to convert YCbCr to RGB, and luvCodecNotSet for LogL and LogLuv data of
// which no data format was chosen.
void validateReadConfiguration(const TiffImageMetaData_& record);

}  // namespace tb

// Records of a directory for checks that are called directly.
#pragma once

#include <cstdint>
#include <functional>

#include "core/image_metadata.h"
#include "tests/support/gateway_call.h"

namespace tb::test {

// A contiguous gray image of 16 x 16 pixels in one strip, for changing some members.
inline TiffImageMetaData_ grayRecord() {
  return {.rowsPerStrip = 16,
          .imageWidth = 16,
          .imageLength = 16,
          .imageDepth = 1,
          .bitsPerSample = 8,
          .samplesPerPixel = 1,
          .planarConfig = PLANARCONFIG_CONTIG,
          .photometric = PHOTOMETRIC_MINISBLACK,
          .sampleFormat = SAMPLEFORMAT_UINT,
          .compression = COMPRESSION_NONE,
          .blockWidth = 16,
          .blockLength = 16,
          .samplesPerBlock = 1,
          .ycbcrSubsampling = {2, 2}};
}

inline TiffImageMetaData_ record(std::uint16_t photometric, std::uint16_t samples) {
  TiffImageMetaData_ result = grayRecord();
  result.photometric = photometric;
  result.samplesPerPixel = result.samplesPerBlock = samples;
  return result;
}

// Expects the error from a check that is called directly.
template <class Id>
void expectRefusal(const Arguments& arguments, const std::function<void()>& check) {
  clearRecord();
  expectError<Id>(arguments, check);
}

}  // namespace tb::test

// Subsampled YCbCr images for tests that are parametrised by the factors.
#pragma once

#include <cstdint>
#include <ostream>

#include "tests/support/tiff_files.h"

namespace tb::test {

struct Subsampling {
  std::uint16_t horizontal, vertical;
};
inline void PrintTo(const Subsampling& value, std::ostream* out) {
  *out << value.horizontal << ':' << value.vertical;
}

// In tiles of 32 x 16 pixels or strips of 16 rows.
inline Layout subsampledLayout(Subsampling factors, std::uint32_t width, std::uint32_t length,
                               bool tiled) {
  return {.width = width,
          .length = length,
          .samples = 3,
          .photometric = PHOTOMETRIC_YCBCR,
          .rowsPerStrip = tiled ? 0U : 16U,
          .tileWidth = tiled ? 32U : 0U,
          .tileLength = tiled ? 16U : 0U,
          .horizontal = factors.horizontal,
          .vertical = factors.vertical};
}

}  // namespace tb::test

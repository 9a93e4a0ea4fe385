#include "handlers/compression.h"

#include <fcntl.h>

#include <cstdint>

#include "core/errors.h"
#include "host/tiff_utilities.h"

namespace tb {

void validateCompressionScheme(TIFF* tif) {
  if ((TIFFGetMode(tif) & ~O_RDWR) != 0) return;
  std::uint16_t compression = COMPRESSION_NONE;
  (void)TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);  // keeps the initial value
  if (getCompressionScheme(compression).empty()) {
    raise<Tiff::unsupportedCompressionScheme>(compression);
  }
}

}  // namespace tb

#include "handlers/compression.h"

#include <fcntl.h>

#include <cstdint>

#include "core/errors.h"
#include "core/field_guard.h"
#include "host/tiff_utilities.h"

namespace tb {

void validateCompressionScheme(TIFF* tif) {
  if ((TIFFGetMode(tif) & ~O_RDWR) != 0) return;
  const auto compression =
      fieldOrDefault<std::uint16_t>(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  if (getCompressionScheme(compression).empty()) {
    raise<Tiff::unsupportedCompressionScheme>(compression);
  }
}

}  // namespace tb

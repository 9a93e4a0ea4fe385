#pragma once

#include <tiffio.h>

namespace tb {

// Checks that the host can name the compression (tag 259) of the current directory.
// Raises unsupportedCompressionScheme(compression) when it cannot.
void validateCompressionScheme(TIFF* tif);

}  // namespace tb

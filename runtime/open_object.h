// Opening file objects for libtiff.
#pragma once

#include <tiffio.h>

#include "runtime/file_objects.h"
#include "runtime/open_mode.h"

namespace tb::runtime {

// Opens an object with libtiff; null when that fails, with libtiff's reason among the messages.
// Throws FileObjectFailure when the object has failed.
TIFF* openObject(const NamedFileObject& named, const OpenMode& mode, TIFFOpenOptions* options);

}  // namespace tb::runtime

// Writing directories so that none is ever lost: what libtiff does happens as a whole, or the file
// is as it was.
#pragma once

#include <tiffio.h>

namespace tb {

// TIFFWriteDirectory and TIFFRewriteDirectory. Both return whether the directory is in the file; it
// is then no longer the current one. A failure leaves the file as it was. When libtiff had begun,
// the handle is spoilt: nothing can be stored through it any more, and closing writes nothing.
//
// writeDirectory succeeds without doing anything on a file that is open for reading.
bool writeDirectory(TIFF* tif);
// A directory outside the main chain, which libtiff would look for in vain, is refused.
bool rewriteDirectory(TIFF* tif);

// What comes before TIFFClose: writes what was stored since the directory was loaded or begun. When
// that is impossible the file stays as it was, and the warning directoryNotWritten says so. A file
// that was only looked at is left as it is.
void storeEdits(TIFF* tif) noexcept;

}  // namespace tb

// File identifiers and the registry of open files.
//
// A file identifier is a 1-by-1 "uint64" array that holds the address of libtiff's handle. The
// registry is the ordered set of handles that the module opened; identifiers are checked against
// it, so that a stale or forged one is never dereferenced. Nothing here locks: the host serialises
// the calls. These functions are exported, so that other code of the host can share the registry.
#pragma once

#include <tiffio.h>

#include "core/export.h"
#include "core/operation.h"

namespace tb {

// A new file identifier for `tif`.
TAGBRIDGE_EXPORT vxArrayPtr packUpTiffFileId(TIFF* tif);

// The handle that an identifier holds, read from its first 8 bytes whatever its class and size.
// Raises badFileId when it is 0, then invalidFileId when the handle is not registered or was closed
// by TagBridgeCleanup.
TAGBRIDGE_EXPORT TIFF* unpackTiffFileId(const vxArray* fileId);

// The same, but the record of "close" skips the registry: closing accepts what is no longer open.
TAGBRIDGE_EXPORT TIFF* unpackTiffFileId(const vxArray* fileId, s_tagbridge_op* op);

// The zero check alone.
TAGBRIDGE_EXPORT TIFF* getFileID(const vxArray* fileId);

// Inserts a handle into the registry; one that is there already stays, and is open again if
// TagBridgeCleanup had closed it.
TAGBRIDGE_EXPORT void TiffAtExitRegister(TIFF* tif);

// Removes a handle without closing it; an absent one is ignored.
TAGBRIDGE_EXPORT void TiffAtExitUnregister(TIFF* tif);

// True when the handle is not in the registry.
TAGBRIDGE_EXPORT bool TiffFilePointerIsInvalid(TIFF* tif);

// Closes the file and forgets it. A handle that is not registered is ignored, one that
// TagBridgeCleanup closed is only forgotten.
void closeRegisteredFile(TIFF* tif);

// True when the file is open for reading only.
bool isReadOnly(TIFF* tif);

}  // namespace tb

// Closes every registered file, in ascending order of address, after the warning closingFileHandle
// with its name, and undoes what the module changed in libtiff. The host calls it when it unloads
// the module. The handles stay registered but count as closed, so a later call cannot touch them.
extern "C" TAGBRIDGE_EXPORT void TagBridgeCleanup();

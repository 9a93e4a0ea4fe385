// The open files and what the module knows of each beyond libtiff.
//
// A file identifier is a 1-by-1 "uint64" array that holds the address of libtiff's handle. The
// registry is the ordered map of handles that the module opened; identifiers are checked against
// it, so that a stale or forged one is never dereferenced. A lock of its own guards the registry;
// what is known of a file belongs to the thread whose turn it is on it (core/turns.h). The exported
// functions let other code of the host share the registry.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "core/export.h"
#include "core/layout.h"
#include "core/operation.h"
#include "core/sample_depth.h"

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

// What is known of an open file. All but the first four speak of the current directory, and are
// forgotten when another one is successfully made current.
struct OpenFile {
  // Whether "open" opened it. Of other code's handles it is not known what was stored in them.
  bool isOpenedHere = false;
  bool closedByCleanup = false;
  // Whether a directory was begun here and linked: the chain before it has an end.
  bool hasAppended = false;
  // How many of the directories that are appended next will be sub-directories.
  std::uint16_t awaitedSubDirectories = 0;

  // Whether a tag or a block was stored since the directory was loaded or begun, and whether a tag.
  bool edited = false;
  bool tagsEdited = false;
  // Whether a block could not be stored.
  bool hasFailed = false;
  // Whether a block has another place or length in the file than it had.
  bool hasNewPlaces = false;
  // Whether the directory was reached through another one's SubIFD tag.
  bool isSubDirectory = false;
  // Whether a block was decoded or encoded, which sets a codec up.
  bool coderUsed = false;
  // The layout before the first edit of a loaded directory, by which libtiff computed its sizes,
  // and that by which the codec was set up if there was such an edit.
  std::optional<Layout> loaded;
  std::optional<Layout> coder;
  // Whether the places of the loaded directory's blocks are those that the file says; known from
  // the first block that is stored on.
  std::optional<bool> hasStoredPlaces;
  // The sample layout of the file, when reading an image has changed what the directory says of it.
  std::optional<SampleDepth> storedDepth;
  // The access mode, as TIFFGetMode returns it, of a handle without a directory: a move failed and
  // the way back too. Until a move succeeds nothing can be stored.
  std::optional<int> suspendedMode;
  // Whether writing a directory failed. The file is as it was, but libtiff's handle is not: what it
  // would write from now on would damage the file.
  bool isSpoilt = false;

  // Another directory is the current one.
  void forgetDirectory() noexcept;
};

// Inserts a handle that "open" opened.
void registerOpenedFile(TIFF* tif);

// The record of a registered handle; null for any other. It lives for as long as the caller has its
// turn on the file, or until the handle is unregistered.
OpenFile* findOpenFile(TIFF* tif) noexcept;

// The registered handles, ascending by address.
std::vector<TIFF*> registeredFiles();

// True when the file is open for reading only.
bool isReadOnly(TIFF* tif);

// True when the handle has no directory that could be written: see OpenFile::suspendedMode and
// OpenFile::isSpoilt.
bool isWithoutDirectory(TIFF* tif) noexcept;

// Makes a new, empty directory the current one.
void beginDirectory(TIFF* tif);

// Leaves the handle with an empty directory, of which nothing is ever written, after libtiff has
// failed half-way. Returns the access mode that it had.
int dropDirectory(TIFF* tif);

}  // namespace tb

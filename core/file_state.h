// What the module has to know of an open file beyond libtiff: whether its current directory was
// edited since it was loaded or begun.
#pragma once

#include <tiffio.h>

namespace tb {

// Makes room to note edits of a file, so that noting them after the fact cannot fail.
void prepareToNoteEdits(TIFF* tif);

// Says that a tag or a block of the current directory was stored.
void noteEdit(TIFF* tif);

// Says that the size of a tile changed with a tag. libtiff keeps the size that it computed when the
// directory was loaded until the next write, and would decode by it into buffers of the new size:
// until then tiles cannot be read.
void noteLayoutEdit(TIFF* tif);

// Whether a noteLayoutEdit is not yet followed by a write or another directory.
bool isLayoutEdited(TIFF* tif);

// Says that libtiff has computed the sizes of the current directory anew, in a write.
void noteBlockWritten(TIFF* tif);

// Says that another directory is the current one, or that the file was closed.
void forgetEdits(TIFF* tif);

// Removes a SubIFD tag (330) of no offsets from the current directory. libtiff stores such a tag
// but cannot write it, and the whole directory would be lost: to be called before a directory is
// written.
void dropEmptySubIfd(TIFF* tif);

// TIFFClose, before which an edited directory is made fit to be written. A file that was only
// looked at is left as it is.
void closeFile(TIFF* tif);

}  // namespace tb

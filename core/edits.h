// What was stored in the current directory, and what libtiff may still be asked because of it.
//
// libtiff computes the sizes of tiles and rows when a directory is loaded and again when the first
// block is written; a codec sets itself up at its first block. Neither looks at tags that are
// stored afterwards, and would then decode blocks of one size into buffers of another.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <exception>

#include "core/open_files.h"

namespace tb {

// Lives while a tag is stored: notes the edit when it ends, and before that what the layout was. A
// tag that libtiff refuses counts, since libtiff may have dropped the old value; one that fails a
// check does not.
class EditScope {
 public:
  EditScope(TIFF* tif, std::uint32_t tag);
  EditScope(const EditScope&) = delete;
  EditScope& operator=(const EditScope&) = delete;
  ~EditScope();

 private:
  TIFF* tif_;
  std::uint32_t tag_;
  OpenFile* file_;
  std::uint16_t compression_ = 0;
  bool sizesAreCurrent_ = false;
  int exceptions_ = std::uncaught_exceptions();
};

// Whether libtiff may decode blocks of the current directory. When it may not, libtiff's error
// handlers hear of it in the name of `operation`; when it may, its codec counts as used.
bool mayDecode(TIFF* tif, const char* operation);

// Whether a codec that was used already still fits the layout, so that a block may be encoded.
bool mayEncode(TIFF* tif);

// Whether the directory was loaded with another compression or arrangement of planes than it has
// now. libtiff numbers the planes of its blocks as they were until the directory is loaded again.
bool hasNewCoding(TIFF* tif);

// Says that a block was stored, for which libtiff has computed its sizes anew, and whether it has
// another place or length in the file than before.
void noteBlockWritten(TIFF* tif, bool hasNewPlace) noexcept;

// Says that a block could not be stored, which leaves the directory as it was.
void noteBlockNotWritten(TIFF* tif) noexcept;

// Says that reading an image has changed what the directory says of its samples, which were
// `stored` in the file as they are. Nothing of that is written.
void noteReadEdit(TIFF* tif, SampleDepth stored) noexcept;

}  // namespace tb

#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/image_metadata.h"

namespace tb {

// The one libtiff call of a write, made all or nothing: when it fails, the block's place in the
// directory and the length of the file are as before, and what the encoder has left in libtiff's
// buffer is discarded, since closing the file would write it. What cannot be undone is an error of
// the file system half-way through overwriting a block in its place.
class BlockWrite {
 public:
  // Notes where the strip or tile `block` stands before the call.
  BlockWrite(const TiffImageMetaData_& record, std::uint32_t block);

  // Calls TIFFWriteEncodedStrip or TIFFWriteEncodedTile, by the layout, with the first `count`
  // bytes of `buffer`. Returns false when libtiff refuses or fails.
  bool write(std::span<std::byte> buffer, tmsize_t count) const;

 private:
  bool hasPlace() const;
  bool encode(std::span<std::byte> buffer, tmsize_t count) const;
  void undo() const;

  const TiffImageMetaData_& record_;
  std::uint32_t block_;
  std::uint64_t offset_ = 0;
  std::uint64_t byteCount_ = 0;
  std::uint64_t fileSize_ = 0;
};

}  // namespace tb

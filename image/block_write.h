#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "core/image_metadata.h"

namespace tb {

// The one libtiff call of a write, made all or nothing: encodes the first `count` bytes of `buffer`
// as strip or tile `block`, by the layout, and returns whether libtiff succeeded. When it fails,
// the block's place in the directory and the length of the file are as before, and what the encoder
// has left in libtiff's buffer is discarded, since closing the file would write it. What cannot be
// undone is an error of the file system half-way through overwriting a block in its place.
bool writeBlock(const TiffImageMetaData_& record, std::uint32_t block, std::span<std::byte> buffer,
                tmsize_t count);

}  // namespace tb

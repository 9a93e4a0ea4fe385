// From OpenJPEG's planes to the bytes of a strip or tile as libtiff delivers it.
#pragma once

#include <openjpeg.h>

#include <cstddef>
#include <span>

#include "runtime/block_format.h"

namespace tb::runtime {

// Fills `block`, which has format.size() bytes and any alignment, from an image whose SIZ has
// passed checkFormat.
void storeBlock(const opj_image_t& image, const BlockFormat& format, std::span<std::byte> block);

}  // namespace tb::runtime

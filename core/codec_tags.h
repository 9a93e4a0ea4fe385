#pragma once

#include <tiffio.h>

#include <cstdint>

namespace tb {

// Whether `tag` belongs to codecs of which `compression` is none. False for every tag that no codec
// stores in the file.
bool isTagOfAnotherCodec(std::uint32_t tag, std::uint16_t compression) noexcept;

// Unsets the tags that codecs store in the file: when another codec has taken the place of theirs,
// since it takes the marks of which are set for its own.
void unsetCodecTags(TIFF* tif) noexcept;

}  // namespace tb

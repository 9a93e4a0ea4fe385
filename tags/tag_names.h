// The names of tags: the gate that a number passes before libtiff hears of it, and the argument of
// most messages about tags.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tb {

struct TagName {
  std::uint32_t tag;
  std::string_view name;
};

// The name of `tag`. The handle is not used: the names do not depend on the file.
// Raises unrecognizedTagNumber(tag) for a number without a name.
std::string tag_num_to_tag_name(TIFF* tif, std::uint32_t tag);

// All names in ascending order of tag, each tag once.
std::span<const TagName> allTagNames();

}  // namespace tb

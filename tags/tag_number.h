// The argument that names a tag.
#pragma once

#include <cstdint>

#include "core/values.h"

namespace tb {

// The tag number that an argument holds: its first element by its value, whatever its class, cut
// toward zero. Overflows (see convertNumber) at -1 and below and at 2^32 and above.
inline std::uint32_t unpack_ttag_t(const vxArray* tag) { return unpackNumber<std::uint32_t>(tag); }

}  // namespace tb

// Tag numbers: the argument, and those that libtiff's headers do not name.
#pragma once

#include <cstdint>

#include "core/values.h"

namespace tb {

// The tags that the host's TIFF utility library makes known to libtiff.
inline constexpr std::uint32_t kModelPixelScaleTag = 33550;
inline constexpr std::uint32_t kModelTiepointTag = 33922;
inline constexpr std::uint32_t kModelTransformationTag = 34264;
inline constexpr std::uint32_t kGeoKeyDirectoryTag = 34735;
inline constexpr std::uint32_t kGeoDoubleParamsTag = 34736;
inline constexpr std::uint32_t kGeoAsciiParamsTag = 34737;
inline constexpr std::uint32_t kRpcCoefficientTag = 50844;

// The tag number that an argument holds: its first element by its value, whatever its class, cut
// toward zero. Overflows (see convertNumber) at -1 and below and at 2^32 and above.
inline std::uint32_t unpack_ttag_t(const vxArray* tag) { return unpackNumber<std::uint32_t>(tag); }

}  // namespace tb

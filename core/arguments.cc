#include "core/arguments.h"

#include <algorithm>

#include "core/errors.h"
#include "core/values.h"

namespace tb {

std::uint32_t unpack_ttag_t(const vxArray* argument) {
  return unpackNumber<std::uint32_t>(argument);
}

std::uint32_t unpack_tstrip_t(const vxArray* argument) {
  return unpackNumber<std::uint32_t>(argument);
}

std::uint32_t unpack_ttile_t(const vxArray* argument) {
  return unpackNumber<std::uint32_t>(argument);
}

std::uint32_t unpackRow(const vxArray* argument) { return unpackNumber<std::uint32_t>(argument); }

std::uint32_t unpackDirectoryNumber(const vxArray* argument) {
  return unpackNumber<std::uint32_t>(argument);
}

std::uint64_t unpackDirectoryOffset(const vxArray* argument) {
  switch (vxGetClassID(argument)) {
    case vxINT64:
      return convertNumber<std::uint64_t>(firstElement<std::int64_t>(argument));
    case vxUINT64:
      return firstElement<std::uint64_t>(argument);
    default:
      return unpackNumber<std::uint64_t>(argument);
  }
}

void unpackPixelXY(const vxArray* argument, std::uint32_t& x, std::uint32_t& y) {
  x = convertNumber<std::uint32_t>(numberAt(argument, 1));
  y = convertNumber<std::uint32_t>(numberAt(argument, 0));
}

std::uint16_t unpack_tsample_t(int argumentCount, const vxArray* sampleArgument,
                               const TiffImageMetaData_& record) {
  std::uint16_t sample = 0;
  if (argumentCount == 2) {
    if (record.planarConfig == PLANARCONFIG_SEPARATE) raise<Tiff::sampleParameterRequired>();
  } else {
    if (record.planarConfig == PLANARCONFIG_CONTIG) {
      raise<Tiff::sampleParameterNotAllowedInChunkyCase>();
    }
    sample = unpackNumber<std::uint16_t>(sampleArgument);
  }
  // The bound is samplesPerPixel, not one less: libtiff judges an index past the last plane.
  return std::min(sample, record.samplesPerPixel);
}

}  // namespace tb

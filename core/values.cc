#include "core/values.h"

namespace tb {
namespace {
constexpr std::size_t kScalarDimensions[] = {1, 1};
}

vxArrayPtr doubleScalar(double value) {
  vxArrayPtr scalar = matrix::detail::do_create_uninitnumeric(vxDOUBLE, kScalarDimensions);
  std::memcpy(vxGetWritableData(scalar.get()), &value, sizeof value);
  return scalar;
}

vxArrayPtr logicalScalar(bool value) {
  vxArrayPtr scalar = matrix::detail::do_create_uninitnumeric(vxLOGICAL, kScalarDimensions);
  *vxGetLogicals(scalar.get()) = value;
  return scalar;
}

}  // namespace tb

#include "tags/converters.h"

namespace tb {

bool isDoubleMatrix(const vxArray* value, std::size_t width) {
  return vxGetClassID(value) == vxDOUBLE && vxGetNumberOfDimensions(value) == 2 &&
         vxGetDimensions(value)[1] == width;
}

std::string unpack_string(const vxArray* value, std::uint32_t, const std::string& tagName) {
  const HostString text = hostString(value);
  if (text == nullptr) raise<Tiff::argumentWasNotChar>(tagName);
  return text.get();
}

}  // namespace tb

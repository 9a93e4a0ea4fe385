#include "tests/support/host_value.h"

#include <ostream>

namespace tb::test {
namespace {

template <class T>
std::vector<double> asDoubles(const vxArray* array) {
  const auto* from = static_cast<const T*>(vxGetData(array));
  std::vector<double> elements;
  for (std::size_t k = 0; k < vxGetNumberOfElements(array); ++k)
    elements.push_back(static_cast<double>(from[k]));
  return elements;
}

std::vector<double> elementsAsDoubles(const vxArray* array) {
  switch (vxGetClassID(array)) {
    case vxLOGICAL:
    case vxUINT8:
      return asDoubles<std::uint8_t>(array);
    case vxCHAR:
    case vxUINT16:
      return asDoubles<std::uint16_t>(array);
    case vxDOUBLE:
      return asDoubles<double>(array);
    case vxSINGLE:
      return asDoubles<float>(array);
    case vxUINT32:
      return asDoubles<std::uint32_t>(array);
    case vxUINT64:
      return asDoubles<std::uint64_t>(array);
    default:
      return {};
  }
}

}  // namespace

HostValue valueOf(const vxArray* array) {
  if (array == nullptr) return {};
  HostValue value{vxGetClassID(array), {}, elementsAsDoubles(array), {}};
  const std::size_t* dimensions = vxGetDimensions(array);
  value.dimensions.assign(dimensions, dimensions + vxGetNumberOfDimensions(array));
  if (value.classId == vxCELL)
    for (std::size_t k = 0; k < vxGetNumberOfElements(array); ++k)
      value.cells.push_back(valueOf(vxGetCell(array, k)));
  return value;
}

HostValue aDouble(double element) { return aRow({element}); }
HostValue aRow(const std::vector<double>& elements) { return aRowOf(vxDOUBLE, elements); }
HostValue aMatrix(std::size_t rows, std::size_t columns, const std::vector<double>& elements) {
  return {vxDOUBLE, {rows, columns}, elements, {}};
}
HostValue aRowOf(vxClassID classId, const std::vector<double>& elements) {
  return {classId, {1, elements.size()}, elements, {}};
}

HostValue aText(const std::string& text) {
  HostValue value{vxCHAR, {text.empty() ? std::size_t{0} : 1, text.size()}, {}, {}};
  for (const char character : text) value.elements.push_back(static_cast<unsigned char>(character));
  return value;
}

HostValue aCell(const std::vector<HostValue>& cells) {
  return {vxCELL, {1, cells.size()}, {}, cells};
}

void PrintTo(const HostValue& value, std::ostream* out) {
  constexpr std::size_t kShown = 24;
  *out << "class " << value.classId << ", dimensions";
  for (const std::size_t dimension : value.dimensions) *out << ' ' << dimension;
  *out << ", elements";
  for (std::size_t k = 0; k < value.elements.size() && k < kShown; ++k)
    *out << ' ' << value.elements[k];
  if (value.elements.size() > kShown) *out << " ...";
  for (const HostValue& cell : value.cells) {
    *out << "; cell: ";
    PrintTo(cell, out);
  }
}

}  // namespace tb::test

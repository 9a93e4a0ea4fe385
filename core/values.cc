#include "core/values.h"

#include <iterator>

namespace tb {
namespace {

constexpr std::size_t kScalarDimensions[] = {1, 1};

template <class T>
double elementAt(const std::byte* elements, std::size_t index) noexcept {
  T element{};
  std::memcpy(&element, elements + index * sizeof element, sizeof element);
  return static_cast<double>(element);
}

double noElementAt(const std::byte*, std::size_t) noexcept { return 0; }

// How an element is read, by class code. A logical is a byte that is 0 or 1.
using ElementReader = double (*)(const std::byte*, std::size_t) noexcept;
constexpr ElementReader kReaders[] = {
    noElementAt,              // vxUNKNOWN
    noElementAt,              // vxCELL
    noElementAt,              // vxSTRUCT
    elementAt<std::uint8_t>,  // vxLOGICAL
    elementAt<char16_t>,      // vxCHAR
    noElementAt,              // vxVOID
    elementAt<double>,        // vxDOUBLE
    elementAt<float>,         // vxSINGLE
    elementAt<std::int8_t>,
    elementAt<std::uint8_t>,
    elementAt<std::int16_t>,
    elementAt<std::uint16_t>,
    elementAt<std::int32_t>,
    elementAt<std::uint32_t>,
    elementAt<std::int64_t>,
    elementAt<std::uint64_t>,
};
static_assert(std::size(kReaders) == vxUINT64 + 1);

}  // namespace

double numberAt(const vxArray* argument, std::size_t index) noexcept {
  return kReaders[vxGetClassID(argument)](dataOf(argument), index);
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

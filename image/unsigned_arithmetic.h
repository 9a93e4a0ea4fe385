// Arithmetic with numbers from files, which may be 0: a division by zero yields 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tb {

constexpr std::uint32_t quotient(std::uint32_t dividend, std::uint32_t divisor) noexcept {
  return divisor == 0 ? 0 : dividend / divisor;
}

constexpr std::uint32_t remainder(std::uint32_t dividend, std::uint32_t divisor) noexcept {
  return divisor == 0 ? 0 : dividend % divisor;
}

// The quotient rounded up. The divisor is not 0.
constexpr std::size_t quotientUp(std::size_t dividend, std::size_t divisor) noexcept {
  return (dividend + divisor - 1) / divisor;
}

}  // namespace tb

// Kernels that put three planes of 8-bit samples, kept as 32-bit numbers, together as bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tb::runtime {

// Writes element i of the planes to rgb[3*i] to rgb[3*i + 2]. They are from 0 to 255, or negative
// and stored in two's complement: the low byte counts.
void joinRgbBytes(const std::int32_t* red, const std::int32_t* green, const std::int32_t* blue,
                  std::size_t count, std::uint8_t* rgb);

// The same with RGB computed from YCbCr by JFIF's formula, to the nearest.
void joinRgbBytesFromYCbCr(const std::int32_t* y, const std::int32_t* cb, const std::int32_t* cr,
                           std::size_t count, std::uint8_t* rgb);

}  // namespace tb::runtime

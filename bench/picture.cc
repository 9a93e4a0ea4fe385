#include "bench/picture.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace tb::bench {
namespace {

constexpr std::uint32_t kPeriod = 1024;

std::array<double, kPeriod> makeWave() {
  std::array<double, kPeriod> wave{};
  for (std::uint32_t step = 0; step < kPeriod; ++step) {
    wave[step] = std::sin(6.283185307179586 * step / kPeriod);
  }
  return wave;
}

// From 0 to 1. Repeats after kPeriod rows or columns, but for the noise.
double level(std::uint32_t row, std::uint32_t column, std::uint32_t sample) {
  static const std::array<double, kPeriod> wave = makeWave();
  std::uint32_t random = row * 0x9E3779B1U + column * 0x85EBCA77U + sample * 0xC2B2AE3DU;
  random = (random ^ (random >> 15)) * 0x2C1B3C6DU;
  const double noise = static_cast<double>(random >> 16) / 65536 - 0.5;
  const double slow = wave[(row + 300 * sample) % kPeriod] + wave[(3 * column + row) % kPeriod];
  const double fast = wave[(7 * row + 5 * column) % kPeriod];
  return 0.5 + 0.18 * slow + 0.1 * fast + 0.01 * noise;
}

template <class T>
T sampleOf(double value) {
  if constexpr (std::numeric_limits<T>::is_integer) {
    return static_cast<T>(value * static_cast<double>(std::numeric_limits<T>::max()));
  } else {
    return static_cast<T>(value);
  }
}

template <class T>
void paint(const PictureRow& row, std::byte* to) {
  for (std::uint32_t pixel = 0; pixel < row.pixels; ++pixel) {
    for (std::uint32_t sample = 0; sample < row.samples; ++sample) {
      const T value = sampleOf<T>(level(row.row, row.column + pixel, row.firstSample + sample));
      std::memcpy(to, &value, sizeof value);
      to += sizeof value;
    }
  }
}

void paintBits(const PictureRow& row, std::byte* to) {
  std::memset(to, 0, (row.pixels * row.samples + 7) / 8);
  for (std::uint32_t pixel = 0; pixel < row.pixels; ++pixel) {
    if (level(row.row, row.column + pixel, row.firstSample) < 0.5) continue;
    to[pixel / 8] |= std::byte{0x80} >> (pixel % 8);
  }
}

}  // namespace

void paintRow(const PictureRow& row, std::uint16_t bits, bool floating, std::byte* to) {
  if (bits == 1) return paintBits(row, to);
  if (bits == 8) return paint<std::uint8_t>(row, to);
  if (bits == 16) return paint<std::uint16_t>(row, to);
  if (bits == 64) return paint<double>(row, to);
  if (floating) return paint<float>(row, to);
  paint<std::uint32_t>(row, to);
}

}  // namespace tb::bench

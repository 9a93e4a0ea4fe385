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

// The same at the same place, evenly spread over 32 bits.
std::uint32_t randomNumber(std::uint32_t row, std::uint32_t column, std::uint32_t sample) {
  std::uint32_t random = row * 0x9E3779B1U + column * 0x85EBCA77U + sample * 0xC2B2AE3DU;
  random = (random ^ (random >> 15)) * 0x2C1B3C6DU;
  return random ^ (random >> 13);
}

// From 0 to 1. Repeats after kPeriod rows or columns, but for the noise.
double level(std::uint32_t row, std::uint32_t column, std::uint32_t sample) {
  static const std::array<double, kPeriod> wave = makeWave();
  const double noise = static_cast<double>(randomNumber(row, column, sample) >> 16) / 65536 - 0.5;
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

// A printed page, which is what bilevel images mostly are: lines of characters, each of 5 x 7 dots
// in a cell of 8 x 12, a dot being 5 pixels wide and high. On 4096 pixels that is 102 characters.
bool isInk(std::uint32_t row, std::uint32_t column) {
  constexpr std::uint32_t kDot = 5, kCellWidth = 8, kCellHeight = 12;
  const std::uint32_t dotRow = row / kDot, dotColumn = column / kDot;
  if (dotRow % kCellHeight >= 7 || dotColumn % kCellWidth >= 5) return false;
  return randomNumber(dotRow, dotColumn, 0) % 2 != 0;
}

void paintBits(const PictureRow& row, std::byte* to) {
  std::memset(to, 0, (row.pixels * row.samples + 7) / 8);
  for (std::uint32_t pixel = 0; pixel < row.pixels; ++pixel) {
    if (isInk(row.row, row.column + pixel)) to[pixel / 8] |= std::byte{0x80} >> (pixel % 8);
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

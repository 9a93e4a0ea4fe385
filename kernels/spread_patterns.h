// Where the bits of a few rows, joined byte by byte, go when every bit becomes a byte.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tb {

// The most rows for which there is a pattern, and the packed bytes that a pattern starts from.
constexpr std::size_t kMostSpreadRows = 16;
constexpr std::size_t kSpreadBytes = 16;

// Sixteen packed bytes hold whole columns of bytes, each of them one byte for every row; output
// byte i is bit mask[i] of byte source[i]. Of the outputs as many count as those columns have bits.
struct SpreadPattern {
  alignas(64) std::array<std::uint8_t, 8 * kSpreadBytes> source, mask;
};

constexpr SpreadPattern makeSpreadPattern(std::size_t rows) {
  SpreadPattern pattern{};
  for (std::size_t i = 0; i < pattern.source.size(); ++i) {
    const std::size_t column = i / rows, row = i % rows;
    const std::size_t source = column / 8 * rows + row;
    pattern.source[i] = static_cast<std::uint8_t>(source % kSpreadBytes);
    pattern.mask[i] = static_cast<std::uint8_t>(0x80U >> column % 8);
  }
  return pattern;
}

// By the number of rows less one.
inline constexpr auto kSpreadPatterns = [] {
  std::array<SpreadPattern, kMostSpreadRows> patterns{};
  for (std::size_t rows = 1; rows <= kMostSpreadRows; ++rows)
    patterns[rows - 1] = makeSpreadPattern(rows);
  return patterns;
}();

}  // namespace tb

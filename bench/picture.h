// Pixels to fill images with.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tb::bench {

// A piece of a row of pixels: `pixels` pixels from `column` on, each with `samples` samples from
// `firstSample` on.
struct PictureRow {
  std::uint32_t row;
  std::uint32_t column;
  std::uint32_t pixels;
  std::uint32_t firstSample;
  std::uint32_t samples;
};

// Paints samples of 1, 8, 16, 32 or 64 bits to `to`, floating ones from 0 to 1, others over their
// whole range; bits fill bytes from the highest on. The picture is a smooth surface with a little
// noise, as a photograph is, so that compressing it is neither hopeless nor trivial; in bits it is
// a page of characters.
void paintRow(const PictureRow& row, std::uint16_t bits, bool floating, std::byte* to);

}  // namespace tb::bench

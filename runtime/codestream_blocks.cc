#include "runtime/codestream_blocks.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tb::runtime {
namespace {

using Plane = const OPJ_INT32*;

// The samples of a block in the order of its bytes.
template <class T>
class Samples {
 public:
  explicit Samples(std::span<std::byte> block) noexcept : next_(block.data()) {}

  std::byte* at(std::size_t sample) const noexcept { return next_ + sample * sizeof(T); }

  // OpenJPEG keeps samples within their precision. A signed one is stored in two's complement.
  static void put(std::byte* to, OPJ_INT32 value) noexcept {
    const auto sample = static_cast<T>(value);
    std::memcpy(to, &sample, sizeof sample);
  }
  void append(OPJ_INT32 value) noexcept {
    put(next_, value);
    next_ += sizeof(T);
  }

 private:
  std::byte* next_;
};

// --- As coded

template <class T, std::size_t kComponents>
void interleave(const opj_image_t& image, std::size_t pixels, Samples<T> samples) {
  Plane planes[kComponents];
  for (std::size_t c = 0; c < kComponents; ++c) planes[c] = image.comps[c].data;
  for (std::size_t pixel = 0; pixel < pixels; ++pixel)
    for (std::size_t c = 0; c < kComponents; ++c)
      samples.put(samples.at(pixel * kComponents + c), planes[c][pixel]);
}

// Puts components from the given one on in their places.
template <class T>
void storePlanes(const opj_image_t& image, std::size_t first, std::size_t pixels,
                 Samples<T> samples) {
  for (std::size_t c = first; c < image.numcomps; ++c) {
    const Plane plane = image.comps[c].data;
    for (std::size_t pixel = 0; pixel < pixels; ++pixel)
      samples.put(samples.at(pixel * image.numcomps + c), plane[pixel]);
  }
}

template <class T>
void storeAsCoded(const opj_image_t& image, std::size_t pixels, Samples<T> samples) {
  switch (image.numcomps) {
    case 1:
      return interleave<T, 1>(image, pixels, samples);
    case 3:
      return interleave<T, 3>(image, pixels, samples);
    case 4:
      return interleave<T, 4>(image, pixels, samples);
    default:
      return storePlanes(image, 0, pixels, samples);
  }
}

// --- RGB from YCbCr, by JFIF's formula in fixed-point numbers

// Numbers with a fraction, and room for the sum of three products of samples.
template <class T>
struct Fixed {
  using Number = std::conditional_t<sizeof(T) == 1, std::int32_t, std::int64_t>;
  static constexpr int kFractionBits = sizeof(T) == 1 ? 16 : 32;
  static constexpr Number kHalf = Number{1} << (kFractionBits - 1);

  static constexpr Number of(double value) {
    return static_cast<Number>(value * 2 * static_cast<double>(kHalf) + 0.5);
  }
};

template <class T>
class RgbPixels {
 public:
  RgbPixels(const opj_image_t& image, Samples<T> samples)
      : samples_(samples),
        components_(image.numcomps),
        most_((Number{1} << image.comps[0].prec) - 1),
        middle_(Number{1} << (image.comps[0].prec - 1)) {}

  void put(std::size_t pixel, OPJ_INT32 y, OPJ_INT32 cb, OPJ_INT32 cr) const noexcept {
    constexpr Number kRedFromCr = Fixed<T>::of(1.402), kBlueFromCb = Fixed<T>::of(1.772);
    constexpr Number kGreenFromCb = Fixed<T>::of(0.344136286);
    constexpr Number kGreenFromCr = Fixed<T>::of(0.714136286);
    const Number luma = (Number{y} << Fixed<T>::kFractionBits) + Fixed<T>::kHalf;
    const Number blue = cb - middle_, red = cr - middle_;
    std::byte* to = samples_.at(pixel * components_);
    putComponent(to, luma + kRedFromCr * red);
    putComponent(to + sizeof(T), luma - kGreenFromCb * blue - kGreenFromCr * red);
    putComponent(to + 2 * sizeof(T), luma + kBlueFromCb * blue);
  }

 private:
  using Number = typename Fixed<T>::Number;

  void putComponent(std::byte* to, Number value) const noexcept {
    const Number sample = std::clamp<Number>(value >> Fixed<T>::kFractionBits, 0, most_);
    samples_.put(to, static_cast<OPJ_INT32>(sample));
  }

  Samples<T> samples_;
  std::size_t components_;
  Number most_, middle_;
};

// A chroma sample counts for all pixels of its unit.
template <class T>
void storeRgb(const opj_image_t& image, const BlockFormat& format, Samples<T> samples) {
  const opj_image_comp_t* comps = image.comps;
  const RgbPixels<T> pixels(image, samples);
  const auto shift = static_cast<unsigned>(std::countr_zero(comps[1].dx));
  for (std::size_t row = 0; row < format.rows; ++row) {
    const Plane y = comps[0].data + row * comps[0].w;
    const Plane cb = comps[1].data + row / comps[1].dy * comps[1].w;
    const Plane cr = comps[2].data + row / comps[2].dy * comps[2].w;
    for (std::size_t column = 0; column < format.width; ++column) {
      pixels.put(row * format.width + column, y[column], cb[column >> shift], cr[column >> shift]);
    }
  }
  storePlanes(image, 3, std::size_t{format.rows} * format.width, samples);
}

// --- Units

// Units at the right and lower edge repeat the image's last column and row.
template <class T>
void storeUnits(const opj_image_t& image, const BlockFormat& format, Samples<T> samples) {
  const opj_image_comp_t* comps = image.comps;
  const std::size_t h = format.horizontal, v = format.vertical;
  for (std::size_t row = 0; row < format.rows; row += v) {
    const std::size_t chromaRow = row / v * comps[1].w;
    for (std::size_t column = 0; column < format.width; column += h) {
      for (std::size_t k = 0; k < h * v; ++k) {
        const std::size_t lumaRow = std::min<std::size_t>(row + k / h, comps[0].h - 1);
        const std::size_t lumaColumn = std::min<std::size_t>(column + k % h, comps[0].w - 1);
        samples.append(comps[0].data[lumaRow * comps[0].w + lumaColumn]);
      }
      samples.append(comps[1].data[chromaRow + column / h]);
      samples.append(comps[2].data[chromaRow + column / h]);
    }
  }
}

template <class T>
void store(const opj_image_t& image, const BlockFormat& format, std::span<std::byte> block) {
  const Samples<T> samples(block);
  switch (format.colour) {
    case BlockColour::kAsCoded:
      return storeAsCoded(image, std::size_t{format.rows} * format.width, samples);
    case BlockColour::kYCbCrToRgb:
      return storeRgb(image, format, samples);
    case BlockColour::kYCbCrInUnits:
      return storeUnits(image, format, samples);
  }
}

void swapBytes(std::span<std::byte> block) {
  for (std::size_t i = 0; i + 1 < block.size(); i += 2) std::swap(block[i], block[i + 1]);
}

}  // namespace

void storeBlock(const opj_image_t& image, const BlockFormat& format, std::span<std::byte> block) {
  if (format.bits == 8)
    store<std::uint8_t>(image, format, block);
  else
    store<std::uint16_t>(image, format, block);
  if (format.isSwapped) swapBytes(block);
}

}  // namespace tb::runtime

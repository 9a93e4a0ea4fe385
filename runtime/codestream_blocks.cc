#include "runtime/codestream_blocks.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "runtime/rgb_bytes.h"

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

void storeRgbBytes(const opj_image_t& image, std::size_t pixels, std::byte* to) {
  const opj_image_comp_t* comps = image.comps;
  joinRgbBytes(comps[0].data, comps[1].data, comps[2].data, pixels,
               reinterpret_cast<std::uint8_t*>(to));
}

template <class T>
void storeAsCoded(const opj_image_t& image, std::size_t pixels, Samples<T> samples) {
  if (sizeof(T) == 1 && image.numcomps == 3) return storeRgbBytes(image, pixels, samples.at(0));
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

// --- RGB from YCbCr, by JFIF's formula

// A row of chroma at full width: a sample counts for all pixels of its unit.
class ChromaRow {
 public:
  ChromaRow(const opj_image_comp_t& component, std::size_t width)
      : component_(component), samples_(component.dx > 1 ? width : 0) {}

  // What it returns holds up to the next call.
  Plane at(std::size_t row) {
    const Plane coded = component_.data + row / component_.dy * component_.w;
    if (component_.dx == 1) return coded;
    if (component_.dx == 2)
      spread<2>(coded);
    else
      spread<4>(coded);
    return samples_.data();
  }

 private:
  template <std::size_t kPixels>
  void spread(Plane coded) {
    const std::size_t units = samples_.size() / kPixels;
    for (std::size_t unit = 0; unit < units; ++unit)
      std::fill_n(samples_.data() + unit * kPixels, kPixels, coded[unit]);
    std::fill(samples_.begin() + static_cast<std::ptrdiff_t>(units * kPixels), samples_.end(),
              samples_.size() % kPixels != 0 ? coded[units] : 0);
  }

  const opj_image_comp_t& component_;
  std::vector<OPJ_INT32> samples_;
};

// Puts RGB pixels in their places when something is beside them or samples have 16 bits.
template <class T>
class RgbPixels {
 public:
  RgbPixels(const opj_image_t& image, Samples<T> samples)
      : samples_(samples),
        components_(image.numcomps),
        most_((1 << image.comps[0].prec) - 1),
        middle_(1 << (image.comps[0].prec - 1)) {}

  void put(std::size_t pixel, OPJ_INT32 y, OPJ_INT32 cb, OPJ_INT32 cr) const noexcept {
    const double blue = cb - middle_, red = cr - middle_;
    std::byte* to = samples_.at(pixel * components_);
    putComponent(to, y + 1.402 * red);
    putComponent(to + sizeof(T), y - 0.344136286 * blue - 0.714136286 * red);
    putComponent(to + 2 * sizeof(T), y + 1.772 * blue);
  }

 private:
  void putComponent(std::byte* to, double value) const noexcept {
    samples_.put(to, static_cast<OPJ_INT32>(std::clamp(value + 0.5, 0.0, most_)));
  }

  Samples<T> samples_;
  std::size_t components_;
  double most_;
  OPJ_INT32 middle_;
};

template <class T>
void storeRgb(const opj_image_t& image, const BlockFormat& format, Samples<T> samples) {
  const bool isRgbBytes = sizeof(T) == 1 && image.numcomps == 3;
  const RgbPixels<T> pixels(image, samples);
  const std::size_t width = format.width;
  ChromaRow blue(image.comps[1], width), red(image.comps[2], width);
  for (std::size_t row = 0; row < format.rows; ++row) {
    const Plane y = image.comps[0].data + row * image.comps[0].w;
    const Plane cb = blue.at(row), cr = red.at(row);
    if (isRgbBytes) {
      auto* rgb = reinterpret_cast<std::uint8_t*>(samples.at(row * width * 3));
      joinRgbBytesFromYCbCr(y, cb, cr, width, rgb);
      continue;
    }
    for (std::size_t column = 0; column < width; ++column)
      pixels.put(row * width + column, y[column], cb[column], cr[column]);
  }
  storePlanes(image, 3, format.rows * width, samples);
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

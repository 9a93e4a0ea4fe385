#include "runtime/block_format.h"

#include <algorithm>

namespace tb::runtime {
namespace {

constexpr std::uint64_t quotientUp(std::uint64_t a, std::uint64_t b) noexcept {
  return (a + b - 1) / b;
}

// A tag's value or libtiff's default for it; 0 for a tag that has neither.
template <class T>
T field(TIFF* tif, std::uint32_t tag) {
  T value{};
  (void)TIFFGetFieldDefaulted(tif, tag, &value);
  return value;
}

bool isContiguous(TIFF* tif) {
  return field<std::uint16_t>(tif, TIFFTAG_PLANARCONFIG) == PLANARCONFIG_CONTIG;
}

// Rows of the strip and, where it is the last one, those that encoders may have added to make it as
// tall as the others.
void readStripRows(TIFF* tif, BlockFormat& format) {
  constexpr std::uint32_t kWholeImage = 0xFFFFFFFF;
  const auto length = field<std::uint32_t>(tif, TIFFTAG_IMAGELENGTH);
  const auto rowsPerStrip = field<std::uint32_t>(tif, TIFFTAG_ROWSPERSTRIP);
  if (rowsPerStrip == 0) throw CodestreamError("strips have no rows");
  const std::uint64_t stripsPerPlane = quotientUp(length, rowsPerStrip);
  const std::uint64_t firstRow = TIFFCurrentStrip(tif) % stripsPerPlane * rowsPerStrip;
  format.rows =
      static_cast<std::uint32_t>(std::min<std::uint64_t>(rowsPerStrip, length - firstRow));
  format.codedRows = rowsPerStrip == kWholeImage ? format.rows : rowsPerStrip;
}

void readSize(TIFF* tif, BlockFormat& format) {
  if (TIFFIsTiled(tif) != 0) {
    format.width = field<std::uint32_t>(tif, TIFFTAG_TILEWIDTH);
    format.rows = format.codedRows = field<std::uint32_t>(tif, TIFFTAG_TILELENGTH);
  } else {
    format.width = field<std::uint32_t>(tif, TIFFTAG_IMAGEWIDTH);
    readStripRows(tif, format);
  }
}

void readSamples(TIFF* tif, BlockFormat& format) {
  format.bits = field<std::uint16_t>(tif, TIFFTAG_BITSPERSAMPLE);
  if (format.bits != 8 && format.bits != 16) {
    throw CodestreamError("samples have neither 8 nor 16 bits");
  }
  const auto kind = field<std::uint16_t>(tif, TIFFTAG_SAMPLEFORMAT);
  if (kind != SAMPLEFORMAT_UINT && kind != SAMPLEFORMAT_INT && kind != SAMPLEFORMAT_VOID) {
    throw CodestreamError("samples are no integers");
  }
  format.isSigned = kind == SAMPLEFORMAT_INT;
  format.isSwapped = format.bits == 16 && TIFFIsByteSwapped(tif) != 0;
  format.components =
      isContiguous(tif) ? field<std::uint16_t>(tif, TIFFTAG_SAMPLESPERPIXEL) : std::uint16_t{1};
}

void readColour(TIFF* tif, BlockFormat& format) {
  if (isInUnits(tif)) {
    format.colour = BlockColour::kYCbCrInUnits;
    (void)TIFFGetFieldDefaulted(tif, TIFFTAG_YCBCRSUBSAMPLING, &format.horizontal,
                                &format.vertical);
    if (format.horizontal == 0 || format.vertical == 0) {
      throw CodestreamError("the subsampling is 0");
    }
    return;
  }
  const bool becomesRgb = field<std::uint16_t>(tif, TIFFTAG_COMPRESSION) == kJpeg2000YCbCr &&
                          field<std::uint16_t>(tif, TIFFTAG_PHOTOMETRIC) == PHOTOMETRIC_RGB;
  if (!becomesRgb) return;
  if (format.components < 3 || format.isSigned) {
    throw CodestreamError("its YCbCr samples cannot become RGB samples of this directory");
  }
  format.colour = BlockColour::kYCbCrToRgb;
}

// --- Checks

void require(bool holds, const char* otherwise) {
  if (!holds) throw CodestreamError(otherwise);
}

bool hasDepth(const CodestreamComponent& component, const BlockFormat& format) {
  return format.bits == 8 ? component.precision == 8
                          : component.precision > 8 && component.precision <= 16;
}

bool isTiffSubsampling(std::uint32_t factor) { return factor == 1 || factor == 2 || factor == 4; }

bool hasSubsampling(const CodestreamComponent& component, std::uint32_t dx, std::uint32_t dy) {
  return component.dx == dx && component.dy == dy;
}

void checkSubsampling(const CodestreamSize& size, const BlockFormat& format) {
  std::uint32_t dx = format.horizontal, dy = format.vertical;
  if (format.colour == BlockColour::kYCbCrToRgb) {
    dx = size.components[1].dx;
    dy = size.components[1].dy;
    require(isTiffSubsampling(dx) && isTiffSubsampling(dy), "its subsampling is not one of TIFF");
  }
  for (std::size_t c = 0; c < size.components.size(); ++c) {
    const bool isChroma = c == 1 || c == 2;
    require(hasSubsampling(size.components[c], isChroma ? dx : 1, isChroma ? dy : 1),
            "its subsampling is not that of the directory");
  }
  // Then the first chroma sample belongs to the first luma samples.
  require(size.image.x0 % dx == 0 && size.image.y0 % dy == 0, "its image begins within a unit");
}

}  // namespace

std::uint64_t BlockFormat::size() const noexcept {
  const std::uint64_t bytes = bits / 8U;
  if (colour != BlockColour::kYCbCrInUnits) return bytes * components * width * rows;
  const std::uint64_t unit = std::uint64_t{horizontal} * vertical + 2;
  return bytes * unit * quotientUp(width, horizontal) * quotientUp(rows, vertical);
}

BlockFormat blockFormat(TIFF* tif) {
  BlockFormat format;
  readSize(tif, format);
  readSamples(tif, format);
  readColour(tif, format);
  return format;
}

void checkFormat(const CodestreamSize& size, const BlockFormat& format) {
  require(size.components.size() == format.components,
          "its number of components is not that of the directory");
  require(size.image.width() == format.width, "its width is not that of the directory");
  require(size.image.height() >= format.rows && size.image.height() <= format.codedRows,
          "its height is not that of the directory");
  for (const CodestreamComponent& component : size.components) {
    require(hasDepth(component, format), "its depth is not that of the directory");
    require(component.isSigned == format.isSigned, "its sign is not that of the directory");
    require(format.colour != BlockColour::kYCbCrToRgb ||
                component.precision == size.components[0].precision,
            "its components have several depths");
  }
  checkSubsampling(size, format);
}

bool isInUnits(TIFF* tif) {
  return field<std::uint16_t>(tif, TIFFTAG_PHOTOMETRIC) == PHOTOMETRIC_YCBCR && isContiguous(tif) &&
         field<std::uint16_t>(tif, TIFFTAG_SAMPLESPERPIXEL) == 3;
}

void setSubsampling(TIFF* tif, const CodestreamSize& size) {
  if (size.components.size() != 3) return;
  const std::uint32_t dx = size.components[1].dx, dy = size.components[1].dy;
  if (!isTiffSubsampling(dx) || !isTiffSubsampling(dy)) return;
  std::uint16_t horizontal = 0, vertical = 0;
  const bool isSet = TIFFGetField(tif, TIFFTAG_YCBCRSUBSAMPLING, &horizontal, &vertical) != 0;
  if (isSet && horizontal == dx && vertical == dy) return;
  if (isSet) {
    TIFFWarningExtR(
        tif, "JPEG2000FixupTags",
        "%s: YCbCrSubSampling is %u,%u, but the first codestream has %u,%u: taking these",
        TIFFFileName(tif), horizontal, vertical, dx, dy);
  }
  (void)TIFFSetField(tif, TIFFTAG_YCBCRSUBSAMPLING, static_cast<int>(dx), static_cast<int>(dy));
}

}  // namespace tb::runtime

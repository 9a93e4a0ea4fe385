// What a TIFF directory says of a strip or tile that holds a JPEG 2000 codestream.
#pragma once

#include <tiffio.h>

#include <cstdint>

#include "runtime/codestream.h"

namespace tb::runtime {

// The compressions. The first holds YCbCr that the codestream does not know to be a colour, the
// second RGB, the third whatever the photometric interpretation says.
inline constexpr std::uint16_t kJpeg2000YCbCr = 33003;
inline constexpr std::uint16_t kJpeg2000Rgb = 33005;
inline constexpr std::uint16_t kJpeg2000 = 34712;

enum class BlockColour {
  kAsCoded,      // components are samples
  kYCbCrToRgb,   // the first three become RGB, at the size of the first
  kYCbCrInUnits  // TIFF's subsampled units: luma samples, then Cb and Cr
};

struct BlockFormat {
  std::uint32_t width = 0;
  std::uint32_t rows = 0;
  std::uint32_t codedRows = 0;  // the most that a codestream may have; what is beyond `rows` is cut
  std::uint16_t components = 0;
  std::uint16_t bits = 0;
  bool isSigned = false;
  bool isSwapped = false;  // libtiff is going to swap the bytes of each sample
  BlockColour colour = BlockColour::kAsCoded;
  std::uint16_t horizontal = 1, vertical = 1;  // of units

  // Bytes of the block, as libtiff computes them.
  std::uint64_t size() const noexcept;
};

// The format of the strip or tile that libtiff has started. Throws CodestreamError where the
// directory has samples that JPEG 2000 cannot give, or a layout that it cannot have.
BlockFormat blockFormat(TIFF* tif);

// Throws CodestreamError unless the codestream holds just such a block.
void checkFormat(const CodestreamSize& size, const BlockFormat& format);

// Whether libtiff delivers blocks of the directory in subsampled units, which then have the
// subsampling of the codestreams.
bool isInUnits(TIFF* tif);

// Sets YCbCrSubSampling to what a codestream has; nothing where that is no TIFF subsampling.
void setSubsampling(TIFF* tif, const CodestreamSize& size);

}  // namespace tb::runtime

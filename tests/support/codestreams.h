// JPEG 2000 codestreams, encoded by OpenJPEG, and TIFF files whose strips or tiles are such.
#pragma once

#include <openjpeg.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "tests/support/tiff_files.h"

namespace tb::test {

inline constexpr std::uint16_t kJpeg2000YCbCr = 33003;
inline constexpr std::uint16_t kJpeg2000Rgb = 33005;
inline constexpr std::uint16_t kJpeg2000 = 34712;

using Bytes = std::vector<std::byte>;

// How a codestream is coded. What is 0 is left to OpenJPEG.
struct Coding {
  std::uint32_t width = 0, height = 0;
  std::uint32_t x0 = 0, y0 = 0;  // the image's corner on the grid
  std::uint32_t components = 1;
  std::uint32_t precision = 8;
  bool isSigned = false;
  std::uint32_t dx = 1, dy = 1;  // subsampling of the second and the third component
  float compression = 0;         // lossy by so much with the irreversible wavelet
  bool hasColourTransform = false;
  int layers = 1;
  int resolutions = 3;
  int tileWidth = 0, tileHeight = 0;
  int precinct = 0;
  int codeBlock = 0;
  char tilePartsBy = 0;    // 'R' for resolution, 'L' for layer
  bool isInBoxes = false;  // a JP2 file
};

// The sample of a component at a column and row of its own.
using SampleAt =
    std::function<int(std::uint32_t component, std::uint32_t row, std::uint32_t column)>;

Bytes encodeCodestream(const Coding& coding, const SampleAt& sampleAt);

// What OpenJPEG itself decodes, with its own defaults; and the planes of its components.
struct OpjImageDeleter {
  void operator()(opj_image_t* image) const noexcept { opj_image_destroy(image); }
};
using OpjImage = std::unique_ptr<opj_image_t, OpjImageDeleter>;
OpjImage decodeBarely(const Bytes& codestream);
std::vector<std::vector<int>> decodePlanes(const Bytes& codestream);

// The coding of a block of the layout, and the block's codestream, whose samples are those of
// sampleBits; what lies outside the image is 0.
Coding codingOf(const Layout& layout, std::uint32_t block);
using Recode = std::function<void(Coding& coding)>;
Bytes codestreamOf(const Layout& layout, std::uint32_t block, const Recode& recode = {});

// Writes one directory with the layout's tags and these bytes as its blocks.
void writeCodestreams(const std::filesystem::path& path, const Layout& layout,
                      const std::vector<Bytes>& blocks, const char* mode = "w");

// The same with codestreamOf for every block.
void writeJpeg2000(const std::filesystem::path& path, const Layout& layout,
                   const Recode& recode = {}, const char* mode = "w");

}  // namespace tb::test

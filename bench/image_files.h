// The images that are measured: made with libtiff alone, the same on every machine.
#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/tiff_files.h"

namespace tb::bench {

// Throws std::runtime_error when libtiff cannot open the file.
test::TiffHandle openTiff(const std::filesystem::path& path, const char* mode);

// An image. `samples` is "u8", "rgb" (interleaved), "rgb-planes", "u16", "u32", "f32", "f64",
// "1bit" or "ycbcr" (units of 2 by 2); `compression` is "none", "packbits", "lzw" or "deflate"
// (both with the predictor that suits the samples), "jpeg" or "group4". What is wrong with them is
// found when a file is made: std::invalid_argument.
struct ImageSpec {
  std::string samples = "u8";
  std::string compression = "none";
  bool tiled = false;
  std::uint32_t blockLength = 16;  // rows of a strip, or rows and columns of a tile
  std::uint32_t width = 4096;
  std::uint32_t length = 4096;

  // "tiles 256 x 256" or "strips of 16 rows".
  std::string blocks() const;
  // All parts in a row, "u8-none-strips16-4096x4096".
  std::string name() const;
};

// The image's file in `folder`, made unless it exists.
std::filesystem::path imageFile(const std::filesystem::path& folder, const ImageSpec& spec);

// A file with the image's directory but without data, for writing blocks with mode "r+".
void makeEmptyImage(const std::filesystem::path& path, const ImageSpec& spec);

// --- The blocks of an open directory, strips and tiles alike. Both functions make the one libtiff
// call that the module makes and throw std::runtime_error when it fails.

std::uint32_t blockCount(TIFF* tif);
std::size_t blockSize(TIFF* tif);
void readBlock(TIFF* tif, std::uint32_t block, std::vector<std::byte>& buffer);
void writeBlock(TIFF* tif, std::uint32_t block, std::vector<std::byte>& buffer);

}  // namespace tb::bench

// TIFF files for tests, made with plain libtiff and nothing of the module.
//
// Samples are bit patterns that a formula gives for (row, column, sample), so that a test can say
// what a read must return without reading. What lies outside the image (the padding of edge tiles)
// is filled with ones, which no read may hand out.
#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

namespace tb::test {

struct TiffCloser {
  void operator()(TIFF* tif) const noexcept { TIFFClose(tif); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

// Opens with libtiff, whose messages are dropped; null when that fails.
TiffHandle openTiff(const std::filesystem::path& path, const char* mode);

// One directory. Strips when tileWidth is 0; rowsPerStrip 0 leaves the tag away, which means one
// strip. `more` sets further tags after all others.
struct Layout {
  std::uint32_t width = 16;
  std::uint32_t length = 16;
  std::uint16_t bits = 8;
  std::uint16_t samples = 1;
  std::uint16_t format = SAMPLEFORMAT_UINT;
  std::uint16_t planar = PLANARCONFIG_CONTIG;
  std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;
  std::uint16_t compression = COMPRESSION_NONE;
  std::uint32_t rowsPerStrip = 0;
  std::uint32_t tileWidth = 0;
  std::uint32_t tileLength = 0;
  std::uint16_t horizontal = 1;  // YCbCr subsampling factors
  std::uint16_t vertical = 1;
  std::function<void(TIFF*)> more = [](TIFF*) {};

  bool tiled() const { return tileWidth != 0; }
  std::uint16_t samplesPerBlock() const {
    return planar == PLANARCONFIG_CONTIG ? samples : std::uint16_t{1};
  }
  std::uint32_t blockWidth() const { return tiled() ? tileWidth : width; }
  std::uint32_t blockLength() const;
};

// The bit pattern of a sample, in the low `bits` bits.
std::uint64_t sampleBits(const Layout& layout, std::uint32_t row, std::uint32_t column,
                         std::uint32_t sample);

// Where a block lies in the image and how much of it belongs to the image.
struct BlockPlace {
  std::uint32_t firstRow, firstColumn, plane;
  std::uint32_t rows, columns;
};
std::uint32_t blockCount(const Layout& layout);
BlockPlace placeOf(const Layout& layout, std::uint32_t block);

// The bytes of a block's host array: rows x columns x samplesPerBlock elements in column-major
// order, one byte for each 1-bit sample. Not for YCbCr.
std::vector<std::byte> hostBytes(const Layout& layout, std::uint32_t block);

// The bytes of a block as libtiff takes and delivers it. YCbCr blocks are units. `padding` is the
// sample outside the image.
std::vector<std::byte> blockBytes(const Layout& layout, std::uint32_t block,
                                  std::uint64_t padding = ~std::uint64_t{0});

// Sets the layout's tags; writes its blocks as well; writes a file of such directories. The mode
// selects byte order and BigTIFF.
void setLayout(TIFF* tif, const Layout& layout);
void writeImage(TIFF* tif, const Layout& layout);
void writeTiff(const std::filesystem::path& path, const std::vector<Layout>& directories,
               const char* mode = "w");

// The block that libtiff itself delivers, as many bytes as a block has; zeros where decoding
// failed.
std::vector<std::byte> readBlock(TIFF* tif, std::uint32_t block);

// A block's bytes as they lie in the file, encoded.
std::vector<std::byte> encodedBlock(TIFF* tif, std::uint32_t block);

}  // namespace tb::test

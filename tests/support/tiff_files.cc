#include "tests/support/tiff_files.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

namespace tb::test {
namespace {

// Drops libtiff's messages while it lives.
class Quiet {
 public:
  Quiet() : error_(TIFFSetErrorHandler(nullptr)), warning_(TIFFSetWarningHandler(nullptr)) {}
  ~Quiet() {
    TIFFSetErrorHandler(error_);
    TIFFSetWarningHandler(warning_);
  }
  Quiet(const Quiet&) = delete;
  Quiet& operator=(const Quiet&) = delete;

 private:
  TIFFErrorHandler error_, warning_;
};

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

std::uint32_t ceilDivide(std::uint32_t a, std::uint32_t b) { return (a + b - 1) / b; }

// In the order of bytes that the machine has.
void appendBytes(std::vector<std::byte>& to, std::uint64_t bits, std::size_t count) {
  constexpr bool kIsLittleEndian = std::endian::native == std::endian::little;
  for (std::size_t i = 0; i < count; ++i)
    to.push_back(static_cast<std::byte>(bits >> (8 * (kIsLittleEndian ? i : count - 1 - i))));
}

// Sample s of the pixel at (row, column) of a block.
std::uint64_t blockSample(const Layout& layout, const BlockPlace& place, std::uint32_t row,
                          std::uint32_t column, std::uint32_t sample, std::uint64_t padding) {
  if (row >= place.rows || column >= place.columns) return padding;
  return sampleBits(layout, place.firstRow + row, place.firstColumn + column, place.plane + sample);
}

std::vector<std::byte> packedBits(const std::vector<std::uint64_t>& samples) {
  std::vector<std::byte> bytes((samples.size() + 7) / 8);
  for (std::size_t i = 0; i < samples.size(); ++i)
    if (samples[i] & 1) bytes[i / 8] |= static_cast<std::byte>(0x80 >> (i % 8));
  return bytes;
}

std::vector<std::byte> packedRow(const Layout& layout, const BlockPlace& place, std::uint32_t row,
                                 std::uint64_t padding) {
  std::vector<std::uint64_t> samples;
  for (std::uint32_t column = 0; column < layout.blockWidth(); ++column)
    for (std::uint32_t s = 0; s < layout.samplesPerBlock(); ++s)
      samples.push_back(blockSample(layout, place, row, column, s, padding));
  if (layout.bits == 1) return packedBits(samples);
  std::vector<std::byte> bytes;
  for (const std::uint64_t sample : samples) appendBytes(bytes, sample, layout.bits / 8u);
  return bytes;
}

// Units of horizontal x vertical luma samples, Cb and Cr; a chroma sample is that of its unit's
// first pixel.
std::vector<std::byte> packedUnits(const Layout& layout, const BlockPlace& place,
                                   std::uint32_t rows, std::uint64_t padding) {
  std::vector<std::byte> bytes;
  const auto append = [&](std::uint32_t row, std::uint32_t column, std::uint32_t sample) {
    appendBytes(bytes, blockSample(layout, place, row, column, sample, padding), 1);
  };
  for (std::uint32_t row = 0; row < rows; row += layout.vertical)
    for (std::uint32_t column = 0; column < layout.blockWidth(); column += layout.horizontal) {
      for (std::uint32_t k = 0; k < std::uint32_t{layout.horizontal} * layout.vertical; ++k)
        append(row + k / layout.horizontal, column + k % layout.horizontal, 0);
      append(row, column, 1);
      append(row, column, 2);
    }
  return bytes;
}

void writeBlock(TIFF* tif, const Layout& layout, std::uint32_t block) {
  std::vector<std::byte> bytes = blockBytes(layout, block);
  const auto size = static_cast<tmsize_t>(bytes.size());
  const tmsize_t written = layout.tiled() ? TIFFWriteEncodedTile(tif, block, bytes.data(), size)
                                          : TIFFWriteEncodedStrip(tif, block, bytes.data(), size);
  require(written >= 0, "a block could not be written");
}

}  // namespace

TiffHandle openTiff(const std::filesystem::path& path, const char* mode) {
  const Quiet quiet;
  return TiffHandle(TIFFOpen(path.c_str(), mode));
}

std::uint32_t Layout::blockLength() const {
  if (tiled()) return tileLength;
  return rowsPerStrip == 0 ? length : std::min(rowsPerStrip, length);
}

std::uint64_t sampleBits(const Layout& layout, std::uint32_t row, std::uint32_t column,
                         std::uint32_t sample) {
  // Neighbours in every direction differ, in every byte of the sample.
  const std::uint64_t mixed =
      (row * 1000003ULL + column * 10007ULL + sample * 101ULL + 1) * 0x9E3779B97F4A7C15ULL;
  return mixed >> (64 - layout.bits);
}

std::uint32_t blockCount(const Layout& layout) {
  const std::uint32_t planes = layout.planar == PLANARCONFIG_SEPARATE ? layout.samples : 1u;
  return planes * ceilDivide(layout.length, layout.blockLength()) *
         ceilDivide(layout.width, layout.blockWidth());
}

BlockPlace placeOf(const Layout& layout, std::uint32_t block) {
  const std::uint32_t across = ceilDivide(layout.width, layout.blockWidth());
  const std::uint32_t perPlane = across * ceilDivide(layout.length, layout.blockLength());
  const std::uint32_t firstRow = block % perPlane / across * layout.blockLength();
  const std::uint32_t firstColumn = block % across * layout.blockWidth();
  return {firstRow, firstColumn, block / perPlane,
          std::min(layout.blockLength(), layout.length - firstRow),
          std::min(layout.blockWidth(), layout.width - firstColumn)};
}

std::vector<std::byte> hostBytes(const Layout& layout, std::uint32_t block) {
  const BlockPlace place = placeOf(layout, block);
  std::vector<std::byte> bytes;
  for (std::uint32_t s = 0; s < layout.samplesPerBlock(); ++s)
    for (std::uint32_t column = 0; column < place.columns; ++column)
      for (std::uint32_t row = 0; row < place.rows; ++row)
        appendBytes(
            bytes,
            sampleBits(layout, place.firstRow + row, place.firstColumn + column, place.plane + s),
            (layout.bits + 7) / 8u);
  return bytes;
}

std::vector<std::byte> blockBytes(const Layout& layout, std::uint32_t block,
                                  std::uint64_t padding) {
  const BlockPlace place = placeOf(layout, block);
  // libtiff has tiles of full length and strips that end with the image.
  const std::uint32_t rows = layout.tiled() ? layout.tileLength : place.rows;
  if (layout.photometric == PHOTOMETRIC_YCBCR) return packedUnits(layout, place, rows, padding);
  std::vector<std::byte> bytes;
  for (std::uint32_t row = 0; row < rows; ++row) {
    const std::vector<std::byte> packed = packedRow(layout, place, row, padding);
    bytes.insert(bytes.end(), packed.begin(), packed.end());
  }
  return bytes;
}

void setLayout(TIFF* tif, const Layout& layout) {
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, layout.width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, layout.length);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, layout.bits);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, layout.samples);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, layout.format);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, layout.planar);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, layout.compression);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, layout.photometric);
  if (layout.photometric == PHOTOMETRIC_YCBCR)
    TIFFSetField(tif, TIFFTAG_YCBCRSUBSAMPLING, layout.horizontal, layout.vertical);
  if (layout.tiled()) {
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, layout.tileWidth);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, layout.tileLength);
  } else if (layout.rowsPerStrip != 0) {
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, layout.rowsPerStrip);
  }
  layout.more(tif);
}

void writeImage(TIFF* tif, const Layout& layout) {
  setLayout(tif, layout);
  for (std::uint32_t block = 0; block < blockCount(layout); ++block) writeBlock(tif, layout, block);
}

void writeTiff(const std::filesystem::path& path, const std::vector<Layout>& directories,
               const char* mode) {
  const TiffHandle tif = openTiff(path, mode);
  require(tif != nullptr, "a file could not be made");
  for (const Layout& layout : directories) {
    writeImage(tif.get(), layout);
    require(TIFFWriteDirectory(tif.get()) != 0, "a directory could not be written");
  }
}

std::vector<std::byte> readBlock(TIFF* tif, std::uint32_t block) {
  const Quiet quiet;
  const bool tiled = TIFFIsTiled(tif) != 0;
  const tmsize_t size = tiled ? TIFFTileSize(tif) : TIFFStripSize(tif);
  std::vector<std::byte> bytes(static_cast<std::size_t>(size));
  (void)(tiled ? TIFFReadEncodedTile(tif, block, bytes.data(), size)
               : TIFFReadEncodedStrip(tif, block, bytes.data(), size));
  return bytes;
}

std::vector<std::byte> encodedBlock(TIFF* tif, std::uint32_t block) {
  std::vector<std::byte> bytes(static_cast<std::size_t>(TIFFGetStrileByteCount(tif, block)));
  const auto size = static_cast<tmsize_t>(bytes.size());
  require((TIFFIsTiled(tif) != 0 ? TIFFReadRawTile(tif, block, bytes.data(), size)
                                 : TIFFReadRawStrip(tif, block, bytes.data(), size)) == size,
          "a block could not be read");
  return bytes;
}

}  // namespace tb::test

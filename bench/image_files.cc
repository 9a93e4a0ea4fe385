#include "bench/image_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "bench/picture.h"

namespace tb::bench {
namespace {

struct SampleRow {
  const char* name;
  std::uint16_t bits, samples, format, planar, photometric;
};
constexpr SampleRow kSamples[] = {
    {"u8", 8, 1, SAMPLEFORMAT_UINT, PLANARCONFIG_CONTIG, PHOTOMETRIC_MINISBLACK},
    {"rgb", 8, 3, SAMPLEFORMAT_UINT, PLANARCONFIG_CONTIG, PHOTOMETRIC_RGB},
    {"rgb-planes", 8, 3, SAMPLEFORMAT_UINT, PLANARCONFIG_SEPARATE, PHOTOMETRIC_RGB},
    {"u16", 16, 1, SAMPLEFORMAT_UINT, PLANARCONFIG_CONTIG, PHOTOMETRIC_MINISBLACK},
    {"u32", 32, 1, SAMPLEFORMAT_UINT, PLANARCONFIG_CONTIG, PHOTOMETRIC_MINISBLACK},
    {"f32", 32, 1, SAMPLEFORMAT_IEEEFP, PLANARCONFIG_CONTIG, PHOTOMETRIC_MINISBLACK},
    {"f64", 64, 1, SAMPLEFORMAT_IEEEFP, PLANARCONFIG_CONTIG, PHOTOMETRIC_MINISBLACK},
    {"1bit", 1, 1, SAMPLEFORMAT_UINT, PLANARCONFIG_CONTIG, PHOTOMETRIC_MINISBLACK},
    {"ycbcr", 8, 3, SAMPLEFORMAT_UINT, PLANARCONFIG_CONTIG, PHOTOMETRIC_YCBCR},
};

struct CompressionRow {
  const char* name;
  std::uint16_t scheme;
  bool predicts;
};
constexpr CompressionRow kCompressions[] = {
    {"none", COMPRESSION_NONE, false}, {"packbits", COMPRESSION_PACKBITS, false},
    {"lzw", COMPRESSION_LZW, true},    {"deflate", COMPRESSION_ADOBE_DEFLATE, true},
    {"jpeg", COMPRESSION_JPEG, false}, {"group4", COMPRESSION_CCITTFAX4, false},
};

template <class Row, std::size_t N>
const Row& findRow(const Row (&rows)[N], const std::string& name) {
  const auto* row = std::find_if(rows, rows + N, [&](const Row& r) { return name == r.name; });
  if (row == rows + N) throw std::invalid_argument("there is no kind \"" + name + "\"");
  return *row;
}

// An error that libtiff has printed.
void require(bool success, const char* what) {
  if (!success) throw std::runtime_error(std::string(what) + " failed");
}

void setPredictor(TIFF* tif, const SampleRow& samples) {
  const bool floating = samples.format == SAMPLEFORMAT_IEEEFP;
  const int predictor = floating ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL;
  require(TIFFSetField(tif, TIFFTAG_PREDICTOR, predictor) == 1, "TIFFSetField");
}

test::Layout layoutOf(const ImageSpec& spec) {
  const SampleRow& samples = findRow(kSamples, spec.samples);
  const CompressionRow& compression = findRow(kCompressions, spec.compression);
  const std::uint16_t subsampling = samples.photometric == PHOTOMETRIC_YCBCR ? 2 : 1;
  test::Layout layout{.width = spec.width,
                      .length = spec.length,
                      .bits = samples.bits,
                      .samples = samples.samples,
                      .format = samples.format,
                      .planar = samples.planar,
                      .photometric = samples.photometric,
                      .compression = compression.scheme,
                      .rowsPerStrip = spec.tiled ? 0 : spec.blockLength,
                      .tileWidth = spec.tiled ? spec.blockLength : 0,
                      .tileLength = spec.tiled ? spec.blockLength : 0,
                      .horizontal = subsampling,
                      .vertical = subsampling};
  if (compression.predicts && samples.bits != 1) {
    layout.more = [&samples](TIFF* tif) { setPredictor(tif, samples); };
  }
  return layout;
}

// Paints what block number `block` shows. Units of YCbCr are painted as if they were rows of bytes.
void paintBlock(const test::Layout& layout, std::uint32_t block, std::vector<std::byte>& buffer) {
  const test::BlockPlace place = test::placeOf(layout, block);
  PictureRow row{.row = place.firstRow,
                 .column = place.firstColumn,
                 .pixels = layout.blockWidth(),
                 .firstSample = place.plane,
                 .samples = layout.samplesPerBlock()};
  if (layout.photometric == PHOTOMETRIC_YCBCR) row.samples = 1;
  const std::size_t rowBytes = (std::size_t{row.pixels} * row.samples * layout.bits + 7) / 8;
  for (std::size_t start = 0; start + rowBytes <= buffer.size(); start += rowBytes, ++row.row) {
    paintRow(row, layout.bits, layout.format == SAMPLEFORMAT_IEEEFP, &buffer[start]);
  }
}

// The last strip of an image may have fewer rows than the others.
std::size_t storedBlockSize(TIFF* tif, const test::Layout& layout, std::uint32_t block) {
  if (layout.tiled()) return blockSize(tif);
  return static_cast<std::size_t>(TIFFVStripSize(tif, test::placeOf(layout, block).rows));
}

}  // namespace

std::string ImageSpec::blocks() const {
  if (tiled) return fmt::format("tiles {0} x {0}", blockLength);
  return blockLength == 1 ? "strips of 1 row" : fmt::format("strips of {} rows", blockLength);
}

std::string ImageSpec::name() const {
  return fmt::format("{}-{}-{}{}-{}x{}", samples, compression, tiled ? "tiles" : "strips",
                     blockLength, width, length);
}

test::TiffHandle openTiff(const std::filesystem::path& path, const char* mode) {
  test::TiffHandle tif = test::openTiff(path, mode);
  if (!tif) throw std::runtime_error("cannot open " + path.string());
  return tif;
}

std::filesystem::path imageFile(const std::filesystem::path& folder, const ImageSpec& spec) {
  std::filesystem::path path = folder / (spec.name() + ".tif");
  if (std::filesystem::exists(path)) return path;
  // Under another name until it is finished, so that a run which was stopped leaves no half image.
  const std::filesystem::path unfinished = path.string() + ".part";
  {
    const test::Layout layout = layoutOf(spec);
    const test::TiffHandle tif = openTiff(unfinished, "w");
    test::setLayout(tif.get(), layout);
    std::vector<std::byte> buffer;
    for (std::uint32_t block = 0; block < test::blockCount(layout); ++block) {
      buffer.resize(storedBlockSize(tif.get(), layout, block));
      paintBlock(layout, block, buffer);
      writeBlock(tif.get(), block, buffer);
    }
  }
  std::filesystem::rename(unfinished, path);
  return path;
}

void makeEmptyImage(const std::filesystem::path& path, const ImageSpec& spec) {
  const test::TiffHandle tif = openTiff(path, "w");
  test::setLayout(tif.get(), layoutOf(spec));
  // Makes the tables of blocks, all of them empty; without it the directory would have none.
  require(TIFFWriteCheck(tif.get(), TIFFIsTiled(tif.get()), "TIFFWriteCheck") == 1,
          "TIFFWriteCheck");
  require(TIFFWriteDirectory(tif.get()) == 1, "TIFFWriteDirectory");
}

std::uint32_t blockCount(TIFF* tif) {
  return TIFFIsTiled(tif) != 0 ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
}

std::size_t blockSize(TIFF* tif) {
  return static_cast<std::size_t>(TIFFIsTiled(tif) != 0 ? TIFFTileSize(tif) : TIFFStripSize(tif));
}

void readBlock(TIFF* tif, std::uint32_t block, std::vector<std::byte>& buffer) {
  const tmsize_t count =
      TIFFIsTiled(tif) != 0
          ? TIFFReadEncodedTile(tif, block, buffer.data(), static_cast<tmsize_t>(buffer.size()))
          : TIFFReadEncodedStrip(tif, block, buffer.data(), tmsize_t{-1});
  require(count >= 0, "reading a block");
}

void writeBlock(TIFF* tif, std::uint32_t block, std::vector<std::byte>& buffer) {
  const auto size = static_cast<tmsize_t>(buffer.size());
  const tmsize_t count = TIFFIsTiled(tif) != 0
                             ? TIFFWriteEncodedTile(tif, block, buffer.data(), size)
                             : TIFFWriteEncodedStrip(tif, block, buffer.data(), size);
  require(count >= 0, "writing a block");
}

}  // namespace tb::bench

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

template <class T>
void setField(TIFF* tif, std::uint32_t tag, T value) {
  require(TIFFSetField(tif, tag, value) == 1, "TIFFSetField");
}

void setCompression(TIFF* tif, const SampleRow& samples, const CompressionRow& compression) {
  setField(tif, TIFFTAG_COMPRESSION, compression.scheme);
  if (!compression.predicts || samples.bits == 1) return;
  const bool floating = samples.format == SAMPLEFORMAT_IEEEFP;
  setField(tif, TIFFTAG_PREDICTOR, floating ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
}

void setDirectory(TIFF* tif, const ImageSpec& spec) {
  const SampleRow& samples = findRow(kSamples, spec.samples);
  setField(tif, TIFFTAG_IMAGEWIDTH, spec.width);
  setField(tif, TIFFTAG_IMAGELENGTH, spec.length);
  setField(tif, TIFFTAG_BITSPERSAMPLE, samples.bits);
  setField(tif, TIFFTAG_SAMPLESPERPIXEL, samples.samples);
  setField(tif, TIFFTAG_SAMPLEFORMAT, samples.format);
  setField(tif, TIFFTAG_PLANARCONFIG, samples.planar);
  setField(tif, TIFFTAG_PHOTOMETRIC, samples.photometric);
  setCompression(tif, samples, findRow(kCompressions, spec.compression));
  if (samples.photometric == PHOTOMETRIC_YCBCR) {
    require(TIFFSetField(tif, TIFFTAG_YCBCRSUBSAMPLING, 2, 2) == 1, "TIFFSetField");
  }
  if (spec.tiled) {
    setField(tif, TIFFTAG_TILEWIDTH, spec.blockLength);
    setField(tif, TIFFTAG_TILELENGTH, spec.blockLength);
  } else {
    setField(tif, TIFFTAG_ROWSPERSTRIP, spec.blockLength);
  }
}

// Paints what block number `block` shows. Units of YCbCr are painted as if they were rows of bytes.
void paintBlock(TIFF* tif, const ImageSpec& spec, std::uint32_t block,
                std::vector<std::byte>& buffer) {
  const SampleRow& samples = findRow(kSamples, spec.samples);
  const bool separate = samples.planar == PLANARCONFIG_SEPARATE;
  const std::uint32_t width = spec.tiled ? spec.blockLength : spec.width;
  const std::uint32_t across = spec.tiled ? (spec.width + width - 1) / width : 1;
  const std::uint32_t perPlane = separate ? blockCount(tif) / samples.samples : blockCount(tif);
  const std::uint32_t place = block % perPlane;
  PictureRow row{.row = place / across * spec.blockLength,
                 .column = place % across * width,
                 .pixels = width,
                 .firstSample = block / perPlane,
                 .samples = separate ? 1U : samples.samples};
  if (samples.photometric == PHOTOMETRIC_YCBCR) row.samples = 1;
  const std::size_t rowBytes = (std::size_t{row.pixels} * row.samples * samples.bits + 7) / 8;
  for (std::size_t start = 0; start + rowBytes <= buffer.size(); start += rowBytes, ++row.row) {
    paintRow(row, samples.bits, samples.format == SAMPLEFORMAT_IEEEFP, &buffer[start]);
  }
}

// The last strip of an image may have fewer rows than the others.
std::size_t stripSize(TIFF* tif, const ImageSpec& spec, std::uint32_t strip) {
  const std::uint32_t perPlane = (spec.length - 1) / spec.blockLength + 1;
  const std::uint32_t firstRow = strip % perPlane * spec.blockLength;
  const std::uint32_t rows = std::min(spec.blockLength, spec.length - firstRow);
  return static_cast<std::size_t>(TIFFVStripSize(tif, rows));
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

TiffHandle openTiff(const std::filesystem::path& path, const char* mode) {
  TiffHandle tif(TIFFOpen(path.c_str(), mode));
  if (!tif) throw std::runtime_error("cannot open " + path.string());
  return tif;
}

std::filesystem::path imageFile(const std::filesystem::path& folder, const ImageSpec& spec) {
  std::filesystem::path path = folder / (spec.name() + ".tif");
  if (std::filesystem::exists(path)) return path;
  // Under another name until it is finished, so that a run which was stopped leaves no half image.
  const std::filesystem::path unfinished = path.string() + ".part";
  {
    const TiffHandle tif = openTiff(unfinished, "w");
    setDirectory(tif.get(), spec);
    std::vector<std::byte> buffer(blockSize(tif.get()));
    for (std::uint32_t block = 0; block < blockCount(tif.get()); ++block) {
      if (!spec.tiled) buffer.resize(stripSize(tif.get(), spec, block));
      paintBlock(tif.get(), spec, block, buffer);
      writeBlock(tif.get(), block, buffer);
    }
  }
  std::filesystem::rename(unfinished, path);
  return path;
}

void makeEmptyImage(const std::filesystem::path& path, const ImageSpec& spec) {
  const TiffHandle tif = openTiff(path, "w");
  setDirectory(tif.get(), spec);
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

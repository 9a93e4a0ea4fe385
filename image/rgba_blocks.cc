#include "image/rgba_blocks.h"

#include <algorithm>
#include <array>
#include <limits>
#include <new>
#include <span>

#include "core/unheard.h"
#include "host/array.h"
#include "image/block_buffer.h"

namespace tb {
namespace {

enum class OnError { kGoOn, kStop };

bool convert(const TiffImageMetaData_& record, RgbaBlock block, std::uint32_t* raster,
             OnError onError) {
  const int stops = onError == OnError::kStop ? 1 : 0;
  return record.isTiled
             ? TIFFReadRGBATileExt(record.tif, block.column, block.row, raster, stops) != 0
             : TIFFReadRGBAStripExt(record.tif, block.row, raster, stops) != 0;
}

std::uint32_t blockNumber(const TiffImageMetaData_& record, RgbaBlock block, std::uint16_t plane) {
  return record.isTiled ? TIFFComputeTile(record.tif, block.column, block.row, 0, plane)
                        : TIFFComputeStrip(record.tif, block.row, plane);
}

bool canConvertImage(TIFF* tif) {
  std::array<char, 1024> reason;  // as many as libtiff's documentation asks for
  return TIFFRGBAImageOK(tif, reason.data()) != 0;
}

// False only when libtiff cannot even begin: without encoded bytes it does not convert.
bool isInFile(const TiffImageMetaData_& record, RgbaBlock block) {
  if (record.compression == COMPRESSION_OJPEG) return true;  // its data need not be in strips
  const std::uint32_t number = blockNumber(record, block, 0);
  const std::uint64_t fileSize = TIFFGetSizeProc(record.tif)(TIFFClientdata(record.tif));
  return TIFFGetStrileByteCount(record.tif, number) != 0 &&
         TIFFGetStrileOffset(record.tif, number) < fileSize;
}

// Whether the decoder delivers any of the first row of a plane's block, or with subsampling of the
// first unit of rows. It may deliver it and fail all the same, and what it delivers may be
// anything: it is told by what it leaves of two different fillings.
bool decodesRow(const TiffImageMetaData_& record, std::uint32_t number) {
  const std::uint32_t rows = std::max<std::uint32_t>(record.ycbcrSubsampling[1], 1);
  const tmsize_t size =
      record.isTiled ? TIFFVTileSize(record.tif, rows) : TIFFVStripSize(record.tif, rows);
  if (size <= 0) return false;
  BlockBuffer buffer = BlockBuffer::uninitialised(blockSize(size));
  const std::span<std::byte> row = buffer.bytes();
  return std::ranges::any_of(std::array{std::byte{0xA5}, std::byte{0x5A}}, [&](std::byte filling) {
    std::ranges::fill(row, filling);
    const tmsize_t count = record.isTiled
                               ? TIFFReadEncodedTile(record.tif, number, row.data(), size)
                               : TIFFReadEncodedStrip(record.tif, number, row.data(), size);
    return count != -1 || std::ranges::any_of(row, [&](std::byte b) { return b != filling; });
  });
}

// Fax decoders leave lines white that they cannot decode. A page that is white because its first
// line is bad is still a page, but gigabytes of white are not worth having.
bool isFaxPage(const TiffImageMetaData_& record) {
  constexpr std::uint64_t kLargestPage = std::uint64_t{16} << 20;  // pixels
  return record.compression >= COMPRESSION_CCITTRLE &&
         record.compression <= COMPRESSION_CCITTFAX4 &&
         std::uint64_t{record.imageWidth} * record.imageLength <= kLargestPage;
}

bool decodesAnything(const TiffImageMetaData_& record, RgbaBlock block) {
  if (isFaxPage(record)) return true;
  const Unheard unheard;  // libtiff has said what is wrong
  const std::uint16_t planes =
      record.planarConfig == PLANARCONFIG_SEPARATE ? record.samplesPerPixel : std::uint16_t{1};
  for (std::uint16_t plane = 0; plane < planes; ++plane)
    if (decodesRow(record, blockNumber(record, block, plane))) return true;
  return false;
}

constexpr std::uint64_t times(std::uint64_t a, std::uint64_t b) noexcept {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  return b != 0 && a > kMost / b ? kMost : a * b;
}

}  // namespace

RgbaRead readRgbaBlock(const TiffImageMetaData_& record, RgbaBlock block, std::uint32_t* raster) {
  if (convert(record, block, raster, OnError::kStop)) return RgbaRead::kDone;
  if (!canConvertImage(record.tif) || !isInFile(record, block)) return RgbaRead::kFailed;
  if (!decodesAnything(record, block)) return RgbaRead::kNothing;
  return convertUndecodedBlock(record, block, raster) ? RgbaRead::kDone : RgbaRead::kFailed;
}

bool convertUndecodedBlock(const TiffImageMetaData_& record, RgbaBlock block,
                           std::uint32_t* raster) {
  const Unheard unheard;  // as above
  return convert(record, block, raster, OnError::kGoOn);
}

void requireMemoryForRgba(const TiffImageMetaData_& record, std::uint64_t entries) {
  const std::uint64_t planeSize =
      record.isTiled ? TIFFTileSize64(record.tif) : TIFFStripSize64(record.tif);
  const std::uint64_t planes =
      record.planarConfig == PLANARCONFIG_SEPARATE ? record.samplesPerPixel : 1;
  const std::uint64_t block = times(planeSize, planes);
  const std::uint64_t raster = times(entries, sizeof(std::uint32_t));
  if (block > std::numeric_limits<std::uint64_t>::max() - raster ||
      !vxIsWithinMemoryLimit(raster + block))
    throw std::bad_alloc();
}

}  // namespace tb

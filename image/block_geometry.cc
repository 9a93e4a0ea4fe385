// Block numbers and sizes come from the file, so nothing here trusts them: all arithmetic is
// unsigned 32-bit, and a division by zero yields 0.
#include "image/block_geometry.h"

#include <algorithm>

#include "image/unsigned_arithmetic.h"

namespace tb {
namespace {

// True when `block` is the last of its group of `count` consecutive blocks.
constexpr bool endsGroup(std::uint32_t block, std::uint32_t count) noexcept {
  return remainder(block + 1U, count) == 0;
}

std::uint32_t tileRowsDown(const TiffImageMetaData_& record, std::uint32_t tileCount,
                           std::uint32_t tilesAcross) {
  std::uint32_t tilesDown = quotient(tileCount, tilesAcross);
  if (record.planarConfig == PLANARCONFIG_SEPARATE) {
    tilesDown = quotient(tilesDown, record.samplesPerPixel);
  }
  return quotient(tilesDown, record.imageDepth);
}

}  // namespace

BlockExtent stripExtent(const TiffImageMetaData_& record, std::uint32_t strip) {
  const std::uint32_t lastStrip = computeStripNumber(record, record.imageLength - 1U, 0);
  // One test serves every plane, as all planes have the same number of strips.
  const bool isLast = endsGroup(strip, lastStrip + 1U);
  const std::uint32_t rows =
      isLast ? record.imageLength - record.rowsPerStrip * lastStrip : record.rowsPerStrip;
  return {rows, record.imageWidth};
}

BlockExtent tileExtent(const TiffImageMetaData_& record, std::uint32_t tile,
                       std::uint32_t tileCount) {
  const std::uint32_t tilesAcross =
      TIFFComputeTile(record.tif, record.imageWidth - 1U, 0, 0, 0) + 1U;
  const std::uint32_t tilesDown = tileRowsDown(record, tileCount, tilesAcross);
  const std::uint32_t tileRow = quotient(remainder(tile, tilesDown * tilesAcross), tilesAcross);

  std::uint32_t rows = record.tileLength;
  if (tileRow == tilesDown - 1U) rows = record.imageLength - record.tileLength * tileRow;
  std::uint32_t columns = record.tileWidth;
  if (endsGroup(tile, tilesAcross)) {
    columns = record.imageWidth - record.tileWidth * (tilesAcross - 1U);
  }
  // With a TileDepth above 1 libtiff counts fewer tile rows than there are.
  return {std::min(rows, record.tileLength), std::min(columns, record.tileWidth)};
}

}  // namespace tb

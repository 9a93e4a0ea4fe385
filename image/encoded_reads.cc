// "readEncodedStrip" and "readEncodedTile": what is checked before one block is read.
#include <cstdint>

#include "core/arguments.h"
#include "core/errors.h"
#include "core/open_files.h"
#include "image/block_decode.h"
#include "image/block_geometry.h"
#include "image/handlers.h"
#include "image/read_checks.h"

namespace tb {
namespace {

TiffImageMetaData_ readableImage(const vxArray* fileId) {
  const TiffImageMetaData_ record = imageMetadata(unpackTiffFileId(fileId));
  validateReadConfiguration(record);
  return record;
}

void checkStripNumber(std::uint32_t strip, const TiffImageMetaData_& record) {
  const std::uint32_t stripCount = TIFFNumberOfStrips(record.tif);
  if (strip < stripCount) return;
  if (record.imageDepth < 2) raise<Tiff::badStripNumber>(stripCount);
  raise<Tiff::imageDepthStrippedLayoutMismatch>(record.imageDepth);
}

}  // namespace

void TIFFReadEncodedStrip_handler(int outputCount, vxArrayPtr* outputs, int,
                                  const vxArray* const* inputs, s_tagbridge_op*) {
  const TiffImageMetaData_ record = readableImage(inputs[0]);
  if (TIFFIsTiled(record.tif)) raise<Tiff::strippedOperationOnTiledImage>();
  const std::uint32_t strip = unpack_tstrip_t(inputs[1]);
  checkStripNumber(strip, record);
  readStrip(strip, stripExtent(record, strip), {outputCount, outputs}, record);
}

void TIFFReadEncodedTile_handler(int outputCount, vxArrayPtr* outputs, int,
                                 const vxArray* const* inputs, s_tagbridge_op*) {
  const TiffImageMetaData_ record = readableImage(inputs[0]);
  if (!TIFFIsTiled(record.tif)) raise<Tiff::tiledOperationOnStrippedImage>();
  const std::uint32_t tile = unpack_ttile_t(inputs[1]);
  // Here and not after decoding as for strips: a sample layout without a class is reported before a
  // bad tile number.
  (void)determineClassId(record);
  const std::uint32_t tileCount = TIFFNumberOfTiles(record.tif);
  if (tile >= tileCount) raise<Tiff::badTileNumber>(tileCount);
  readTile(tile, tileExtent(record, tile, tileCount), {outputCount, outputs}, record);
}

}  // namespace tb

// "writeEncodedStrip" and "writeEncodedTile": arrays are checked against the directory, laid out as
// one block and encoded by libtiff.
#include <algorithm>
#include <cstdint>
#include <span>

#include "core/arguments.h"
#include "core/errors.h"
#include "core/open_files.h"
#include "core/values.h"
#include "image/block_buffer.h"
#include "image/block_tables.h"
#include "image/block_write.h"
#include "image/handlers.h"
#include "image/write_buffer.h"
#include "image/write_checks.h"

namespace tb {
namespace {

InputImages imagesAfterNumber(int inputCount, const vxArray* const* inputs) {
  return {inputs + 2, static_cast<std::size_t>(inputCount - 2)};
}

TiffImageMetaData_ writableImage(const vxArray* fileId, InputImages images) {
  const TiffImageMetaData_ record = imageMetadata(unpackTiffFileId(fileId));
  validateWriteConfiguration(record, images);
  return record;
}

// How much of a strip's buffer is encoded. JPEG-compressed YCbCr from an array that is smaller than
// the image is given by the array's bytes, for libtiff refuses a last strip that is too long; in
// every other case it is the whole buffer.
std::size_t bytesToEncode(const TiffImageMetaData_& record, const vxArray* image,
                          std::size_t bufferSize) {
  if (record.photometric != PHOTOMETRIC_YCBCR || record.compression != COMPRESSION_JPEG) {
    return bufferSize;
  }
  const std::size_t elementSize = vxGetElementSize(image);
  const std::size_t imageBytes = vxGetNumberOfElements(image) * elementSize;
  const std::uint32_t pixelCount = record.imageWidth * record.imageLength;  // wraps at 2^32
  const std::size_t lumaPerUnit =
      std::size_t{record.ycbcrSubsampling[0]} * record.ycbcrSubsampling[1];
  if (imageBytes >= pixelCount * elementSize || lumaPerUnit == 0) return bufferSize;
  return std::min(bufferSize, imageBytes * (1 + 2 / lumaPerUnit));
}

// The block as libtiff takes it, of the size that libtiff computes.
BlockBuffer laidOutBlock(InputImages images, tmsize_t tiffSize, const TiffImageMetaData_& record) {
  const std::size_t size = blockSize(tiffSize);
  BlockBuffer buffer = fillsWholeBuffer(images, size, record) ? BlockBuffer::uninitialised(size)
                                                              : BlockBuffer::zeroed(size);
  fillWriteBuffer(images, buffer.bytes(), record);
  return buffer;
}

}  // namespace

void TIFFWriteEncodedStrip_handler(int, vxArrayPtr*, int inputCount, const vxArray* const* inputs,
                                   s_tagbridge_op*) {
  const InputImages images = imagesAfterNumber(inputCount, inputs);
  const TiffImageMetaData_ record = writableImage(inputs[0], images);
  // The tile writer's identifier for the opposite mistake: the host's catalog covers both with it.
  if (TIFFIsTiled(record.tif)) raise<Tiff::tiledOperationOnStrippedImage>();
  const std::uint32_t strip = unpack_tstrip_t(inputs[1]);
  const std::uint32_t stripCount = TIFFNumberOfStrips(record.tif);
  if (strip >= stripCount) raise<Tiff::stripNumberTooLarge>(stripCount);

  BlockBuffer buffer = laidOutBlock(images, TIFFStripSize(record.tif), record);
  const auto count =
      convertNumber<tmsize_t>(bytesToEncode(record, images[0], buffer.bytes().size()));
  if (!hasRoomForTables(record.tif, stripCount) ||
      !writeBlock(record, strip, buffer.bytes(), count)) {
    raise<Tiff::stripWriteFailure>(strip + 1U);
  }
}

void TIFFWriteEncodedTile_handler(int, vxArrayPtr*, int inputCount, const vxArray* const* inputs,
                                  s_tagbridge_op*) {
  const InputImages images = imagesAfterNumber(inputCount, inputs);
  const TiffImageMetaData_ record = writableImage(inputs[0], images);
  if (!TIFFIsTiled(record.tif)) raise<Tiff::tiledOperationOnStrippedImage>();
  const std::uint32_t tile = unpack_ttile_t(inputs[1]);
  const std::uint32_t tileCount = TIFFNumberOfTiles(record.tif);
  if (tile >= tileCount) raise<Tiff::tileNumberTooLarge>(tileCount);

  BlockBuffer buffer = laidOutBlock(images, TIFFTileSize(record.tif), record);
  const auto count = convertNumber<tmsize_t>(buffer.bytes().size());
  // Of an empty buffer libtiff would take as many bytes as a tile had when it last looked.
  if (count == 0 || !hasRoomForTables(record.tif, tileCount) ||
      !writeBlock(record, tile, buffer.bytes(), count)) {
    raise<Tiff::tileWritefailure>(tile + 1U);
  }
}

}  // namespace tb

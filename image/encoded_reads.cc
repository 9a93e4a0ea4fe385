// "readEncodedStrip" and "readEncodedTile": one block is decoded by libtiff and spread over
// column-major arrays.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "core/edits.h"
#include "core/errors.h"
#include "core/open_files.h"
#include "core/unheard.h"
#include "image/block_buffer.h"
#include "image/block_geometry.h"
#include "image/fill_order.h"
#include "image/handlers.h"
#include "image/read_checks.h"
#include "image/read_transfer.h"
#include "image/row_reads.h"
#include "image/ycbcr_transfer.h"

namespace tb {
namespace {

TiffImageMetaData_ readableImage(const vxArray* fileId) {
  const TiffImageMetaData_ record = imageMetadata(unpackTiffFileId(fileId));
  validateReadConfiguration(record);
  return record;
}

// Whether libtiff may be asked for a block at all: it divides by these numbers.
bool hasPixels(const TiffImageMetaData_& record) {
  return record.imageWidth != 0 && record.blockLength != 0;
}

bool isAllZero(std::span<const std::byte> bytes) {
  return bytes.empty() || (bytes.front() == std::byte{0} &&
                           std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

// A block and how much of it there is to copy; what follows is padding or was never filled.
struct DecodedBlock {
  BlockBuffer buffer;
  std::size_t size;

  std::span<const std::byte> delivered() const { return buffer.bytes().first(size); }
};

DecodedBlock emptyBlock() { return {BlockBuffer::zeroed(0), 0}; }

void storeBlock(const DecodedBlock& block, BlockExtent extent, OutputSlots outputs,
                const TiffImageMetaData_& record) {
  if (record.photometric == PHOTOMETRIC_YCBCR && record.planarConfig == PLANARCONFIG_CONTIG) {
    transferYCbCrContigBlockToVx(block.delivered(), extent, outputs, record);
    return;
  }
  const std::span<const std::byte> bytes = block.delivered();
  const bool covered = coversExtent(bytes, extent, record);
  vxArrayPtr array = createBlockArray(
      extent, record, covered ? InitialElements::kAllStored : InitialElements::kZero);
  if (record.bitsPerSample == 1) {
    transferLogicalBlockToVx(bytes, *array, record);
  } else {
    transferBlockToVx(bytes, *array, record);
  }
  storeOutput(outputs.count, outputs.slots, 0, std::move(array));
}

void checkStripNumber(std::uint32_t strip, const TiffImageMetaData_& record) {
  const std::uint32_t stripCount = TIFFNumberOfStrips(record.tif);
  if (strip < stripCount) return;
  if (record.imageDepth < 2) raise<Tiff::badStripNumber>(stripCount);
  raise<Tiff::imageDepthStrippedLayoutMismatch>(record.imageDepth);
}

// Whether libtiff has stored every byte that it reports as decoded. Some of its other decoders
// leave bytes as they were and succeed.
bool storesEveryByte(std::uint16_t compression) {
  return compression == COMPRESSION_NONE || compression == COMPRESSION_PACKBITS;
}

// Decodes a block of `size` bytes with `decode(buffer)`, which returns libtiff's byte count. A
// failure is not an error here: libtiff has said what is wrong, and the caller gets what could be
// decoded between zeros. Memory is zeroed for that, where it can be only after a failure: then the
// block is decoded once more.
template <class Decode>
DecodedBlock decodeBlock(const TiffImageMetaData_& record, std::size_t size, const Decode& decode) {
  const bool zeroedLater = storesEveryByte(record.compression);
  BlockBuffer buffer = zeroedLater ? BlockBuffer::uninitialised(size) : BlockBuffer::zeroed(size);
  const tmsize_t count = decode(buffer.bytes().data());
  if (count >= 0) {
    // The last strip may be shorter than the others, and then ends where libtiff ended; the last of
    // its units, where there are units, may have begun before that.
    const std::size_t stored = std::min(static_cast<std::size_t>(count), size);
    if (!zeroedLater) return {std::move(buffer), size};
    if (record.photometric != PHOTOMETRIC_YCBCR) return {std::move(buffer), stored};
    std::ranges::fill(buffer.bytes().subspan(stored), std::byte{0});
    return {std::move(buffer), size};
  }
  if (zeroedLater) {
    // New memory and not the old one filled: a tiny file can announce gigabytes, which then are
    // never touched.
    buffer = BlockBuffer::zeroed(size);
    const Unheard unheard;
    (void)decode(buffer.bytes().data());  // fails again
  }
  const bool nothingCame = isAllZero(buffer.bytes());
  return {std::move(buffer), nothingCame ? 0 : size};
}

DecodedBlock decodeStrip(std::uint32_t strip, const TiffImageMetaData_& record) {
  const std::size_t size = blockSize(TIFFStripSize(record.tif));
  if (!hasPixels(record) || size == 0 || !mayDecode(record.tif, "TIFFReadEncodedStrip")) {
    return emptyBlock();
  }
  return decodeBlock(record, size, [&](std::byte* buffer) {
    // -1 asks for the whole strip.
    const tmsize_t count = TIFFReadEncodedStrip(record.tif, strip, buffer, tmsize_t{-1});
    if (count > 0 && static_cast<std::size_t>(count) > size) {
      raise<Tiff::tooManyBytes>(strip, size, count);
    }
    return count;
  });
}

DecodedBlock decodeTile(std::uint32_t tile, const TiffImageMetaData_& record) {
  const tmsize_t size = TIFFTileSize(record.tif);
  if (size <= 0 || !mayDecode(record.tif, "TIFFReadEncodedTile")) return emptyBlock();
  return decodeBlock(record, blockSize(size), [&](std::byte* buffer) {
    return TIFFReadEncodedTile(record.tif, tile, buffer, size);
  });
}

}  // namespace

void TIFFReadEncodedStrip_handler(int outputCount, vxArrayPtr* outputs, int,
                                  const vxArray* const* inputs, s_tagbridge_op*) {
  const TiffImageMetaData_ record = readableImage(inputs[0]);
  if (TIFFIsTiled(record.tif)) raise<Tiff::strippedOperationOnTiledImage>();
  const std::uint32_t strip = unpack_tstrip_t(inputs[1]);
  checkStripNumber(strip, record);
  const BlockExtent extent = stripExtent(record, strip);
  const FillOrderScope fillOrder(record.tif);
  std::optional<Unheard> unheard;
  if (isReadByRows(strip, extent, record)) {
    vxArrayPtr array = readStripByRows(strip, extent, record);
    if (array != nullptr) return storeOutput(outputCount, outputs, 0, std::move(array));
    unheard.emplace();  // libtiff has said why
  }
  const DecodedBlock block = decodeStrip(strip, record);
  unheard.reset();
  storeBlock(block, extent, {outputCount, outputs}, record);
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
  const FillOrderScope fillOrder(record.tif);
  const DecodedBlock block = decodeTile(tile, record);
  storeBlock(block, tileExtent(record, tile, tileCount), {outputCount, outputs}, record);
}

}  // namespace tb

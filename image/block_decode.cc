// A block is taken from one of three places: from the map of its file as it lies there, from
// libtiff row by row, or from libtiff as a whole.
#include "image/block_decode.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "core/edits.h"
#include "core/errors.h"
#include "core/unheard.h"
#include "host/tiff_utilities.h"
#include "image/block_buffer.h"
#include "image/fill_order.h"
#include "image/read_transfer.h"
#include "image/row_reads.h"

namespace tb {
namespace {

// Whether libtiff may be asked for a block at all: it divides by these numbers.
bool hasPixels(const TiffImageMetaData_& record) {
  return record.imageWidth != 0 && record.blockLength != 0;
}

bool isAllZero(std::span<const std::byte> bytes) {
  return bytes.empty() || (bytes.front() == std::byte{0} &&
                           std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0);
}

// A block and how much of it there is to copy; what follows is padding or was never filled.
class DecodedBlock {
 public:
  DecodedBlock(BlockBuffer buffer, std::size_t size)
      : buffer_(std::move(buffer)), delivered_(buffer_->bytes().first(size)) {}
  // A block that lies in memory as libtiff would deliver it.
  explicit DecodedBlock(std::span<const std::byte> bytes) : delivered_(bytes) {}

  std::span<const std::byte> delivered() const { return delivered_; }

 private:
  std::optional<BlockBuffer> buffer_;
  std::span<const std::byte> delivered_;
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

// Byte counts that libtiff never takes for too large, and how many times a block's size they may
// be.
constexpr std::uint64_t kNeverLimited = std::uint64_t{1} << 20;
constexpr std::uint64_t kMostOfSize = 10;

constexpr std::size_t kCacheLine = 64;
constexpr std::size_t kLongRow = 1024;
constexpr std::size_t kMostFetched = std::size_t{256} << 10;

// The block as it lies in the map of its file, whenever libtiff would copy `size` bytes from there
// and change none. A block that libtiff says something about is left to it: one whose byte count is
// too small, or so large that libtiff limits it, or that does not lie in the file.
std::optional<DecodedBlock> mappedBlock(std::uint32_t block, std::size_t size, std::size_t largest,
                                        const TiffImageMetaData_& record) {
  TIFF* const tif = record.tif;
  const bool isPlain = record.compression == COMPRESSION_NONE && record.mode == O_RDONLY &&
                       record.imageDepth == 1 &&
                       (record.bitsPerSample <= 8 || !TIFFIsByteSwapped(tif));
  if (!isPlain || size == 0 || size > largest) return std::nullopt;
  // Units that the last strip begins but does not hold are zeros.
  if (record.photometric == PHOTOMETRIC_YCBCR && size != largest) return std::nullopt;
  const std::span<const std::byte> file = ZQTIFFmapping(tif);
  if (file.empty() || hasOtherFillOrder(tif)) return std::nullopt;
  const std::uint64_t count = TIFFGetStrileByteCount(tif, block);
  if (count < size || count > std::max(kNeverLimited, kMostOfSize * largest)) return std::nullopt;
  const std::uint64_t offset = TIFFGetStrileOffset(tif, block);
  if (count > file.size() || offset > file.size() - count) return std::nullopt;
  return DecodedBlock(file.subspan(static_cast<std::size_t>(offset), size));
}

// The kernels read the rows of a block side by side, and of single bytes many rows: nothing fetches
// ahead of them from short rows. One pass over such a block in its order brings it into the cache,
// which makes reading an image of RGB tiles a tenth faster.
void fetchShortRows(std::span<const std::byte> block, const TiffImageMetaData_& record) {
  const bool areShort = record.bitsPerSample == 8 && bytesPerBlockRow(record) < kLongRow;
  if (!areShort || block.size() > kMostFetched) return;
  std::byte touched{0};
  for (std::size_t at = 0; at < block.size(); at += kCacheLine) touched |= block[at];
  [[maybe_unused]] volatile std::byte sink = touched;
}

// The array of a strip that goes by rows; null when it does not.
vxArrayPtr readByRows(std::uint32_t strip, BlockExtent extent, const TiffImageMetaData_& record,
                      const std::optional<DecodedBlock>& mapped, std::optional<Unheard>& unheard) {
  if (mapped) {
    const bool isLarge = isMovedByRows(extent, record);
    return isLarge ? moveStripByRows(mapped->delivered(), extent, record) : nullptr;
  }
  if (!isReadByRows(strip, extent, record)) return nullptr;
  vxArrayPtr array = readStripByRows(strip, extent, record);
  if (array == nullptr) unheard.emplace();  // libtiff has said why
  return array;
}

DecodedBlock decodeStrip(std::uint32_t strip, std::size_t size, const TiffImageMetaData_& record) {
  return decodeBlock(record, size, [&](std::byte* buffer) {
    // -1 asks for the whole strip.
    const tmsize_t count = TIFFReadEncodedStrip(record.tif, strip, buffer, tmsize_t{-1});
    if (count > 0 && static_cast<std::size_t>(count) > size) {
      raise<Tiff::tooManyBytes>(strip, size, count);
    }
    return count;
  });
}

DecodedBlock decodeTile(std::uint32_t tile, std::size_t size, const TiffImageMetaData_& record) {
  return decodeBlock(record, size, [&](std::byte* buffer) {
    return TIFFReadEncodedTile(record.tif, tile, buffer, static_cast<tmsize_t>(size));
  });
}

}  // namespace

void readStrip(std::uint32_t strip, BlockExtent extent, OutputSlots outputs,
               const TiffImageMetaData_& record) {
  const std::size_t size = blockSize(TIFFStripSize(record.tif));
  if (!hasPixels(record) || size == 0) return storeBlock(emptyBlock(), extent, outputs, record);
  const std::size_t used = blockSize(TIFFVStripSize(record.tif, extent.rows));
  const std::optional<DecodedBlock> mapped = mappedBlock(strip, used, size, record);
  const FillOrderScope fillOrder(record);
  std::optional<Unheard> unheard;
  if (vxArrayPtr array = readByRows(strip, extent, record, mapped, unheard)) {
    return storeOutput(outputs.count, outputs.slots, 0, std::move(array));
  }
  if (mapped) return storeBlock(*mapped, extent, outputs, record);
  const bool isReadable = mayDecode(record.tif, "TIFFReadEncodedStrip");
  const DecodedBlock block = isReadable ? decodeStrip(strip, size, record) : emptyBlock();
  unheard.reset();
  storeBlock(block, extent, outputs, record);
}

void readTile(std::uint32_t tile, BlockExtent extent, OutputSlots outputs,
              const TiffImageMetaData_& record) {
  const std::size_t size = blockSize(TIFFTileSize(record.tif));
  if (const auto mapped = mappedBlock(tile, size, size, record)) {
    fetchShortRows(mapped->delivered(), record);
    return storeBlock(*mapped, extent, outputs, record);
  }
  const FillOrderScope fillOrder(record);
  const bool isReadable = size > 0 && mayDecode(record.tif, "TIFFReadEncodedTile");
  storeBlock(isReadable ? decodeTile(tile, size, record) : emptyBlock(), extent, outputs, record);
}

}  // namespace tb

#include "image/row_reads.h"

#include <fcntl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "core/values.h"
#include "image/block_buffer.h"
#include "image/read_transfer.h"
#include "kernels/block_copy.h"

namespace tb {
namespace {

// From here on it pays; a call of libtiff's for each row costs as much as copying 1 KiB.
constexpr std::size_t kLeastStripBytes = std::size_t{512} << 10;
constexpr std::size_t kLeastRowBytes = 4096;

constexpr std::size_t kLeastColumnBytes = 32;

// Room between rows that keeps them from meeting in one set of the cache.
constexpr std::size_t kGap = 64;

// Bytes of a group of rows that are moved together, at most: about what a second-level cache holds.
constexpr std::size_t kGroupBytes = std::size_t{3} << 19;

// Sizes of a strip as the record has them, in bytes, and the rows of a group.
struct RowSizes {
  std::size_t element, row, strip, rowsOfGroup;

  std::size_t stride() const { return row + kGap; }
};

RowSizes rowSizes(BlockExtent extent, const TiffImageMetaData_& record) {
  const std::size_t element = record.bitsPerSample / 8U;
  const std::size_t row = bytesPerBlockRow(record);
  // More rows than these gain nothing; of single bytes as many fill a cache line of a column.
  const std::size_t rows = element == 1 ? 64 : 32;
  return {element, row, row * extent.rows, std::min(rows, kGroupBytes / (row + kGap))};
}

// Whether the samples of a strip lie in the file as they do in memory, but for the byte order.
bool hasPlainSamples(const TiffImageMetaData_& record) {
  return record.compression == COMPRESSION_NONE && record.bitsPerSample >= 8 &&
         record.photometric != PHOTOMETRIC_YCBCR && record.imageDepth == 1 &&
         findClassId(record) != vxUNKNOWN;
}

// Decodes the rows of one strip, top to bottom.
class StripRows {
 public:
  StripRows(std::uint32_t strip, const TiffImageMetaData_& record)
      : tif_(record.tif), strip_(strip) {
    const std::uint32_t stripsPerPlane =
        computeStripNumber(record, record.imageLength - 1U, 0) + 1U;
    next_ = strip % stripsPerPlane * record.rowsPerStrip;
    sample_ = static_cast<std::uint16_t>(strip / stripsPerPlane);
  }

  // Makes libtiff begin the strip, wherever in it the last call has left off. Both functions return
  // whether libtiff succeeded.
  bool start(std::byte* buffer) { return TIFFReadEncodedStrip(tif_, strip_, buffer, 0) == 0; }
  bool read(std::byte* row) { return TIFFReadScanline(tif_, row, next_++, sample_) == 1; }

 private:
  TIFF* tif_;
  std::uint32_t strip_;
  std::uint32_t next_;  // counted from the top of the image
  std::uint16_t sample_;
};

// Fills `array` with rows that `read(row, buffer)` delivers, top to bottom. False as soon as that
// returns false.
template <class Read>
bool moveRows(BlockExtent extent, const TiffImageMetaData_& record, vxArray& array,
              const Read& read) {
  const RowSizes sizes = rowSizes(extent, record);
  const std::size_t stride = sizes.stride(), most = sizes.rowsOfGroup;
  BlockBuffer buffer = BlockBuffer::uninitialised(most * stride);
  std::byte* const rows = buffer.bytes().data();
  std::byte* const columns = writableDataOf(&array);
  for (std::size_t first = 0; first < extent.rows; first += most) {
    const std::size_t count = std::min<std::size_t>(most, extent.rows - first);
    for (std::size_t row = 0; row < count; ++row) {
      if (!read(first + row, rows + row * stride)) return false;
    }
    copyBlockToColumns(rows, columns + first * sizes.element, sizes.element,
                       {.rows = count,
                        .columns = extent.columns,
                        .samples = record.samplesPerBlock,
                        .blockStride = stride,
                        .columnStride = extent.rows,
                        .planeStride = std::size_t{extent.rows} * extent.columns});
  }
  return true;
}

}  // namespace

bool isMovedByRows(BlockExtent extent, const TiffImageMetaData_& record) {
  if (!hasPlainSamples(record)) return false;
  const RowSizes sizes = rowSizes(extent, record);
  if (sizes.row < kLeastRowBytes || sizes.strip < kLeastStripBytes) return false;
  // Few rows would be moved in small pieces of each column's cache lines.
  return sizes.rowsOfGroup * sizes.element >= kLeastColumnBytes && extent.rows >= sizes.rowsOfGroup;
}

vxArrayPtr moveStripByRows(std::span<const std::byte> strip, BlockExtent extent,
                           const TiffImageMetaData_& record) {
  const std::size_t rowBytes = bytesPerBlockRow(record);
  if (strip.size() < rowBytes * extent.rows) return nullptr;
  vxArrayPtr array = createBlockArray(extent, record, InitialElements::kAllStored);
  (void)moveRows(extent, record, *array, [&](std::size_t row, std::byte* buffer) {
    std::memcpy(buffer, &strip[row * rowBytes], rowBytes);
    return true;  // and so does all of it
  });
  return array;
}

bool isReadByRows(std::uint32_t strip, BlockExtent extent, const TiffImageMetaData_& record) {
  // libtiff keeps the size of a row, and a strip that was written, from before an edit; that it is
  // the size which TIFFScanlineSize computes holds as long as nobody edits a file open for reading.
  const bool canBeEdited = record.mode != O_RDONLY;
  if (canBeEdited || !isMovedByRows(extent, record)) return false;
  // A strip of another size than its rows have is for libtiff to judge.
  const RowSizes sizes = rowSizes(extent, record);
  return TIFFGetStrileByteCount(record.tif, strip) == sizes.strip &&
         TIFFScanlineSize(record.tif) == static_cast<tmsize_t>(sizes.row);
}

vxArrayPtr readStripByRows(std::uint32_t strip, BlockExtent extent,
                           const TiffImageMetaData_& record) {
  vxArrayPtr array = createBlockArray(extent, record, InitialElements::kAllStored);
  StripRows rows(strip, record);
  const auto read = [&](std::size_t, std::byte* row) { return rows.read(row); };
  if (!rows.start(writableDataOf(array.get())) || !moveRows(extent, record, *array, read)) {
    return nullptr;
  }
  return array;
}

}  // namespace tb

#include "image/block_write.h"

#include <unistd.h>

#include "core/file_state.h"

namespace tb {
namespace {

struct PlaceTags {
  std::uint32_t offsets;
  std::uint32_t byteCounts;
};

PlaceTags placeTags(const TiffImageMetaData_& record) {
  return record.isTiled ? PlaceTags{TIFFTAG_TILEOFFSETS, TIFFTAG_TILEBYTECOUNTS}
                        : PlaceTags{TIFFTAG_STRIPOFFSETS, TIFFTAG_STRIPBYTECOUNTS};
}

// libtiff's own array of all blocks; null before the first write of a new directory.
std::uint64_t* placeArray(TIFF* tif, std::uint32_t tag) {
  std::uint64_t* values = nullptr;
  return TIFFGetField(tif, tag, &values) ? values : nullptr;
}

bool isInArrays(TIFF* tif, std::uint32_t block) {
  int error = 0;
  (void)TIFFGetStrileByteCountWithErr(tif, block, &error);
  return error == 0;
}

std::uint64_t fileSize(TIFF* tif) { return TIFFGetSizeProc(tif)(TIFFClientdata(tif)); }

}  // namespace

BlockWrite::BlockWrite(const TiffImageMetaData_& record, std::uint32_t block)
    : record_(record), block_(block), fileSize_(fileSize(record.tif)) {
  prepareToNoteEdits(record.tif);
  if (!isInArrays(record.tif, block)) return;
  offset_ = TIFFGetStrileOffset(record.tif, block);
  byteCount_ = TIFFGetStrileByteCount(record.tif, block);
}

bool BlockWrite::write(std::span<std::byte> buffer, tmsize_t count) const {
  if (!hasPlace()) return false;
  if (encode(buffer, count)) {
    noteBlockWritten(record_.tif);
    return true;
  }
  undo();
  return false;
}

// libtiff lets its arrays of strips grow by one strip, then stores past them: an image that got
// longer since the first write must be filled strip by strip.
bool BlockWrite::hasPlace() const {
  const bool hasArrays = placeArray(record_.tif, placeTags(record_).byteCounts) != nullptr;
  return record_.isTiled || !hasArrays || block_ == 0 || isInArrays(record_.tif, block_ - 1);
}

bool BlockWrite::encode(std::span<std::byte> buffer, tmsize_t count) const {
  if (record_.compression == COMPRESSION_JPEG) {
    // The JPEG encoder can fail after it has filled a buffer; with room for all that it can make of
    // a block nothing reaches the file before it has ended well.
    constexpr tmsize_t kTables = 65536;
    (void)TIFFWriteBufferSetup(record_.tif, nullptr,
                               2 * static_cast<tmsize_t>(buffer.size()) + kTables);
  }
  const tmsize_t written = record_.isTiled
                               ? TIFFWriteEncodedTile(record_.tif, block_, buffer.data(), count)
                               : TIFFWriteEncodedStrip(record_.tif, block_, buffer.data(), count);
  return written != -1;
}

void BlockWrite::undo() const {
  TIFF* tif = record_.tif;
  (void)TIFFWriteBufferSetup(tif, nullptr, tmsize_t{-1});  // without memory the next write says so
  if (isInArrays(tif, block_)) {
    const PlaceTags tags = placeTags(record_);
    std::uint64_t* offsets = placeArray(tif, tags.offsets);
    std::uint64_t* byteCounts = placeArray(tif, tags.byteCounts);
    if (offsets) offsets[block_] = offset_;
    if (byteCounts) byteCounts[block_] = byteCount_;
  }
  if (fileSize(tif) <= fileSize_) return;
  const int status = ftruncate(TIFFFileno(tif), static_cast<off_t>(fileSize_));
  (void)status;  // a file that stays longer than it was is still a good file
}

}  // namespace tb

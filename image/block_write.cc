#include "image/block_write.h"

#include <unistd.h>

#include <algorithm>
#include <span>

#include "core/codec_tags.h"
#include "core/directory_chain.h"
#include "core/edits.h"
#include "core/open_files.h"
#include "core/unheard.h"
#include "image/encoder_checks.h"

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

// Whether libtiff has room for the block in its arrays. It makes both for a new directory, but
// takes one that is missing in a loaded one for there; and it lets its arrays of strips grow by one
// strip, then stores past them, so an image that got longer since the first write must be filled
// strip by strip.
bool hasPlace(const TiffImageMetaData_& record, std::uint32_t block) {
  const PlaceTags tags = placeTags(record);
  const bool hasOffsets = placeArray(record.tif, tags.offsets) != nullptr;
  const bool hasByteCounts = placeArray(record.tif, tags.byteCounts) != nullptr;
  if (hasOffsets != hasByteCounts) return false;
  return record.isTiled || !hasOffsets || block == 0 || isInArrays(record.tif, block - 1);
}

// Whether the byte counts of libtiff's arrays are those of the file.
bool hasStoredPlaces(const TiffImageMetaData_& record) {
  TIFF* const tif = record.tif;
  const std::uint64_t offset = TIFFCurrentDirOffset(tif);
  if (offset == 0) return true;
  const auto stored = storedByteCounts(tif, offset);
  if (!stored || stored->empty()) return false;
  const std::uint64_t* counts = placeArray(tif, placeTags(record).byteCounts);
  const auto blocks = static_cast<std::uint32_t>(stored->size());
  return counts != nullptr && isInArrays(tif, blocks - 1) && !isInArrays(tif, blocks) &&
         std::ranges::equal(*stored, std::span(counts, blocks));
}

// libtiff stores a block over its former bytes when it needs no more of them. Where the file does
// not say how many they are libtiff has guessed, and the block could run over what lies behind: it
// is appended then.
void forgetGuessedByteCount(const TiffImageMetaData_& record, std::uint32_t block) {
  OpenFile* file = findOpenFile(record.tif);
  if (file == nullptr) return;
  if (!file->hasStoredPlaces) file->hasStoredPlaces = hasStoredPlaces(record);
  if (*file->hasStoredPlaces || !isInArrays(record.tif, block)) return;
  if (auto* byteCounts = placeArray(record.tif, placeTags(record).byteCounts))
    byteCounts[block] = 0;
}

std::uint64_t fileSize(TIFF* tif) { return TIFFGetSizeProc(tif)(TIFFClientdata(tif)); }

// Where a block stands in the file; zeros for one without a place.
struct Place {
  std::uint64_t offset = 0;
  std::uint64_t byteCount = 0;

  bool operator==(const Place&) const = default;
};

Place placeOf(TIFF* tif, std::uint32_t block) {
  if (!isInArrays(tif, block)) return {};
  return {TIFFGetStrileOffset(tif, block), TIFFGetStrileByteCount(tif, block)};
}

// What a block that cannot be stored leaves behind.
struct Before {
  Place place;
  std::uint64_t fileSize;
};

// Whether libtiff may turn round the bytes of samples, in a file of the other byte order, before it
// predicts them as floating-point numbers, which must have its own order.
bool swapsBeforePrediction(const TiffImageMetaData_& record) {
  std::uint16_t predictor = PREDICTOR_NONE;
  return TIFFIsByteSwapped(record.tif) &&
         !isTagOfAnotherCodec(TIFFTAG_PREDICTOR, record.compression) &&
         TIFFGetField(record.tif, TIFFTAG_PREDICTOR, &predictor) &&
         predictor == PREDICTOR_FLOATINGPOINT;
}

// Having set up its decoder, libtiff leaves the bytes of such samples as they are when it encodes.
// It sets it up for any block, such as these few bytes, which are none, once it knows how many
// blocks there are.
bool setUpDecoder(const TiffImageMetaData_& record, std::uint32_t block) {
  if (!TIFFWriteCheck(record.tif, record.isTiled, blockWriteName(record))) return false;
  const Unheard unheard;
  unsigned char data[4] = {0x80};
  unsigned char nothing[1];
  (void)TIFFReadFromUserBuffer(record.tif, block, data, sizeof data, nothing, 0);
  return true;
}

bool encode(const TiffImageMetaData_& record, std::uint32_t block, std::span<std::byte> buffer,
            tmsize_t count) {
  if (record.compression == COMPRESSION_JPEG) {
    // The JPEG encoder can fail after it has filled a buffer; with room for all that it can make of
    // a block nothing reaches the file before it has ended well.
    constexpr tmsize_t kTables = 65536;
    (void)TIFFWriteBufferSetup(record.tif, nullptr,
                               2 * static_cast<tmsize_t>(buffer.size()) + kTables);
  }
  if (swapsBeforePrediction(record) && !setUpDecoder(record, block)) return false;
  const tmsize_t written = record.isTiled
                               ? TIFFWriteEncodedTile(record.tif, block, buffer.data(), count)
                               : TIFFWriteEncodedStrip(record.tif, block, buffer.data(), count);
  return written != -1;
}

void undo(const TiffImageMetaData_& record, std::uint32_t block, const Before& before) {
  const Unheard unheard;  // libtiff has said what is wrong
  TIFF* tif = record.tif;
  (void)TIFFWriteBufferSetup(tif, nullptr, tmsize_t{-1});  // without memory the next write says so
  if (isInArrays(tif, block)) {
    const PlaceTags tags = placeTags(record);
    std::uint64_t* offsets = placeArray(tif, tags.offsets);
    std::uint64_t* byteCounts = placeArray(tif, tags.byteCounts);
    if (offsets) offsets[block] = before.place.offset;
    if (byteCounts) byteCounts[block] = before.place.byteCount;
  }
  if (fileSize(tif) <= before.fileSize) return;
  const int status = ftruncate(TIFFFileno(tif), static_cast<off_t>(before.fileSize));
  (void)status;  // a file that stays longer than it was is still a good file
}

}  // namespace

bool writeBlock(const TiffImageMetaData_& record, std::uint32_t block, std::span<std::byte> buffer,
                tmsize_t count) {
  if (!canEncode(record) || !hasPlace(record, block)) return false;
  const Before before{placeOf(record.tif, block), fileSize(record.tif)};
  forgetGuessedByteCount(record, block);
  if (encode(record, block, buffer, count)) {
    noteBlockWritten(record.tif, placeOf(record.tif, block) != before.place);
    return true;
  }
  undo(record, block, before);
  noteBlockNotWritten(record.tif);
  return false;
}

}  // namespace tb

#include "image/encoder_checks.h"

#include <algorithm>

#include "core/codec_tags.h"
#include "core/edits.h"

namespace tb {
namespace {

// A check returns what is wrong, null when nothing is.
using Record = TiffImageMetaData_;

bool isMultiple(std::uint32_t size, std::uint32_t of) { return size % of == 0; }

// The sizes that JPEG's units of 8 x 8 samples of every component allow.
const char* whatIsWrongWithUnits(const Record& record, std::uint32_t horizontal,
                                 std::uint32_t vertical) {
  constexpr std::uint32_t kUnit = 8;
  if (record.isTiled) {
    return isMultiple(record.tileWidth, horizontal * kUnit) &&
                   isMultiple(record.tileLength, vertical * kUnit)
               ? nullptr
               : "The size of JPEG tiles must be a multiple of 8 times the subsampling";
  }
  return record.rowsPerStrip >= record.imageLength ||
                 isMultiple(record.rowsPerStrip, vertical * kUnit)
             ? nullptr
             : "RowsPerStrip must be a multiple of 8 times the subsampling for JPEG";
}

const char* whatIsWrongForYCbCrJpeg(const Record& record) {
  constexpr std::uint32_t kLargestFactor = 4;
  constexpr std::uint32_t kBlocksInUnit = 10;
  const std::uint32_t horizontal = record.ycbcrSubsampling[0];
  const std::uint32_t vertical = record.ycbcrSubsampling[1];
  if (horizontal == 0 || vertical == 0 || horizontal > kLargestFactor ||
      vertical > kLargestFactor || horizontal * vertical + 2 > kBlocksInUnit) {
    return "This subsampling cannot be written as JPEG";
  }
  return whatIsWrongWithUnits(record, horizontal, vertical);
}

// The encoder looks at the first bytes of tables that came from the file, however many there are.
bool hasTooFewTables(TIFF* tif) {
  constexpr std::uint32_t kLookedAt = 8;
  std::uint32_t count = 0;
  const void* tables = nullptr;
  return TIFFGetField(tif, TIFFTAG_JPEGTABLES, &count, &tables) && count < kLookedAt;
}

const char* whatIsWrongForJpeg(const Record& record) {
  if (hasTooFewTables(record.tif)) return "The JPEGTables of the directory are damaged";
  if (record.bitsPerSample != 8) return "BitsPerSample must be 8 for JPEG";
  switch (record.photometric) {
    case PHOTOMETRIC_PALETTE:
    case PHOTOMETRIC_MASK:
      return "This PhotometricInterpretation cannot be written as JPEG";
    case PHOTOMETRIC_YCBCR:
      return whatIsWrongForYCbCrJpeg(record);
    default:
      return whatIsWrongWithUnits(record, 1, 1);
  }
}

// Of larger blocks WebP's decoder is set up in part only, and its encoder would release the rest.
bool isTooLargeForWebp(const Record& record) {
  constexpr std::uint32_t kMost = 16383;
  const std::uint32_t width = record.isTiled ? record.tileWidth : record.imageWidth;
  const std::uint32_t length =
      record.isTiled ? record.tileLength : std::min(record.rowsPerStrip, record.imageLength);
  return width > kMost || length > kMost;
}

const char* whatIsWrongForWebp(const Record& record) {
  if (isTooLargeForWebp(record)) return "WebP blocks have at most 16383 pixels on either side";
  const bool isWritable = record.bitsPerSample == 8 && record.sampleFormat == SAMPLEFORMAT_UINT &&
                          record.planarConfig == PLANARCONFIG_CONTIG &&
                          (record.samplesPerPixel == 3 || record.samplesPerPixel == 4);
  return isWritable ? nullptr : "WebP holds 3 or 4 samples of 8 bits a pixel, interleaved";
}

// The encoder takes rows of the image's width from a tile's buffer.
const char* whatIsWrongForPixarLog(const Record& record) {
  return record.isTiled ? "PixarLog tiles cannot be written" : nullptr;
}

// The encoder ends the process when it is asked for a plane other than the first.
const char* whatIsWrongForSgiLog(const Record& record) {
  if (hasNewCoding(record.tif)) {
    return "LogL and LogLuv blocks can be written when the directory has been written and read "
           "again";
  }
  // The encoder takes three values a pixel, whatever the directory says, and would leave a block
  // that nothing can decode.
  const int samples = record.sgiLogDataFmt == SGILOGDATAFMT_RAW ? 1 : 3;
  if (record.photometric == PHOTOMETRIC_LOGLUV && record.samplesPerPixel != samples) {
    return "LogLuv has three samples a pixel, or one that is raw";
  }
  // libtiff sets the encoder up before it refuses these, and would lose its memory at the next use.
  return record.bitsPerSample == 8 ? "LogL and LogLuv are not written from 8 bits" : nullptr;
}

// Encoders with a predictor are set up before they refuse it, and once more at the next block.
const char* whatIsWrongWithPredictor(const Record& record) {
  if (isTagOfAnotherCodec(TIFFTAG_PREDICTOR, record.compression)) return nullptr;
  std::uint16_t predictor = PREDICTOR_NONE;
  (void)TIFFGetField(record.tif, TIFFTAG_PREDICTOR, &predictor);
  const std::uint16_t bits = record.bitsPerSample;
  const bool isWide = bits == 16 || bits == 32 || bits == 64;
  const bool isFloat = record.sampleFormat == SAMPLEFORMAT_IEEEFP && isWide;
  const bool isKnown = predictor == PREDICTOR_NONE ||
                       (predictor == PREDICTOR_HORIZONTAL && (bits == 8 || isWide)) ||
                       (predictor == PREDICTOR_FLOATINGPOINT && isFloat);
  return isKnown ? nullptr : "This Predictor does not go with the samples";
}

const char* whatIsWrong(const Record& record) {
  if (!mayEncode(record.tif)) {
    return "The layout of the directory was changed after one of its blocks was read";
  }
  if (const char* reason = whatIsWrongWithPredictor(record)) return reason;
  switch (record.compression) {
    case COMPRESSION_JPEG:
      return whatIsWrongForJpeg(record);
    case COMPRESSION_WEBP:
      return whatIsWrongForWebp(record);
    case COMPRESSION_PIXARLOG:
      return whatIsWrongForPixarLog(record);
    case COMPRESSION_SGILOG:
    case COMPRESSION_SGILOG24:
      return whatIsWrongForSgiLog(record);
    default:
      return nullptr;
  }
}

}  // namespace

const char* blockWriteName(const Record& record) {
  return record.isTiled ? "TIFFWriteEncodedTile" : "TIFFWriteEncodedStrip";
}

bool canEncode(const Record& record) {
  const char* reason = whatIsWrong(record);
  if (reason == nullptr) return true;
  TIFFErrorExtR(record.tif, blockWriteName(record), "%s: %s", TIFFFileName(record.tif), reason);
  return false;
}

}  // namespace tb

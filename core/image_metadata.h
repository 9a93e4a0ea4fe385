// The image configuration of the current directory, condensed into one record from which every
// operation on pixels works. It is filled afresh by each call and never kept.
#pragma once

#include <tiffio.h>

#include <cstdint>

#include "host/array.h"

namespace tb {

// A block (strip or tile) is blockLength rows of blockWidth pixels of samplesPerBlock interleaved
// samples, rows from top to bottom.
struct TiffImageMetaData_ {
  TIFF* tif = nullptr;                  // the handle that the record was filled from
  std::uint32_t rowsPerStrip = 0;       // tag 278, at most imageLength; 0 for a tiled image
  std::uint32_t imageWidth = 0;         // tag 256
  std::uint32_t imageLength = 0;        // tag 257
  std::uint32_t tileWidth = 0;          // tag 322; 0 for a stripped image
  std::uint32_t tileLength = 0;         // tag 323; 0 for a stripped image
  std::uint32_t imageDepth = 0;         // tag 32997, defaulted
  std::uint16_t bitsPerSample = 0;      // tag 258, defaulted
  std::uint16_t samplesPerPixel = 0;    // tag 277, defaulted
  std::uint16_t planarConfig = 0;       // tag 284, defaulted: 1 contiguous, 2 separate planes
  std::uint16_t photometric = 0;        // tag 262
  std::uint16_t sampleFormat = 0;       // tag 339, defaulted
  std::uint16_t compression = 0;        // tag 259, defaulted
  std::uint16_t extraSamplesCount = 0;  // entries of tag 338, 0 when it is absent
  std::int32_t sgiLogDataFmt = 0;       // pseudo-tag 65560, LogL and LogLuv only; -1 none chosen
  std::int32_t jpegColorMode = 0;       // pseudo-tag 65538, JPEG-compressed YCbCr only
  std::uint32_t blockWidth = 0;         // tileWidth or imageWidth
  std::uint32_t blockLength = 0;        // tileLength or rowsPerStrip
  std::uint16_t samplesPerBlock = 0;    // samplesPerPixel when contiguous, else 1
  bool isTiled = false;
  std::int32_t mode = 0;                       // as TIFFGetMode returns it
  std::uint16_t ycbcrSubsampling[2] = {0, 0};  // tag 530, horizontal and vertical; YCbCr only
};

// Fills a fresh record from the current directory.
// Raises tagRetrievalFailed(name) for the first of ImageLength, ImageWidth, TileLength and
// TileWidth (tiled images), PhotometricInterpretation and SgiLogDataFmt (LogL and LogLuv) that is
// missing.
void retrieveImageMetadata(TIFF* tif, TiffImageMetaData_* record);

// The same as a value.
TiffImageMetaData_ imageMetadata(TIFF* tif);

// The host class of one sample. One bit is logical whatever the sample format, void samples are
// unsigned; there are no 64-bit integers.
// Raises complexSampleFormat; badSampleFormatBitsPerSampleCombination(sampleFormat, bitsPerSample);
// unknownSampleFormat(sampleFormat); sampleFormatMustBeIeeeFpFor64Bits;
// unhandledBitsPerSample(bitsPerSample).
vxClassID determineClassId(const TiffImageMetaData_& record);

// The same without an error: vxUNKNOWN where there is no class.
vxClassID findClassId(const TiffImageMetaData_& record) noexcept;

// TIFFComputeStrip, but 0 where it would divide by zero: for an image of no rows, no columns or no
// rows per strip.
std::uint32_t computeStripNumber(const TiffImageMetaData_& record, std::uint32_t row,
                                 std::uint16_t sample);

}  // namespace tb

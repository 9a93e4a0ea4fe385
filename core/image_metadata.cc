#include "core/image_metadata.h"

#include <algorithm>

#include "core/errors.h"
#include "core/field_guard.h"
#include "core/values.h"

namespace tb {
namespace {

// Tags that have no default: an image without them can be neither read nor written.
template <class T>
void require(TIFF* tif, std::uint32_t tag, const char* tagName, T& value) {
  if (!TIFFGetField(tif, tag, &value)) raise<Tiff::tagRetrievalFailed>(tagName);
}

void retrieveBlockLayout(TiffImageMetaData_& record) {
  TIFF* tif = record.tif;
  record.isTiled = TIFFIsTiled(tif) != 0;
  if (record.isTiled) {
    require(tif, TIFFTAG_TILELENGTH, "TileLength", record.tileLength);
    require(tif, TIFFTAG_TILEWIDTH, "TileWidth", record.tileWidth);
    record.blockWidth = record.tileWidth;
    record.blockLength = record.tileLength;
  } else {
    fetchDefaulted(tif, TIFFTAG_ROWSPERSTRIP, record.rowsPerStrip);
    record.rowsPerStrip = std::min(record.rowsPerStrip, record.imageLength);
    record.blockWidth = record.imageWidth;
    record.blockLength = record.rowsPerStrip;
  }
}

void retrieveSampleLayout(TiffImageMetaData_& record) {
  TIFF* tif = record.tif;
  fetchDefaulted(tif, TIFFTAG_BITSPERSAMPLE, record.bitsPerSample);
  fetchDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, record.samplesPerPixel);
  fetchDefaulted(tif, TIFFTAG_IMAGEDEPTH, record.imageDepth);
  fetchDefaulted(tif, TIFFTAG_SAMPLEFORMAT, record.sampleFormat);
  fetchDefaulted(tif, TIFFTAG_COMPRESSION, record.compression);
  fetchDefaulted(tif, TIFFTAG_PLANARCONFIG, record.planarConfig);
  record.samplesPerBlock =
      record.planarConfig == PLANARCONFIG_SEPARATE ? std::uint16_t{1} : record.samplesPerPixel;

  std::uint16_t* kinds = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &record.extraSamplesCount, &kinds)) {
    record.extraSamplesCount = 0;
  }
}

void retrieveColourSettings(TiffImageMetaData_& record) {
  TIFF* tif = record.tif;
  if (record.photometric == PHOTOMETRIC_YCBCR) {
    fetchDefaulted(tif, TIFFTAG_YCBCRSUBSAMPLING, record.ycbcrSubsampling[0],
                   record.ycbcrSubsampling[1]);
    // Not every libtiff build has the codec; the mode then stays 0.
    if (record.compression == COMPRESSION_JPEG &&
        !TIFFGetField(tif, TIFFTAG_JPEGCOLORMODE, &record.jpegColorMode)) {
      record.jpegColorMode = JPEGCOLORMODE_RAW;
    }
  }
  if (record.photometric == PHOTOMETRIC_LOGL || record.photometric == PHOTOMETRIC_LOGLUV) {
    require(tif, TIFFTAG_SGILOGDATAFMT, "SgiLogDataFmt", record.sgiLogDataFmt);
  }
}

struct ClassRow {
  std::uint16_t bits;
  vxClassID byFormat[5];  // index 0 unused; 1 unsigned, 2 signed, 3 floating point, 4 void
};
constexpr ClassRow kClasses[] = {
    {1, {vxLOGICAL, vxLOGICAL, vxLOGICAL, vxLOGICAL, vxLOGICAL}},
    {8, {vxUNKNOWN, vxUINT8, vxINT8, vxUNKNOWN, vxUINT8}},
    {16, {vxUNKNOWN, vxUINT16, vxINT16, vxUNKNOWN, vxUINT16}},
    {32, {vxUNKNOWN, vxUINT32, vxINT32, vxSINGLE, vxUINT32}},
    {64, {vxUNKNOWN, vxUNKNOWN, vxUNKNOWN, vxDOUBLE, vxUNKNOWN}},
};

bool isComplex(std::uint16_t format) {
  return format == SAMPLEFORMAT_COMPLEXINT || format == SAMPLEFORMAT_COMPLEXIEEEFP;
}

// The row of `kClasses` for a number of bits, null when there is none.
const ClassRow* findClassRow(std::uint16_t bits) {
  const auto* row = std::ranges::find(kClasses, bits, &ClassRow::bits);
  return row == std::end(kClasses) ? nullptr : row;
}

[[noreturn]] void raiseNoClass(std::uint16_t bits, std::uint16_t format) {
  if (isComplex(format)) raise<Tiff::complexSampleFormat>();
  if (findClassRow(bits) == nullptr) raise<Tiff::unhandledBitsPerSample>(bits);
  if (bits == 64) raise<Tiff::sampleFormatMustBeIeeeFpFor64Bits>();
  if (bits == 32) raise<Tiff::unknownSampleFormat>(format);
  raise<Tiff::badSampleFormatBitsPerSampleCombination>(format, bits);
}

}  // namespace

void retrieveImageMetadata(TIFF* tif, TiffImageMetaData_* record) {
  *record = TiffImageMetaData_{.tif = tif};
  require(tif, TIFFTAG_IMAGELENGTH, "ImageLength", record->imageLength);
  require(tif, TIFFTAG_IMAGEWIDTH, "ImageWidth", record->imageWidth);
  retrieveBlockLayout(*record);
  require(tif, TIFFTAG_PHOTOMETRIC, "PhotometricInterpretation", record->photometric);
  retrieveSampleLayout(*record);
  retrieveColourSettings(*record);
  record->mode = TIFFGetMode(tif);
}

TiffImageMetaData_ imageMetadata(TIFF* tif) {
  TiffImageMetaData_ record;
  retrieveImageMetadata(tif, &record);
  return record;
}

vxClassID determineClassId(const TiffImageMetaData_& record) {
  const vxClassID classId = findClassId(record);
  if (classId == vxUNKNOWN) raiseNoClass(record.bitsPerSample, record.sampleFormat);
  return classId;
}

vxClassID findClassId(const TiffImageMetaData_& record) noexcept {
  const std::uint16_t format = record.sampleFormat;
  const ClassRow* row = findClassRow(record.bitsPerSample);
  if (isComplex(format) || row == nullptr) return vxUNKNOWN;
  return row->byFormat[format <= SAMPLEFORMAT_VOID ? format : 0];
}

std::uint32_t computeStripNumber(const TiffImageMetaData_& record, std::uint32_t row,
                                 std::uint16_t sample) {
  const auto rowsPerStrip = fieldOrDefault<std::uint32_t>(record.tif, TIFFTAG_ROWSPERSTRIP);
  if (record.imageLength == 0 || record.imageWidth == 0 || rowsPerStrip == 0) return 0;
  return TIFFComputeStrip(record.tif, row, sample);
}

}  // namespace tb

#include "image/write_checks.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>

#include "core/errors.h"
#include "image/unsigned_arithmetic.h"

namespace tb {
namespace {

using Raise = void (*)(const char* className);
template <class Id>
void raiseWithClassName(const char* className) {
  raise<Id>(className);
}

struct BitsRow {
  std::uint16_t bits;
  std::initializer_list<vxClassID> classes;
  Raise refuse;
};
const BitsRow kClassesOfBits[] = {
    {1, {vxLOGICAL}, raiseWithClassName<Tiff::imageDatatypeNotLogical>},
    {8, {vxINT8, vxUINT8}, raiseWithClassName<Tiff::imageDatatypeNot8bit>},
    {16, {vxINT16, vxUINT16}, raiseWithClassName<Tiff::imageDatatypeNot16bit>},
    {32, {vxINT32, vxUINT32, vxSINGLE}, raiseWithClassName<Tiff::imageDatatypeNot32bit>},
    {64, {vxDOUBLE}, raiseWithClassName<Tiff::imageDatatypeNotDouble>},
};

struct FormatRow {
  std::uint16_t format;
  const char* name;
  const char* classNames;
  std::initializer_list<vxClassID> classes;
};
const FormatRow kClassesOfFormat[] = {
    {SAMPLEFORMAT_UINT,
     "Uint",
     "logical, uint8, uint16, uint32",
     {vxLOGICAL, vxUINT8, vxUINT16, vxUINT32}},
    {SAMPLEFORMAT_INT, "Int", "int8, int16, int32", {vxINT8, vxINT16, vxINT32}},
    {SAMPLEFORMAT_IEEEFP, "IEEEFP", "single, double", {vxSINGLE, vxDOUBLE}},
};

bool contains(std::initializer_list<vxClassID> classes, vxClassID classId) {
  return std::ranges::find(classes, classId) != classes.end();
}

void checkClassAgainstBits(const vxArray* image, std::uint16_t bits) {
  const auto* row = std::ranges::find(kClassesOfBits, bits, &BitsRow::bits);
  if (row == std::end(kClassesOfBits)) raise<Tiff::unsupportedBitsPerSample>(bits);
  if (!contains(row->classes, vxGetClassID(image))) row->refuse(vxGetClassName(image));
}

// Planes of the third and later dimensions; 1 for a matrix.
std::size_t planesOf(const vxArray* image) {
  std::size_t planes = 1;
  for (std::size_t d = 2; d < vxGetNumberOfDimensions(image); ++d) {
    planes *= vxGetDimensions(image)[d];
  }
  return planes;
}

// Planes that the routine which fills the block reads: bits and Y, Cb, Cr are taken from one each.
std::size_t planesNeeded(const TiffImageMetaData_& record) {
  const bool onePlane = record.bitsPerSample == 1 || (record.photometric == PHOTOMETRIC_YCBCR &&
                                                      record.jpegColorMode == JPEGCOLORMODE_RAW);
  return onePlane ? 1 : record.samplesPerBlock;
}

void checkShape(const vxArray* image, const TiffImageMetaData_& record) {
  const std::size_t dimensions = vxGetNumberOfDimensions(image);
  if (record.planarConfig == PLANARCONFIG_SEPARATE) {
    if (dimensions != 2) raise<Tiff::badPlanarImage>();
  } else if (record.planarConfig == PLANARCONFIG_CONTIG) {
    if (record.samplesPerBlock == 1) {
      if (dimensions != 2) raise<Tiff::badContigImageOneSpp>();
    } else if (dimensions != 3 && record.photometric != PHOTOMETRIC_YCBCR) {
      raise<Tiff::badContigImageMultipleSpp>();
    }
  }
  // The number of dimensions says nothing about the third one's size.
  if (planesOf(image) < planesNeeded(record)) raise<Tiff::badContigImageMultipleSpp>();
}

void checkClassAgainstFormat(vxClassID classId, std::uint16_t format) {
  const auto* row = std::ranges::find(kClassesOfFormat, format, &FormatRow::format);
  if (row == std::end(kClassesOfFormat)) raise<Tiff::badSampleFormat>();
  if (!contains(row->classes, classId)) {
    raise<Tiff::badDatatypeForSampleFormat>(row->name, row->classNames);
  }
}

vxClassID validateLogImage(const TiffImageMetaData_& record, const vxArray* image) {
  // Signed: -1, nothing chosen yet, passes here, and the array must then fit the 16-bit samples
  // that the directory announces.
  if (record.sgiLogDataFmt > SGILOGDATAFMT_8BIT) raise<Tiff::luvCodecNotSet>();
  if (record.sgiLogDataFmt == SGILOGDATAFMT_8BIT) {
    raise<Tiff::eightBitSgiFormatNotAllowedWhenWriting>();
  }
  return validateInputImage(image, record);
}

bool hasColorMap(TIFF* tif) {
  std::uint16_t* red = nullptr;
  std::uint16_t* green = nullptr;
  std::uint16_t* blue = nullptr;
  return TIFFGetField(tif, TIFFTAG_COLORMAP, &red, &green, &blue) != 0;
}

vxClassID validatePaletteImage(const TiffImageMetaData_& record, const vxArray* image) {
  const std::uint16_t bits = record.bitsPerSample;
  if (bits != 16 && bits != 8) raise<Tiff::badPaletteWriteConfiguration>();
  if (vxGetClassID(image) != (bits == 16 ? vxUINT16 : vxUINT8)) {
    raise<Tiff::badDatatypeForPaletteImage>(bits, bits);
  }
  if (record.sampleFormat != SAMPLEFORMAT_UINT) raise<Tiff::badPaletteWriteConfiguration>();
  if (!hasColorMap(record.tif)) raise<Tiff::colorMapShouldbeSet>();
  return validateInputImage(image, record);
}

struct MatrixSize {
  std::size_t rows;
  std::size_t columns;
  bool operator==(const MatrixSize&) const = default;
};

MatrixSize sizeOf(const vxArray* image) {
  const std::size_t* dimensions = vxGetDimensions(image);
  return {dimensions[0], dimensions[1]};
}

void checkChromaSize(const TiffImageMetaData_& record, InputImages images) {
  const std::size_t h = record.ycbcrSubsampling[0];
  const std::size_t v = record.ycbcrSubsampling[1];
  const MatrixSize y = sizeOf(images[0]);
  const MatrixSize cb = sizeOf(images[1]);
  const MatrixSize cr = sizeOf(images[2]);
  // No chroma size fits a factor of 0.
  const bool fits = h != 0 && v != 0 && cb == cr &&
                    cb == MatrixSize{quotientUp(y.rows, v), quotientUp(y.columns, h)};
  if (!fits) {
    raise<Tiff::badYCbCrDimensions>(y.rows, y.columns, cb.rows, cb.columns, cr.rows, cr.columns, h,
                                    v);
  }
}

vxClassID validateYCbCrImages(const TiffImageMetaData_& record, InputImages images) {
  if (images.size() != 3 && record.jpegColorMode == JPEGCOLORMODE_RAW) {
    raise<Tiff::wrongNumberOfInputImages>();
  }
  if (record.jpegColorMode == JPEGCOLORMODE_RGB) {
    // The codec converts one RGB image; how many arrays there are is not looked at any more.
    if (record.samplesPerPixel != 3) raise<Tiff::badRgbSamplesPerPixelConfiguration>();
    return validateInputImage(images[0], record);
  }
  // Colour modes that do not exist can be set all the same.
  if (images.size() != 3) raise<Tiff::wrongNumberOfInputImages>();
  vxClassID classId = vxUNKNOWN;
  for (const vxArray* image : images) classId = validateInputImage(image, record);
  if (record.planarConfig == PLANARCONFIG_SEPARATE) raise<Tiff::unsupportedYCbCrConfiguration>();
  checkChromaSize(record, images);
  return classId;
}

}  // namespace

vxClassID validateInputImage(const vxArray* image, const TiffImageMetaData_& record) {
  const vxClassID classId = vxGetClassID(image);
  checkClassAgainstBits(image, record.bitsPerSample);
  checkShape(image, record);
  checkClassAgainstFormat(classId, record.sampleFormat);
  return classId;
}

vxClassID validatePhotometric(const TiffImageMetaData_& record, InputImages images) {
  if (record.photometric == PHOTOMETRIC_YCBCR) return validateYCbCrImages(record, images);
  if (images.size() != 1) raise<Tiff::wrongNumberOfInputImages>();
  switch (record.photometric) {
    case PHOTOMETRIC_LOGL:
    case PHOTOMETRIC_LOGLUV:
      return validateLogImage(record, images[0]);
    case PHOTOMETRIC_PALETTE:
      return validatePaletteImage(record, images[0]);
    case PHOTOMETRIC_RGB:
      if (record.samplesPerPixel <= 2) raise<Tiff::badRgbSamplesPerPixelConfiguration>();
      [[fallthrough]];
    default:
      return validateInputImage(images[0], record);
  }
}

void validateExtraSamples(const TiffImageMetaData_& record) {
  const std::uint16_t extra = record.extraSamplesCount;
  const auto colour = static_cast<std::uint16_t>(record.samplesPerPixel - extra);
  switch (record.photometric) {
    case PHOTOMETRIC_MINISWHITE:
    case PHOTOMETRIC_MINISBLACK:
      if (colour != 1) warn(Warning::missingExtraSamples);
      break;
    case PHOTOMETRIC_SEPARATED:
      if (colour != 4) warn(Warning::missingExtraSamples);
      break;
    case PHOTOMETRIC_RGB:
      if (colour != 3) raise<Tiff::badExtraSamples>("RGB", record.samplesPerPixel);
      break;
    case PHOTOMETRIC_PALETTE:
      if (colour != 1) raise<Tiff::badExtraSamples>("PALETTE", record.samplesPerPixel);
      break;
    case PHOTOMETRIC_MASK:
    case PHOTOMETRIC_YCBCR:
    case PHOTOMETRIC_CIELAB:
    case PHOTOMETRIC_ICCLAB:
    case PHOTOMETRIC_ITULAB:
    case PHOTOMETRIC_LOGL:
    case PHOTOMETRIC_LOGLUV:
      if (extra != 0) raise<Tiff::improperUsageOfExtraSamples>(extra);
      break;
    default:
      break;
  }
}

void validateCompression(const TiffImageMetaData_& record) {
  if (record.compression != COMPRESSION_JPEG) return;
  if (record.bitsPerSample != 8) raise<Tiff::jpegBitsPerSampleMustBeEight>();
  if (record.samplesPerPixel != 1 && record.samplesPerPixel != 3) {
    raise<Tiff::jpegCompressionRequiresThreeSamplesPerPixel>();
  }
  if (record.isTiled) {
    if (record.tileWidth % 16 != 0 || record.tileLength % 16 != 0) {
      raise<Tiff::tiledJpegCompressionRequires16>();
    }
    return;
  }
  const std::uint32_t vertical =
      record.photometric == PHOTOMETRIC_YCBCR ? record.ycbcrSubsampling[1] : 1U;
  if (remainder(record.rowsPerStrip, 8U * vertical) != 0) {
    raise<Tiff::strippedJpegInvalidRowsPerStrip>();
  }
}

void validateWriteConfiguration(const TiffImageMetaData_& record, InputImages images) {
  if (record.imageWidth == 0 || record.imageLength == 0) raise<Tiff::imageDimensionsNotSet>();
  if (record.isTiled && (record.tileWidth == 0 || record.tileLength == 0)) {
    raise<Tiff::tileDimensionsNotSet>();
  }
  (void)validatePhotometric(record, images);
  validateExtraSamples(record);
  validateCompression(record);
  if (record.samplesPerPixel == 1 && record.planarConfig == PLANARCONFIG_SEPARATE) {
    raise<Tiff::badPlanarConfigurationSamplesPerPixelCombination>();
  }
}

}  // namespace tb

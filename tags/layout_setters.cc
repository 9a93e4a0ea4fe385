#include "tags/layout_setters.h"

#include <algorithm>

#include "core/codec_tags.h"
#include "core/field_guard.h"
#include "core/sample_depth.h"
#include "tags/converters.h"
#include "tags/photometric_checks.h"

namespace tb {
namespace {

template <std::size_t N>
bool isOneOf(std::uint16_t value, const std::uint16_t (&values)[N]) {
  return std::ranges::find(values, value) != std::end(values);
}

int storeCompression(TIFF* tif, std::uint16_t scheme) {
  const std::uint16_t before =
      fieldOrDefault<std::uint16_t>(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  const int status = storeField(tif, TIFFTAG_COMPRESSION, scheme);
  if (status && scheme != before) unsetCodecTags(tif);
  return status;
}

}  // namespace

int setPhotometric(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  return storeField(tif, tag, unpackTagScalar<std::uint16_t>(value, tag, tagName));
}

int setBitsPerSample(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                     const vxArray* value) {
  const auto bits = unpackTagScalar<std::uint16_t>(value, tag, tagName);
  if (!isOneOf(bits, {1, 8, 16, 32, 64})) raise<Tiff::badBitsPerSampleValue>();

  const std::uint16_t photometric = photometricBeforeWrite(tif, "BitsPerSample");
  if (isOneOf(photometric,
              {PHOTOMETRIC_PALETTE, PHOTOMETRIC_CIELAB, PHOTOMETRIC_ICCLAB, PHOTOMETRIC_ITULAB}) &&
      bits != 8 && bits != 16)
    raise<Tiff::badPhotometricLabPaletteBitsPerSampleCombination>();
  if (isLogPhotometric(photometric)) raise<Tiff::doNotSetForLogLuv>("BitsPerSample");
  return storeBitsPerSample(tif, bits);
}

int setSamplesPerPixel(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                       const vxArray* value) {
  if (isLogPhotometric(photometricBeforeWrite(tif, tagName)))
    raise<Tiff::doNotSetForLogLuv>("SamplesPerPixel");
  const std::uint16_t bits =
      requiredBeforeWrite(tif, TIFFTAG_BITSPERSAMPLE, "BitsPerSample", "SamplesPerPixel");
  const auto samples = unpackTagScalar<std::uint16_t>(value, tag, tagName);
  if (bits == 1 && samples != 1) raise<Tiff::badSamplesPerPixelBitsPerSampleCombination>();
  return storeField(tif, tag, samples);
}

int setSampleFormat(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                    const vxArray* value) {
  const auto format = unpackTagScalar<std::uint16_t>(value, tag, tagName);
  const std::uint16_t photometric = photometricBeforeWrite(tif, "SampleFormat");
  if (isLogPhotometric(photometric)) raise<Tiff::doNotSetForLogLuv>("SampleFormat");
  if (format == SAMPLEFORMAT_INT) {
    if (photometric >= PHOTOMETRIC_RGB) raise<Tiff::badValue>();
    const std::uint16_t bits =
        requiredBeforeWrite(tif, TIFFTAG_BITSPERSAMPLE, "BitsPerSample", "SampleFormat");
    if (bits == 1) raise<Tiff::badSampleFormatfor1Bps>();
  } else if (isOneOf(format,
                     {SAMPLEFORMAT_VOID, SAMPLEFORMAT_COMPLEXINT, SAMPLEFORMAT_COMPLEXIEEEFP})) {
    raise<Tiff::sampleFormatValueNotSupported>();
  }
  return storeField(tif, tag, format);
}

int setCompression(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  const auto scheme = unpackTagScalar<std::uint16_t>(value, tag, tagName);
  (void)photometricBeforeWrite(tif, "Compression");  // only has to be there

  switch (scheme) {
    case COMPRESSION_NONE:
    case COMPRESSION_LZW:
    case COMPRESSION_JPEG:
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_PACKBITS:
    case COMPRESSION_DEFLATE:
    case COMPRESSION_SGILOG:
    case COMPRESSION_SGILOG24:
      return storeCompression(tif, scheme);
    case COMPRESSION_CCITTFAX3:
    case COMPRESSION_CCITTFAX4:
      if (effectiveBitsPerSample(tif) != 1) raise<Tiff::badBitsPerSampleCompressionCombination>();
      return storeCompression(tif, scheme);
    case COMPRESSION_CCITTRLE:
    case COMPRESSION_CCITTRLEW:
      raise<Tiff::ccittNotSupportedForCreating>();
    default:
      raise<Tiff::unsupportedCompressionScheme>(scheme);
  }
}

int setPlanarConfiguration(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                           const vxArray* value) {
  const auto planar = unpackTagScalar<std::uint16_t>(value, tag, tagName);
  if (planar != PLANARCONFIG_CONTIG && planar != PLANARCONFIG_SEPARATE)
    raise<Tiff::badPlanarConfigurationValue>(planar);
  const std::uint16_t photometric = photometricBeforeWrite(tif, "PlanarConfiguration");
  if (isLogPhotometric(photometric) && planar == PLANARCONFIG_SEPARATE)
    raise<Tiff::badPhotometricPlanarConfigurationCombination>();
  return storeField(tif, tag, planar);
}

int setThresholding(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                    const vxArray* value) {
  const auto thresholding = unpackTagScalar<std::uint16_t>(value, tag, tagName);
  if (!isOneOf(thresholding, {THRESHHOLD_BILEVEL, THRESHHOLD_HALFTONE, THRESHHOLD_ERRORDIFFUSE}))
    raise<Tiff::badThresholdingValue>(thresholding);
  const std::uint16_t photometric = photometricBeforeWrite(tif, "Thresholding");
  if (photometric != PHOTOMETRIC_MINISWHITE && photometric != PHOTOMETRIC_MINISBLACK)
    raise<Tiff::badTagUsedWithPhotometric>("Thresholding", "MinIsWhite, MinIsBlack");
  return storeField(tif, tag, thresholding);
}

int setSgiLogDataFmt(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                     const vxArray* value) {
  const std::uint16_t photometric = photometricBeforeWrite(tif, "SGILogDataFmt");
  const std::uint16_t compression =
      fieldOrDefault<std::uint16_t>(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  if (compression != COMPRESSION_SGILOG && compression != COMPRESSION_SGILOG24)
    raise<Tiff::badCompressionForSgiLogDataFmt>();

  // Compared as unsigned, so that the codec's -1 for "not chosen yet" is none of the formats.
  std::uint32_t current = 0;
  if (!fetchField(tif, tag, &current)) raise<Tiff::tagRetrievalFailed>("SGILogDataFmt");
  if (current < 4) raise<Tiff::fmtAlreadySet>();
  const auto format = unpackTagScalar<std::uint32_t>(value, tag, tagName);
  if (format != SGILOGDATAFMT_FLOAT && format != SGILOGDATAFMT_8BIT)
    raise<Tiff::invalidSGILogDataFmtValue>(format);

  const std::uint16_t samples = photometric == PHOTOMETRIC_LOGL ? 1 : 3;
  if (!storeField(tif, TIFFTAG_SAMPLESPERPIXEL, samples))
    raise<Tiff::unableToWriteTag>("SamplesPerPixel");
  const std::uint16_t bitsBefore = effectiveBitsPerSample(tif);
  const int status = storeField(tif, tag, format);
  fitMapsToDepth(tif, bitsBefore);  // the codec has set BitsPerSample to that of the format
  return status;
}

int setExtraSamples(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                    const vxArray* value) {
  // libtiff corrects the values where they lie: they must be a copy of the host's.
  auto kinds = unpackTagArray<std::uint16_t>(value, tag, tagName);
  if (kinds.size() > largestCount(CountWidth::bits16)) return 0;
  return storeField<CountWidth::bits16>(tif, tag, static_cast<std::uint32_t>(kinds.size()),
                                        kinds.data());
}

}  // namespace tb

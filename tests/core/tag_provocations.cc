#include "tests/core/tag_provocations.h"

#include "host/tiff_utilities.h"

namespace tb::test {
namespace {

// --- getField

std::vector<Provocation> getFieldProvocations() {
  return {
      provoke<Tiff::tagRetrievalFailed>(
          {"Artist"}, [](Scene& s) { call("getField", s.written({Layout{}}), TIFFTAG_ARTIST); }),
      provoke<Tiff::unrecognizedTagNumber>(
          {1}, [](Scene& s) { call("getField", s.written({Layout{}}), 1); }),
      provoke<Tiff::unsupportedTag>(
          {"Matteing", TIFFTAG_MATTEING},
          [](Scene& s) { call("getField", s.written({Layout{}}), TIFFTAG_MATTEING); }),
      provoke<Tiff::unhandledTagId>(
          {TIFFTAG_JPEGCOLORMODE},
          [](Scene& s) { call("getField", s.written({Layout{}}), TIFFTAG_JPEGCOLORMODE); }),
      provoke<Tiff::badMultipleTagValueRetrieved>(
          {14, "GeoKeyDirectoryTag", 4},
          [](Scene& s) {
            const std::vector<std::uint32_t> keys(14, 1);
            call("getField", s.raw(withEntry({tiffutils::kGeoKeyDirectoryTag, TIFF_SHORT, keys})),
                 tiffutils::kGeoKeyDirectoryTag);
          }),
      provoke<Tiff::strippedOperationOnTiledImage>(
          {}, [](Scene& s) { call("getField", s.written({kTiled}), TIFFTAG_STRIPOFFSETS); }),
      provoke<Tiff::tiledOperationOnStrippedImage>(
          {}, [](Scene& s) { call("getField", s.written({Layout{}}), TIFFTAG_TILEOFFSETS); }),
      provoke<Tiff::badTransferFunctionSppCombination>(
          {2},
          [](Scene& s) {
            call("getField", s.written({Layout{.samples = 2}}), TIFFTAG_TRANSFERFUNCTION);
          }),
  };
}

// --- setField

std::vector<Provocation> plainSetterProvocations() {
  return {
      provoke<Tiff::cannotWriteInReadMode>(
          {}, [](Scene& s) { call("setField", s.written({Layout{}}), TIFFTAG_IMAGEWIDTH, 1); }),
      provoke<Tiff::tagValueNotDoublePrecisionScalar>(
          {"Orientation"},
          [](Scene& s) { set(s, {}, TIFFTAG_ORIENTATION, scalar<std::uint16_t>(1)); }),
      provoke<Tiff::tagValueNotDoublePrecisionArray>(
          {"PageNumber"}, [](Scene& s) { set(s, {}, TIFFTAG_PAGENUMBER, "x"); }),
      provoke<Tiff::bad2DtagValue>(
          {"ModelTiepointTag", 6},
          [](Scene& s) { set(s, {}, tiffutils::kModelTiepointTag, row({1})); }),
      provoke<Tiff::badTagValueCount>({"PageNumber", 2},
                                      [](Scene& s) { set(s, {}, TIFFTAG_PAGENUMBER, 1); }),
      provoke<Tiff::zeroLengthDimension>({"ImageWidth"},
                                         [](Scene& s) { set(s, {}, TIFFTAG_IMAGEWIDTH, 0); }),
      provoke<Tiff::badTileDimension>({"TileWidth"},
                                      [](Scene& s) { set(s, {}, TIFFTAG_TILEWIDTH, 24); }),
      provoke<Tiff::dateTimeTooLong>(
          {}, [](Scene& s) { set(s, {}, TIFFTAG_DATETIME, "2024:01:02 03:04:05 "); }),
      provoke<Tiff::badXmlPacketTagType>({}, [](Scene& s) { set(s, {}, TIFFTAG_XMLPACKET, 1); }),
      provoke<Tiff::lengthTooShort>({"XMP", 5},
                                    [](Scene& s) { set(s, {}, TIFFTAG_XMLPACKET, "<x/>"); }),
      provoke<Tiff::badUninterpretedTagType>({"ICC Profile"},
                                             [](Scene& s) {
                                               set(s, {}, TIFFTAG_ICCPROFILE, row({1, 2}));
                                             }),
      provoke<Tiff::unableToWriteTag>({"Orientation"},
                                      [](Scene& s) { set(s, {}, TIFFTAG_ORIENTATION, 9); }),
  };
}

std::vector<Provocation> layoutSetterProvocations() {
  static const Tags gray{{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK}};
  static const Tags color{{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB}};
  static const Tags palette{{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE}};
  static const Tags logLuv{{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGLUV}};
  return {
      provoke<Tiff::tagRetrievalBeforeWriteFailed>(
          {"PhotometricInterpretation", "BitsPerSample"},
          [](Scene& s) { set(s, {}, TIFFTAG_BITSPERSAMPLE, 8); }),
      provoke<Tiff::badBitsPerSampleValue>(
          {}, [](Scene& s) { set(s, gray, TIFFTAG_BITSPERSAMPLE, 4); }),
      provoke<Tiff::badPhotometricLabPaletteBitsPerSampleCombination>(
          {}, [](Scene& s) { set(s, palette, TIFFTAG_BITSPERSAMPLE, 1); }),
      provoke<Tiff::doNotSetForLogLuv>({"BitsPerSample"},
                                       [](Scene& s) { set(s, logLuv, TIFFTAG_BITSPERSAMPLE, 16); }),
      provoke<Tiff::badSamplesPerPixelBitsPerSampleCombination>(
          {},
          [](Scene& s) {
            set(s, also(gray, {{TIFFTAG_BITSPERSAMPLE, 1}}), TIFFTAG_SAMPLESPERPIXEL, 3);
          }),
      provoke<Tiff::badValue>({}, [](Scene& s) { set(s, color, TIFFTAG_SAMPLEFORMAT, 2); }),
      provoke<Tiff::badSampleFormatfor1Bps>(
          {},
          [](Scene& s) {
            set(s, also(gray, {{TIFFTAG_BITSPERSAMPLE, 1}}), TIFFTAG_SAMPLEFORMAT, 2);
          }),
      provoke<Tiff::sampleFormatValueNotSupported>(
          {}, [](Scene& s) { set(s, gray, TIFFTAG_SAMPLEFORMAT, 6); }),
      provoke<Tiff::badBitsPerSampleCompressionCombination>(
          {},
          [](Scene& s) {
            set(s, also(gray, {{TIFFTAG_BITSPERSAMPLE, 8}}), TIFFTAG_COMPRESSION, 4);
          }),
      provoke<Tiff::ccittNotSupportedForCreating>(
          {}, [](Scene& s) { set(s, gray, TIFFTAG_COMPRESSION, 2); }),
      provoke<Tiff::badPlanarConfigurationValue>(
          {3}, [](Scene& s) { set(s, gray, TIFFTAG_PLANARCONFIG, 3); }),
      provoke<Tiff::badPhotometricPlanarConfigurationCombination>(
          {}, [](Scene& s) { set(s, logLuv, TIFFTAG_PLANARCONFIG, 2); }),
      provoke<Tiff::badThresholdingValue>({4},
                                          [](Scene& s) { set(s, gray, TIFFTAG_THRESHHOLDING, 4); }),
      provoke<Tiff::badTagUsedWithPhotometric>(
          {"Thresholding", "MinIsWhite, MinIsBlack"},
          [](Scene& s) { set(s, color, TIFFTAG_THRESHHOLDING, 2); }),
      provoke<Tiff::badCompressionForSgiLogDataFmt>(
          {},
          [](Scene& s) {
            set(s, also(logLuv, {{TIFFTAG_COMPRESSION, 5}}), TIFFTAG_SGILOGDATAFMT, 0);
          }),
      provoke<Tiff::invalidSGILogDataFmtValue>(
          {2}, [](Scene& s) { set(s, logLuvTags(), TIFFTAG_SGILOGDATAFMT, 2); }),
      provoke<Tiff::fmtAlreadySet>(
          {},
          [](Scene& s) {
            set(s, also(logLuvTags(), {{TIFFTAG_SGILOGDATAFMT, 0}}), TIFFTAG_SGILOGDATAFMT, 0);
          }),
  };
}

std::vector<Provocation> arraySetterProvocations() {
  return {
      provoke<Tiff::photometricInterpretationNotSeparated>(
          {"InkSet"}, [](Scene& s) { set(s, rgbTags(), TIFFTAG_INKSET, 1); }),
      provoke<Tiff::notCellString>(
          {"InkNames"}, [](Scene& s) { set(s, separatedTags(), TIFFTAG_INKNAMES, "cyan"); }),
      provoke<Tiff::badNumberOfInkNames>(
          {4}, [](Scene& s) { set(s, separatedTags(), TIFFTAG_INKNAMES, cellOfTexts({"cyan"})); }),
      provoke<Tiff::invalidNumberOfInksValue>(
          {5, 4, 0}, [](Scene& s) { set(s, separatedTags(), TIFFTAG_NUMBEROFINKS, 5); }),
      provoke<Tiff::badTransferFunctionSize>(
          {8, 1, 256, 1},
          [](Scene& s) {
            set(s, grayTags(), TIFFTAG_TRANSFERFUNCTION, zeros(vxDOUBLE, {1, 255}));
          }),
      provoke<Tiff::badColorMap>(
          {256, 8},
          [](Scene& s) {
            set(s, paletteTags(), TIFFTAG_COLORMAP, zeros(vxDOUBLE, {255, 3}));
          }),
      provoke<Tiff::colorMapValuesNotNormalized>(
          {},
          [](Scene& s) {
            const std::vector<double> tooLarge(768, 1.2);
            set(s, paletteTags(), TIFFTAG_COLORMAP, arrayOf<double>({256, 3}, tooLarge));
          }),
      provoke<Tiff::badSMinMaxValueForBiLevelImage>(
          {"SMinSampleValue"},
          [](Scene& s) {
            set(s, also(stripTags(1, 1, 1), {{TIFFTAG_SAMPLEFORMAT, 1}}), TIFFTAG_SMINSAMPLEVALUE,
                0.5);
          }),
  };
}

}  // namespace

std::vector<Provocation> tagProvocations() {
  std::vector<Provocation> all;
  for (const auto& part : {getFieldProvocations(), plainSetterProvocations(),
                           layoutSetterProvocations(), arraySetterProvocations()})
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

}  // namespace tb::test

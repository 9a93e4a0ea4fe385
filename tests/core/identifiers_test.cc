// Every identifier of the catalog is provoked through the gateway, or listed with the reason why no
// input can provoke it.
#include <gtest/gtest.h>
#include <tiffio.h>

#include <iostream>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "core/errors.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

// One identifier with a way to provoke it.
struct Provocation {
  ErrorClass expected;
  Arguments arguments;
  void (*act)(Scene&);
};
void PrintTo(const Provocation& value, std::ostream* out) { *out << value.expected.identifier; }

template <class Id>
Provocation provoke(const Arguments& arguments, void (*act)(Scene&)) {
  return {errorClass<Id>(), arguments, act};
}

// --- Images and tags that the rows share

vxArrayPtr bytes(const Dimensions& dimensions = {16, 16}) { return zeros(vxUINT8, dimensions); }
vxArrayPtr rgb() { return bytes({16, 16, 3}); }

Tags grayTags() { return stripTags(PHOTOMETRIC_MINISBLACK, 8, 1); }
Tags rgbTags() { return stripTags(PHOTOMETRIC_RGB, 8, 3); }
Tags paletteTags() { return stripTags(PHOTOMETRIC_PALETTE, 8, 1); }
Tags separatedTags() { return stripTags(PHOTOMETRIC_SEPARATED, 8, 4); }
Tags ycbcrTags() {
  return also(stripTags(PHOTOMETRIC_YCBCR, 8, 3), {{TIFFTAG_YCBCRSUBSAMPLING, row({2, 2})}});
}
Tags logLuvTags() {
  return also(stripTags(PHOTOMETRIC_LOGLUV, 0, 0), {{TIFFTAG_COMPRESSION, COMPRESSION_SGILOG}});
}
Tag jpeg() { return {TIFFTAG_COMPRESSION, COMPRESSION_JPEG}; }

std::vector<RawEntry> withFormat(std::uint32_t bits, std::uint32_t format) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {bits}});
  replaceEntry(entries, {TIFFTAG_SAMPLEFORMAT, TIFF_SHORT, {format}});
  replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {32 * bits}});
  return entries;
}

std::vector<RawEntry> withEntry(const RawEntry& entry) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, entry);
  return entries;
}

std::vector<RawEntry> jpegTiles(std::uint32_t side) {
  std::vector<RawEntry> entries = withEntry({TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_JPEG}});
  for (const int tag : {TIFFTAG_STRIPOFFSETS, TIFFTAG_ROWSPERSTRIP, TIFFTAG_STRIPBYTECOUNTS})
    removeEntry(entries, static_cast<std::uint16_t>(tag));
  replaceEntry(entries, {TIFFTAG_TILEWIDTH, TIFF_LONG, {side}});
  replaceEntry(entries, {TIFFTAG_TILELENGTH, TIFF_LONG, {side}});
  replaceEntry(entries, {TIFFTAG_TILEOFFSETS, TIFF_LONG, {kDataOffset}});
  replaceEntry(entries, {TIFFTAG_TILEBYTECOUNTS, TIFF_LONG, {4096}});
  return entries;
}

void set(Scene& scene, const Tags& tags, double tag, const Input& value) {
  call("setField", scene.fresh(tags), tag, value);
}
void writeStrip(Scene& scene, const Tags& tags, const vxArrayPtr& image) {
  call("writeEncodedStrip", scene.fresh(tags), 0, image);
}
void readStrip(Scene& scene, const std::vector<RawEntry>& entries) {
  call("readEncodedStrip", scene.raw(entries), 0);
}

const Layout kTiled{.tileWidth = 16, .tileLength = 16};

// --- The gateway, files and directories

std::vector<Provocation> fileProvocations() {
  return {
      provoke<validate::argumentOutOfBounds>(
          {}, [](Scene& s) { call("computeStrip", s.written({Layout{}}), -1); }),
      provoke<validate::wrongNumberOfInputs>({}, [](Scene&) { call("getVersion", 1); }),
      provoke<Tiff::InvalidOperation>({"Close"}, [](Scene&) { call("Close", 1); }),
      provoke<Tiff::badFileId>({}, [](Scene&) { call("isTiled", 0); }),
      provoke<Tiff::invalidFileId>({}, [](Scene&) { call("isTiled", 1); }),
      provoke<Tiff::argumentWasNotChar>({"file"}, [](Scene&) { call("open", 1, "r"); }),
      provoke<Tiff::unableToOpenFile>({u"missing/file.tif"},
                                      [](Scene&) { call("open", "missing/file.tif", "r"); }),
      provoke<Tiff::unsupportedCompressionScheme>(
          {60000},
          [](Scene& s) {
            s.raw(withEntry({TIFFTAG_COMPRESSION, TIFF_SHORT, {60000}}));
          }),
      provoke<Tiff::unableToReadDir>(
          {}, [](Scene& s) { call("readDirectory", s.written({Layout{}})); }),
      provoke<Tiff::unableToWriteDir>(
          {}, [](Scene& s) { call("rewriteDirectory", s.written({Layout{}})); }),
      provoke<Tiff::unableToWriteCurrentDir>(
          {},
          [](Scene& s) {
            const OpenedFile& file = s.fresh(also(grayTags(), {{TIFFTAG_XPOSITION, -1}}));
            call("writeEncodedStrip", file, 0, bytes());
            call("writeDirectory", file);
          }),
      provoke<Tiff::unableToChangeDir>(
          {8}, [](Scene& s) { call("setDirectory", s.written({Layout{}}), 7); }),
      provoke<Tiff::noSubDirectories>(
          {}, [](Scene& s) { call("setSubDirectory", s.written({Layout{}}), 8); }),
      provoke<Tiff::noSuchSubDirectory>(
          {},
          [](Scene& s) {
            call("setSubDirectory", s.raw(withEntry({TIFFTAG_SUBIFD, TIFF_LONG, {999999}})), 8);
          }),
      provoke<Tiff::unableToChangeSubdir>(
          {999999},
          [](Scene& s) {
            call("setSubDirectory", s.raw(withEntry({TIFFTAG_SUBIFD, TIFF_LONG, {999999}})),
                 999999);
          }),
      provoke<Tiff::sampleParameterRequired>(
          {},
          [](Scene& s) {
            call("computeStrip", s.written({Layout{.samples = 2, .planar = PLANARCONFIG_SEPARATE}}),
                 0);
          }),
      provoke<Tiff::sampleParameterNotAllowedInChunkyCase>(
          {}, [](Scene& s) { call("computeStrip", s.written({Layout{}}), 0, 0); }),
  };
}

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
            call("getField", s.raw(withEntry({34735, TIFF_SHORT, keys})), 34735);
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
      provoke<Tiff::bad2DtagValue>({"ModelTiepointTag", 6},
                                   [](Scene& s) { set(s, {}, 33922, row({1})); }),
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

// --- Reading

std::vector<Provocation> readProvocations() {
  return {
      provoke<Tiff::complexSampleFormat>({}, [](Scene& s) { readStrip(s, withFormat(32, 6)); }),
      provoke<Tiff::badSampleFormatBitsPerSampleCombination>(
          {3, 8}, [](Scene& s) { readStrip(s, withFormat(8, 3)); }),
      provoke<Tiff::sampleFormatMustBeIeeeFpFor64Bits>(
          {}, [](Scene& s) { readStrip(s, withFormat(64, 1)); }),
      provoke<Tiff::unhandledBitsPerSample>({12},
                                            [](Scene& s) { readStrip(s, withFormat(12, 1)); }),
      provoke<Tiff::unsupportedYCbCrConfiguration>(
          {},
          [](Scene& s) {
            call("readEncodedStrip",
                 s.fresh(also(ycbcrTags(), {{TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE}})), 0);
          }),
      provoke<Tiff::readWithJpegColorModeRGB>(
          {},
          [](Scene& s) {
            const Tags tags = also(ycbcrTags(), {jpeg(), {TIFFTAG_JPEGCOLORMODE, 1}});
            call("readEncodedStrip", s.fresh(tags), 0);
          }),
      provoke<Tiff::luvCodecNotSet>(
          {}, [](Scene& s) { call("readEncodedStrip", s.fresh(logLuvTags()), 0); }),
      provoke<Tiff::badStripNumber>(
          {1}, [](Scene& s) { call("readEncodedStrip", s.written({Layout{}}), 1); }),
      provoke<Tiff::imageDepthStrippedLayoutMismatch>(
          {2},
          [](Scene& s) {
            const Layout deep{.more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_IMAGEDEPTH, 2); }};
            call("readEncodedStrip", s.written({deep}), 1);
          }),
      provoke<Tiff::badTileNumber>(
          {1}, [](Scene& s) { call("readEncodedTile", s.written({kTiled}), 1); }),
      provoke<Tiff::stripReadErrorRGBA>(
          {1}, [](Scene& s) { call("readRGBAStrip", s.raw(withFormat(64, 3)), 0); }),
      provoke<Tiff::tileReadErrorRGBA>(
          {17, 33}, [](Scene& s) { call("readRGBATile", s.written({kTiled}), 33, 17); }),
      provoke<Tiff::imageReadErrorRGBA>(
          {}, [](Scene& s) { call("readRGBAImage", s.raw(withFormat(64, 3))); }),
  };
}

// --- Writing

template <int kBits>
void writeText(Scene& scene) {
  writeStrip(scene, stripTags(1, kBits, 1), zeros(vxCHAR, {16, 16}));
}

std::vector<Provocation> imageProvocations() {
  return {
      provoke<Tiff::imageDatatypeNotLogical>({"char"}, writeText<1>),
      provoke<Tiff::imageDatatypeNot8bit>({"char"}, writeText<8>),
      provoke<Tiff::imageDatatypeNot16bit>({"char"}, writeText<16>),
      provoke<Tiff::imageDatatypeNot32bit>({"char"}, writeText<32>),
      provoke<Tiff::imageDatatypeNotDouble>({"char"}, writeText<64>),
      provoke<Tiff::unsupportedBitsPerSample>(
          {4},
          [](Scene& s) { call("writeEncodedStrip", s.raw(withFormat(4, 1), "r+"), 0, bytes()); }),
      provoke<Tiff::badPlanarImage>(
          {},
          [](Scene& s) {
            writeStrip(s, also(rgbTags(), {{TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE}}), rgb());
          }),
      provoke<Tiff::badContigImageOneSpp>({}, [](Scene& s) { writeStrip(s, grayTags(), rgb()); }),
      provoke<Tiff::badContigImageMultipleSpp>({},
                                               [](Scene& s) { writeStrip(s, rgbTags(), bytes()); }),
      provoke<Tiff::badDatatypeForSampleFormat>(
          {"Uint", "logical, uint8, uint16, uint32"},
          [](Scene& s) {
            writeStrip(s, grayTags(), zeros(vxINT8, {16, 16}));
          }),
      provoke<Tiff::badSampleFormat>(
          {},
          [](Scene& s) { call("writeEncodedStrip", s.raw(withFormat(8, 4), "r+"), 0, bytes()); }),
      provoke<Tiff::badExtraSamples>(
          {"RGB", 4},
          [](Scene& s) {
            writeStrip(s, stripTags(PHOTOMETRIC_RGB, 8, 4), bytes({16, 16, 4}));
          }),
      provoke<Tiff::improperUsageOfExtraSamples>(
          {1},
          [](Scene& s) {
            writeStrip(s, also(stripTags(PHOTOMETRIC_CIELAB, 8, 4), {{TIFFTAG_EXTRASAMPLES, 0}}),
                       bytes({16, 16, 4}));
          }),
      provoke<Tiff::wrongNumberOfInputImages>({},
                                              [](Scene& s) {
                                                call("writeEncodedStrip", s.fresh(grayTags()), 0,
                                                     bytes(), bytes(), bytes());
                                              }),
      provoke<Tiff::badRgbSamplesPerPixelConfiguration>(
          {},
          [](Scene& s) {
            writeStrip(s, stripTags(PHOTOMETRIC_RGB, 8, 2), bytes({16, 16, 2}));
          }),
      provoke<Tiff::badYCbCrDimensions>({16, 16, 8, 7, 8, 8, 2, 2},
                                        [](Scene& s) {
                                          call("writeEncodedStrip", s.fresh(ycbcrTags()), 0,
                                               bytes(), bytes({8, 7}), bytes({8, 8}));
                                        }),
      provoke<Tiff::badDatatypeForPaletteImage>(
          {8, 8},
          [](Scene& s) {
            writeStrip(s, paletteTags(), zeros(vxINT8, {16, 16}));
          }),
      provoke<Tiff::badPaletteWriteConfiguration>(
          {},
          [](Scene& s) {
            writeStrip(s, also(paletteTags(), {{TIFFTAG_SAMPLEFORMAT, 3}}), bytes());
          }),
      provoke<Tiff::colorMapShouldbeSet>({},
                                         [](Scene& s) { writeStrip(s, paletteTags(), bytes()); }),
      provoke<Tiff::eightBitSgiFormatNotAllowedWhenWriting>(
          {},
          [](Scene& s) {
            writeStrip(s, also(logLuvTags(), {{TIFFTAG_SGILOGDATAFMT, 3}}), rgb());
          }),
  };
}

std::vector<Provocation> writeProvocations() {
  return {
      provoke<Tiff::jpegBitsPerSampleMustBeEight>(
          {},
          [](Scene& s) {
            writeStrip(s, also(stripTags(1, 16, 1), {jpeg()}), zeros(vxUINT16, {16, 16}));
          }),
      provoke<Tiff::jpegCompressionRequiresThreeSamplesPerPixel>(
          {},
          [](Scene& s) {
            writeStrip(s, also(separatedTags(), {jpeg()}), bytes({16, 16, 4}));
          }),
      provoke<Tiff::tiledJpegCompressionRequires16>({},
                                                    [](Scene& s) {
                                                      // libtiff takes such a tile size from a file
                                                      // that is open for reading only.
                                                      call("writeEncodedTile", s.raw(jpegTiles(24)),
                                                           0, bytes());
                                                    }),
      provoke<Tiff::strippedJpegInvalidRowsPerStrip>(
          {},
          [](Scene& s) {
            writeStrip(s, also(grayTags(), {jpeg(), {TIFFTAG_ROWSPERSTRIP, 10}}), bytes());
          }),
      provoke<Tiff::imageDimensionsNotSet>(
          {},
          [](Scene& s) {
            writeStrip(s, {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_IMAGELENGTH, 16}}, bytes());
          }),
      provoke<Tiff::tileDimensionsNotSet>({},
                                          [](Scene& s) {
                                            // Without RowsPerStrip, which libtiff would take for
                                            // the tile length.
                                            writeStrip(s,
                                                       {{TIFFTAG_PHOTOMETRIC, 1},
                                                        {TIFFTAG_IMAGEWIDTH, 16},
                                                        {TIFFTAG_IMAGELENGTH, 16},
                                                        {TIFFTAG_TILEWIDTH, 16}},
                                                       bytes());
                                          }),
      provoke<Tiff::badPlanarConfigurationSamplesPerPixelCombination>(
          {},
          [](Scene& s) {
            writeStrip(s, also(grayTags(), {{TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE}}),
                       bytes());
          }),
      provoke<Tiff::stripNumberTooLarge>(
          {1}, [](Scene& s) { call("writeEncodedStrip", s.fresh(grayTags()), 1, bytes()); }),
      provoke<Tiff::stripWriteFailure>(
          {1}, [](Scene& s) { call("writeEncodedStrip", s.written({Layout{}}), 0, bytes()); }),
      provoke<Tiff::tileNumberTooLarge>(
          {1}, [](Scene& s) { call("writeEncodedTile", s.fresh(tileTags(1, 8, 1)), 1, bytes()); }),
      provoke<Tiff::tileWritefailure>(
          {1}, [](Scene& s) { call("writeEncodedTile", s.written({kTiled}), 0, bytes()); }),
  };
}

std::vector<Provocation> allProvocations() {
  std::vector<Provocation> all;
  for (const auto& part : {fileProvocations(), getFieldProvocations(), plainSetterProvocations(),
                           layoutSetterProvocations(), arraySetterProvocations(),
                           readProvocations(), imageProvocations(), writeProvocations()})
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Identifiers that no input can provoke.
struct OutOfReach {
  const char* identifier;
  const char* reason;
};
constexpr OutOfReach kOutOfReach[] = {
    {"KORVAL:pictoria:Tiff:unableToReadTag",
     "the status that it looks at was looked at before, with tagRetrievalFailed"},
    {"KORVAL:pictoria:Tiff:tooManyBytes",
     "libtiff decodes at most the strip size that the check compares with"},
    {"KORVAL:pictoria:Tiff:unknownSampleFormat",
     "libtiff takes no SampleFormat outside 1 to 6, neither from a caller nor from a file"},
};

std::set<std::string> catalog() {
  return {
#define IDENTIFIER(group, id) "KORVAL:pictoria:" #group ":" #id,
      TAGBRIDGE_ERRORS(IDENTIFIER)
#undef IDENTIFIER
  };
}

TEST(Identifiers, EachHasAProvocationOrAReasonAndNoneIsPending) {
  std::set<std::string> pending = catalog();
  for (const Provocation& provocation : allProvocations())
    pending.erase(provocation.expected.identifier);
  for (const OutOfReach& row : kOutOfReach)
    EXPECT_EQ(pending.erase(row.identifier), 1U) << row.identifier << " has a provocation";
  std::cout << "pending identifiers: " << pending.size() << '\n';
  EXPECT_EQ(pending, std::set<std::string>{});
}

TEST(Identifiers, NoneIsProvokedThatTheCatalogLacks) {
  const std::set<std::string> known = catalog();
  for (const Provocation& provocation : allProvocations())
    EXPECT_TRUE(known.contains(provocation.expected.identifier)) << provocation.expected.identifier;
}

class Identifier : public testing::TestWithParam<Provocation> {};

TEST_P(Identifier, IsRaisedThroughTheGateway) {
  const auto& [expected, arguments, act] = GetParam();
  Scene scene;
  expectError(expected, arguments, [&, &act = act] { act(scene); });
}

INSTANTIATE_TEST_SUITE_P(Catalog, Identifier, testing::ValuesIn(allProvocations()),
                         [](const auto& test) {
                           const std::string& identifier = test.param.expected.identifier;
                           return identifier.substr(identifier.rfind(':') + 1);
                         });

}  // namespace
}  // namespace tb::test

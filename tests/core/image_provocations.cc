#include "tests/core/image_provocations.h"

namespace tb::test {
namespace {

vxArrayPtr rgb() { return bytes({16, 16, 3}); }

Tags ycbcrTags() {
  return also(stripTags(PHOTOMETRIC_YCBCR, 8, 3), {{TIFFTAG_YCBCRSUBSAMPLING, row({2, 2})}});
}
Tag jpeg() { return {TIFFTAG_COMPRESSION, COMPRESSION_JPEG}; }

std::vector<RawEntry> withFormat(std::uint32_t bits, std::uint32_t format) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {bits}});
  replaceEntry(entries, {TIFFTAG_SAMPLEFORMAT, TIFF_SHORT, {format}});
  replaceEntry(entries, {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {32 * bits}});
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

void writeStrip(Scene& scene, const Tags& tags, const vxArrayPtr& image) {
  call("writeEncodedStrip", scene.fresh(tags), 0, image);
}
void readStrip(Scene& scene, const std::vector<RawEntry>& entries) {
  call("readEncodedStrip", scene.raw(entries), 0);
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

std::vector<Provocation> checkProvocations() {
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

}  // namespace

std::vector<Provocation> imageProvocations() {
  std::vector<Provocation> all;
  for (const auto& part : {readProvocations(), checkProvocations(), writeProvocations()})
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

}  // namespace tb::test

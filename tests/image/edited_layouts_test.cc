// Tags of the layout, the codec or the samples are changed in a directory that was loaded. Blocks
// that still fit are read and written; others are refused with a message, and nothing is read or
// written past the end of a buffer. Where a fault would lie inside libtiff, a libtiff built with
// sanitizers is the judge.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "runtime/loader.h"
#include "tests/support/scene.h"
#include "tests/support/tag_files.h"

namespace tb::test {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kLayoutChanged = "The layout of the directory was changed";

const Layout kTiles{.width = 60, .length = 50, .tileWidth = 32, .tileLength = 32};
const Layout kRgbTiles{.width = 60,
                       .length = 50,
                       .samples = 3,
                       .photometric = PHOTOMETRIC_RGB,
                       .tileWidth = 32,
                       .tileLength = 32};

// --- Edits that change no size

struct Harmless {
  const char* name;
  Layout layout;
  std::vector<Tag> edits;
};

class HarmlessEdit : public testing::TestWithParam<Harmless> {};

TEST_P(HarmlessEdit, LeavesTheTilesReadable) {
  const auto& [name, layout, edits] = GetParam();
  Scene scene;
  const OpenedFile& file = scene.written({layout}, "r+");
  setFields(file, edits);
  for (std::uint32_t tile = 0; tile < blockCount(layout); ++tile)
    EXPECT_TRUE(bytesOf(call("readEncodedTile", file, tile)) == hostBytes(layout, tile));
  EXPECT_THAT(libtiffMessages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Edits, HarmlessEdit,
    testing::Values(
        Harmless{"BlackToWhite", kTiles, {{TIFFTAG_PHOTOMETRIC, 0}}},
        Harmless{"RgbToGray", kRgbTiles, {{TIFFTAG_PHOTOMETRIC, 1}}},
        Harmless{"RgbToLab", kRgbTiles, {{TIFFTAG_PHOTOMETRIC, 8}}},
        Harmless{"SubsamplingOfGray", kTiles, {{TIFFTAG_YCBCRSUBSAMPLING, row({2, 2})}}},
        Harmless{"PlanesOfOneSample", kTiles, {{TIFFTAG_PLANARCONFIG, 2}}},
        Harmless{"WidthAndBack", kTiles, {{TIFFTAG_TILEWIDTH, 16}, {TIFFTAG_TILEWIDTH, 32}}},
        Harmless{"Text", kTiles, {{TIFFTAG_ARTIST, "somebody"}}}),
    [](const auto& test) { return test.param.name; });

// --- Edits after which the blocks in the file have another size

class EditedLayout : public testing::Test {
 protected:
  static void expectSilentZeros(const vxArrayPtr& array) {
    EXPECT_THAT(bytesOf(array), testing::Each(std::byte{0}));
    EXPECT_THAT(libtiffMessages(), Contains(HasSubstr(kLayoutChanged)));
  }
  Scene scene_;
};

TEST_F(EditedLayout, RefusesItsTilesAndSaysSo) {
  const OpenedFile& file = scene_.written({kTiles}, "r+");
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 16);
  expectSilentZeros(call("readEncodedTile", file, 0));
}

TEST_F(EditedLayout, RefusesTilesOfAStrippedFile) {
  const OpenedFile& file = scene_.written({{.width = 64, .length = 64}}, "r+");
  setFields(file, {{TIFFTAG_TILEWIDTH, 16}, {TIFFTAG_TILELENGTH, 16}});
  expectSilentZeros(call("readEncodedTile", file, 0));
  expectError<Tiff::tileReadErrorRGBA>({1, 1},
                                       [&, &handle = file] { call("readRGBATile", handle, 0, 0); });
}

TEST_F(EditedLayout, RefusesRgbaOfSmallerTiles) {
  const OpenedFile& file = scene_.written({kTiles}, "r+");
  call("setField", file, TIFFTAG_TILEWIDTH, 16);
  expectError<Tiff::imageReadErrorRGBA>({}, [&, &handle = file] { call("readRGBAImage", handle); });
}

TEST_F(EditedLayout, RefusesCompressedStripsOfOtherRows) {
  const OpenedFile& file =
      scene_.written({{.width = 32, .length = 32, .compression = COMPRESSION_LZW}}, "r+");
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 16);
  expectSilentZeros(call("readEncodedStrip", file, 0));
}

TEST_F(EditedLayout, OfANewFileIsForLibtiffToJudge) {
  const OpenedFile& file = scene_.fresh(tileTags(PHOTOMETRIC_MINISBLACK, 8, 1));
  call("readEncodedTile", file, 0);
  EXPECT_THAT(libtiffMessages(), Contains(HasSubstr("Tile out of range")));
}

TEST_F(EditedLayout, AfterACodecWasUsedRefusesReadsAndWrites) {
  const Layout layout{
      .width = 32, .length = 32, .compression = COMPRESSION_LZW, .more = [](TIFF* tif) {
        TIFFSetField(tif, TIFFTAG_PREDICTOR, 2);
      }};
  const OpenedFile& file = scene_.written({layout}, "r+");
  call("readEncodedStrip", file, 0);
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 16);
  expectSilentZeros(call("readEncodedStrip", file, 0));
  expectError<Tiff::stripWriteFailure>({1}, [&, &handle = file] {
    call("writeEncodedStrip", handle, 0, zeros(vxUINT16, {32, 32}));
  });
}

TEST_F(EditedLayout, OfOldJpegWithAnotherCodecIsNotReadOrWritten) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_OJPEG}});
  const OpenedFile& file = scene_.raw(entries, "r+");
  call("setField", file, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  expectSilentZeros(call("readEncodedStrip", file, 0));
  expectError<Tiff::stripWriteFailure>({1}, [&, &handle = file] {
    call("writeEncodedStrip", handle, 0, zeros(vxUINT8, {16, 16}));
  });
}

// --- Codecs whose set-up is refused after they were used

struct Unencodable {
  const char* name;
  Layout layout;
  std::vector<Tag> edits;
  Dimensions image;
};

class UsedCodec : public testing::TestWithParam<Unencodable> {};

TEST_P(UsedCodec, RefusesToWriteWhatItCannotEncode) {
  const auto& [name, layout, edits, dimensions] = GetParam();
  Scene scene;
  const OpenedFile& file = scene.written({layout}, "r+");
  call(layout.tiled() ? "readEncodedTile" : "readEncodedStrip", file, 0);
  setFields(file, edits);
  const auto size = std::filesystem::file_size(TIFFFileName(file.handle()));
  const vxArrayPtr image = zeros(vxUINT8, dimensions);
  const auto write = [&, &handle = file, tiled = layout.tiled()] {
    call(tiled ? "writeEncodedTile" : "writeEncodedStrip", handle, 0, image);
  };
  if (layout.tiled()) {
    expectError<Tiff::tileWritefailure>({1}, write);
  } else {
    expectError<Tiff::stripWriteFailure>({1}, write);
  }
  EXPECT_EQ(std::filesystem::file_size(TIFFFileName(file.handle())), size);
}

const Layout kJpeg{.width = 32, .length = 32, .compression = COMPRESSION_JPEG};
const Layout kWebp{.width = 32,
                   .length = 32,
                   .samples = 3,
                   .photometric = PHOTOMETRIC_RGB,
                   .compression = COMPRESSION_WEBP};

INSTANTIATE_TEST_SUITE_P(
    Codecs, UsedCodec,
    testing::Values(Unencodable{"JpegOfAPalette",
                                kJpeg,
                                {{TIFFTAG_PHOTOMETRIC, 3},
                                 {TIFFTAG_COLORMAP, zeros(vxDOUBLE, {256, 3})}},
                                {32, 32}},
                    Unencodable{"JpegOfAMask", kJpeg, {{TIFFTAG_PHOTOMETRIC, 4}}, {32, 32}},
                    Unencodable{"WebpOfOneSample",
                                kWebp,
                                {{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_SAMPLESPERPIXEL, 1}},
                                {32, 32}}),
    [](const auto& test) { return test.param.name; });

// The layout is the one that the codec was set up by, so that nothing else keeps it from encoding.
TEST(LoadedDirectory, OfAJpegThatCannotBeEncodedIsReadAndNotWritten) {
  Scene scene;
  const auto path = scene.folder() / "mask.tif";
  writeTiff(path, {kJpeg});
  {
    const TiffHandle tif = openTiff(path, "r+");
    TIFFSetField(tif.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MASK);
    TIFFRewriteDirectory(tif.get());
  }
  const OpenedFile file(path, "r+");
  call("readEncodedStrip", file, 0);
  expectError<Tiff::stripWriteFailure>({1}, [&] {
    call("writeEncodedStrip", file, 0, zeros(vxUINT8, {32, 32}));
  });
}

TEST(LoadedDirectory, OfAJpegWithFactorsOfFourIsNotWritten) {
  Scene scene;
  const auto path = scene.folder() / "factors.tif";
  writeTiff(path, {{.width = 64,
                    .length = 64,
                    .samples = 3,
                    .photometric = PHOTOMETRIC_YCBCR,
                    .compression = COMPRESSION_JPEG}});
  {
    const TiffHandle tif = openTiff(path, "r+");
    TIFFSetField(tif.get(), TIFFTAG_YCBCRSUBSAMPLING, 4, 4);
    TIFFRewriteDirectory(tif.get());
  }
  const OpenedFile file(path, "r+");
  call("readEncodedStrip", file, 0);
  const vxArrayPtr y = zeros(vxUINT8, {64, 64}), chroma = zeros(vxUINT8, {16, 16});
  expectError<Tiff::stripWriteFailure>(
      {1}, [&] { call("writeEncodedStrip", file, 0, y, chroma, chroma); });
}

// WebP's decoder is set up in part before it refuses the size, and its encoder would release the
// rest.
TEST_F(EditedLayout, OfAWiderWebpThanThereCanBeIsRefusedAfterARead) {
  const OpenedFile& file = scene_.written({kWebp}, "r+");
  call("setField", file, TIFFTAG_IMAGEWIDTH, 70000);
  call("rewriteDirectory", file);
  call("setDirectory", file, 0);
  call("readEncodedStrip", file, 0);
  expectError<Tiff::stripWriteFailure>({1}, [&, &handle = file] {
    call("writeEncodedStrip", handle, 0, zeros(vxUINT8, {4, 20, 3}));
  });
}

TEST_F(EditedLayout, OfYCbCrJpegWithFactorsOfFourIsRefused) {
  const Layout layout{.width = 64,
                      .length = 64,
                      .samples = 3,
                      .photometric = PHOTOMETRIC_YCBCR,
                      .compression = COMPRESSION_JPEG};
  const OpenedFile& file = scene_.written({layout}, "r+");
  call("readEncodedStrip", file, 0);
  call("setField", file, TIFFTAG_YCBCRSUBSAMPLING, row({4, 4}));
  const vxArrayPtr y = zeros(vxUINT8, {64, 64}), chroma = zeros(vxUINT8, {16, 16});
  expectError<Tiff::stripWriteFailure>(
      {1}, [&, &handle = file] { call("writeEncodedStrip", handle, 0, y, chroma, chroma); });
}

TEST_F(EditedLayout, FromPlanesToLogLuvIsNotEncodedBeforeItIsLoadedAgain) {
  const Layout layout{.width = 32,
                      .length = 32,
                      .samples = 3,
                      .planar = PLANARCONFIG_SEPARATE,
                      .photometric = PHOTOMETRIC_RGB,
                      .rowsPerStrip = 16};
  const OpenedFile& file = scene_.written({layout}, "r+");
  setFields(file, {{TIFFTAG_PHOTOMETRIC, 32845},
                   {TIFFTAG_PLANARCONFIG, 1},
                   {TIFFTAG_COMPRESSION, 34676},
                   {TIFFTAG_SGILOGDATAFMT, 0}});
  expectError<Tiff::stripWriteFailure>({2}, [&, &handle = file] {
    call("writeEncodedStrip", handle, 1, zeros(vxSINGLE, {16, 32, 3}));
  });
}

TEST_F(EditedLayout, OfPixarLogTilesIsRefusedToTheWriter) {
  const Layout layout{.width = 4000,
                      .length = 16,
                      .compression = COMPRESSION_PIXARLOG,
                      .tileWidth = 16,
                      .tileLength = 16};
  const auto path = scene_.folder() / "pixar.tif";
  {
    const TiffHandle tif = openTiff(path, "w");
    Layout plain = layout;
    plain.compression = COMPRESSION_NONE;
    setLayout(tif.get(), plain);
    std::vector<std::byte> tile(256);
    for (std::uint32_t k = 0; k < 250; ++k) TIFFWriteEncodedTile(tif.get(), k, tile.data(), 256);
    TIFFSetField(tif.get(), TIFFTAG_IMAGEDESCRIPTION, "tiles");
  }
  // The tag alone makes the file one of that codec.
  {
    const TiffHandle tif = openTiff(path, "r+");
    TIFFSetField(tif.get(), TIFFTAG_COMPRESSION, COMPRESSION_PIXARLOG);
    TIFFSetField(tif.get(), TIFFTAG_ROWSPERSTRIP, 16);
    TIFFRewriteDirectory(tif.get());
  }
  const OpenedFile file(path, "r+");
  expectError<Tiff::tileWritefailure>({1}, [&] {
    call("writeEncodedTile", file, 0, zeros(vxUINT8, {16, 16}));
  });
}

TEST_F(EditedLayout, WithoutByteCountsRefusesItsStrips) {
  const OpenedFile& file = scene_.raw(rawOldJpeg(16, 16), "r+");
  const vxArrayPtr y = zeros(vxUINT8, {16, 16}), chroma = zeros(vxUINT8, {8, 8});
  expectError<Tiff::stripWriteFailure>(
      {1}, [&, &handle = file] { call("writeEncodedStrip", handle, 0, y, chroma, chroma); });
}

// Coding in two dimensions needs the row above, for which the codec made no room.
TEST_F(EditedLayout, WithOtherFaxOptionsNeitherReadsNorWritesAfterARead) {
  const OpenedFile& file = scene_.written(
      {{.width = 32, .bits = 1, .compression = COMPRESSION_CCITTFAX3, .rowsPerStrip = 16}}, "r+");
  call("readEncodedStrip", file, 0);
  call("setField", file, TIFFTAG_GROUP3OPTIONS, GROUP3OPT_2DENCODING);
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), std::vector<std::byte>(512));
  expectError<Tiff::stripWriteFailure>({1}, [&, &handle = file] {
    call("writeEncodedStrip", handle, 0, zeros(vxLOGICAL, {16, 32}));
  });
}

// --- Arrays whose length follows from another tag

TEST_F(EditedLayout, OfLogLByRgbaReadsFitsItsColorMap) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {1}});
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_SGILOG}});
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_LOGL}});
  replaceEntry(entries, {TIFFTAG_COLORMAP, TIFF_SHORT, {1, 2, 3, 4, 5, 6}});
  const OpenedFile& file = scene_.raw(entries);
  try {
    call("readRGBAImage", file);
  } catch (const foundation::core::except::IMsgIDException&) {
    // There is no image in the file.
  }
  const vxArrayPtr map = call("getField", file, TIFFTAG_COLORMAP);
  ASSERT_EQ(dimensionsOf(map), (Dimensions{256, 3}));
  const std::vector<double> colours = elementsOf<double>(map);
  EXPECT_EQ(std::ranges::count(colours, 0.0), 762) << "what was not in the file is 0";
}

TEST_F(EditedLayout, OfLogLByRgbaReadsIsNotWritten) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {16}});
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_SGILOG}});
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_LOGL}});
  replaceEntry(entries, {TIFFTAG_SAMPLEFORMAT, TIFF_SHORT, {2}});
  const auto path = scene_.folder() / "log.tif";
  for (const bool isEdited : {false, true}) {
    writeRawTiff(path, entries, std::vector<std::byte>(16));
    {
      const OpenedFile file(path, "r+");
      EXPECT_THROW(call("readRGBAImage", file), std::exception);
      if (isEdited) call("setField", file, TIFFTAG_ARTIST, "somebody");
    }
    const OpenedFile file(path, "r");
    EXPECT_EQ(numberFrom("getField", file, TIFFTAG_BITSPERSAMPLE), 16);
    EXPECT_EQ(numberFrom("getField", file, TIFFTAG_SAMPLEFORMAT), 2);
  }
}

TEST_F(EditedLayout, OfBitsPerSampleSaysThatTheMapsWereFitted) {
  const OpenedFile& file = scene_.fresh({{TIFFTAG_PHOTOMETRIC, 3},
                                         {TIFFTAG_BITSPERSAMPLE, 8},
                                         {TIFFTAG_COLORMAP, zeros(vxDOUBLE, {256, 3})}});
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 16);
  EXPECT_THAT(libtiffMessages(), Contains("ColorMap was resized to fit BitsPerSample"));
}

TEST_F(EditedLayout, OfBitsPerSampleToItsOwnValueSaysOnlyThatItIsFrozen) {
  const OpenedFile& file = scene_.fresh(stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
  try {
    call("setField", file, TIFFTAG_BITSPERSAMPLE, 8);
  } catch (const foundation::core::except::IMsgIDException&) {
    // libtiff refuses it.
  }
  ASSERT_EQ(runtime::collectedDiagnostics().size(), 1U);
  EXPECT_THAT(runtime::collectedDiagnostics()[0].message, HasSubstr("BitsPerSample"));
}

}  // namespace
}  // namespace tb::test

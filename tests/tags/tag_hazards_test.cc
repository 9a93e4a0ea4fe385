// Calls that make plain libtiff read or write through wild pointers, keep arrays that are too
// short, or store something other than what was passed. Most of these are only seen to fail under
// AddressSanitizer.
#include <gtest/gtest.h>

#include <cstring>

#include "core/geo_tags.h"
#include "core/open_files.h"
#include "host/tiff_utilities.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

class TagHazards : public testing::Test {
 protected:
  Input create(const std::vector<Tag>& setup, const char* mode = "w") {
    file_.reset();
    file_ = std::make_unique<OpenedFile>(folder_ / "new.tif", mode);
    setFields(*file_, setup);
    return *file_;
  }
  Input update(const std::vector<RawEntry>& entries) {
    writeRawTiff(folder_ / "raw.tif", entries, std::vector<std::byte>(256));
    file_.reset();
    file_ = std::make_unique<OpenedFile>(folder_ / "raw.tif", "r+");
    return *file_;
  }
  TIFF* handle() const { return file_->handle(); }

  TemporaryFolder folder_;
  std::unique_ptr<OpenedFile> file_;
};

vxArrayPtr rampMap(std::size_t rows) {
  std::vector<double> elements(3 * rows);
  for (std::size_t k = 0; k < elements.size(); ++k)
    elements[k] = static_cast<double>(k % 65536) / 65535.0;
  return arrayOf<double>({rows, 3}, elements);
}

// --- Maps after a change of BitsPerSample

TEST_F(TagHazards, ColorMapGrowsWithTheDepthAndKeepsItsEntries) {
  const Input file = create(
      {{TIFFTAG_PHOTOMETRIC, 3}, {TIFFTAG_BITSPERSAMPLE, 8}, {TIFFTAG_COLORMAP, rampMap(256)}});
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 16);
  const HostValue map = valueOf(call("getField", file, TIFFTAG_COLORMAP));
  ASSERT_EQ(map.dimensions, (Dimensions{65536, 3}));
  EXPECT_EQ(map.elements[255], 255 / 65535.0);
  EXPECT_EQ(map.elements[256], 0);
  EXPECT_EQ(map.elements[65536 + 1], 257 / 65535.0);
  EXPECT_EQ(map.elements.back(), 0);
}

TEST_F(TagHazards, ColorMapShrinksWithTheDepth) {
  const Input file = create(
      {{TIFFTAG_PHOTOMETRIC, 3}, {TIFFTAG_BITSPERSAMPLE, 16}, {TIFFTAG_COLORMAP, rampMap(65536)}});
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 8);
  const HostValue map = valueOf(call("getField", file, TIFFTAG_COLORMAP));
  ASSERT_EQ(map.dimensions, (Dimensions{256, 3}));
  EXPECT_EQ(map.elements[255], 255 / 65535.0);
}

TEST_F(TagHazards, TransferFunctionsGrowWithTheDepth) {
  const Input file =
      create(rgb() + std::vector<Tag>{{TIFFTAG_TRANSFERFUNCTION, arrayOf<double>({256, 3}, [] {
                                         std::vector<double> curves(768, 7);
                                         curves[512] = 9;
                                         return curves;
                                       }())}});
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 16);
  const HostValue curves = valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION));
  ASSERT_EQ(curves.dimensions, (Dimensions{65536, 3}));
  EXPECT_EQ(curves.elements[255], 7);
  EXPECT_EQ(curves.elements[256], 0);
  EXPECT_EQ(curves.elements[2 * 65536], 9);
}

TEST_F(TagHazards, CurveOfTheDefaultDepthGrowsToo) {
  const Input file = create({{TIFFTAG_PHOTOMETRIC, 1}, {TIFFTAG_TRANSFERFUNCTION, row({3, 4})}});
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 8);
  const HostValue curve = valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION));
  ASSERT_EQ(curve.dimensions, (Dimensions{1, 256}));
  EXPECT_EQ(curve.elements[1], 4);
  EXPECT_EQ(curve.elements[255], 0);
}

TEST_F(TagHazards, MapsAreDroppedAbove16Bits) {
  for (const int bits : {32, 64}) {
    const Input file = create({{TIFFTAG_PHOTOMETRIC, 3},
                               {TIFFTAG_BITSPERSAMPLE, 8},
                               {TIFFTAG_SAMPLESPERPIXEL, 1},
                               {TIFFTAG_COLORMAP, rampMap(256)},
                               {TIFFTAG_TRANSFERFUNCTION, zeros(vxDOUBLE, {1, 256})},
                               {TIFFTAG_PHOTOMETRIC, 1}});
    call("setField", file, TIFFTAG_BITSPERSAMPLE, bits);
    expectError<Tiff::tagRetrievalFailed>({"ColorMap"},
                                          [&] { call("getField", file, TIFFTAG_COLORMAP); });
    expectError<Tiff::tagRetrievalFailed>(
        {"TransferFunction"}, [&] { call("getField", file, TIFFTAG_TRANSFERFUNCTION); });
  }
}

TEST_F(TagHazards, GrownMapsAreWrittenWhole) {
  const Input file = create({{TIFFTAG_PHOTOMETRIC, 3},
                             {TIFFTAG_BITSPERSAMPLE, 8},
                             {TIFFTAG_SAMPLESPERPIXEL, 1},
                             {TIFFTAG_COLORMAP, rampMap(256)},
                             {TIFFTAG_BITSPERSAMPLE, 16},
                             {TIFFTAG_IMAGEWIDTH, 2},
                             {TIFFTAG_IMAGELENGTH, 1},
                             {TIFFTAG_ROWSPERSTRIP, 1}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT16, {1, 2}));
  file_.reset();
  const OpenedFile written(folder_ / "new.tif", "r");
  const HostValue map = valueOf(call("getField", written, TIFFTAG_COLORMAP));
  ASSERT_EQ(map.dimensions, (Dimensions{65536, 3}));
  EXPECT_EQ(map.elements[255], 255 / 65535.0);
  for (std::size_t entry = 256; entry < 65536; ++entry) ASSERT_EQ(map.elements[entry], 0) << entry;
}

TEST_F(TagHazards, LogFormatDropsMapsThatItsDepthCannotHave) {
  const Input file = create({{TIFFTAG_IMAGEWIDTH, 4},
                             {TIFFTAG_PHOTOMETRIC, 1},
                             {TIFFTAG_BITSPERSAMPLE, 8},
                             {TIFFTAG_SAMPLESPERPIXEL, 1},
                             {TIFFTAG_TRANSFERFUNCTION, zeros(vxDOUBLE, {1, 256})},
                             {TIFFTAG_COLORMAP, rampMap(256)},
                             {TIFFTAG_PHOTOMETRIC, 32844},
                             {TIFFTAG_COMPRESSION, 34676}});
  call("setField", file, TIFFTAG_SGILOGDATAFMT, 0);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_BITSPERSAMPLE), 32);
  expectError<Tiff::tagRetrievalFailed>({"ColorMap"},
                                        [&] { call("getField", file, TIFFTAG_COLORMAP); });
  expectError<Tiff::tagRetrievalFailed>({"TransferFunction"},
                                        [&] { call("getField", file, TIFFTAG_TRANSFERFUNCTION); });
}

TEST_F(TagHazards, RefusedDepthKeepsTheMaps) {
  const Input file = create({{TIFFTAG_PHOTOMETRIC, 3},
                             {TIFFTAG_BITSPERSAMPLE, 8},
                             {TIFFTAG_SAMPLESPERPIXEL, 1},
                             {TIFFTAG_COLORMAP, rampMap(256)},
                             {TIFFTAG_IMAGEWIDTH, 4},
                             {TIFFTAG_IMAGELENGTH, 1},
                             {TIFFTAG_ROWSPERSTRIP, 1}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {1, 4}));
  expectRefused<Tiff::unableToWriteTag>(file, TIFFTAG_BITSPERSAMPLE, 16, {"BitsPerSample"});
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_COLORMAP)).dimensions, (Dimensions{256, 3}));
}

TEST_F(TagHazards, CurvesComeAndGoWithTheNumberOfSamples) {
  // Curves that one sample hides keep their old length inside libtiff and must not come back.
  const Input file =
      create(rgb() + std::vector<Tag>{{TIFFTAG_TRANSFERFUNCTION, zeros(vxDOUBLE, {256, 3})},
                                      {TIFFTAG_SAMPLESPERPIXEL, 1},
                                      {TIFFTAG_BITSPERSAMPLE, 16},
                                      {TIFFTAG_SAMPLESPERPIXEL, 3}});
  expectError<Tiff::tagRetrievalFailed>({"TransferFunction"},
                                        [&] { call("getField", file, TIFFTAG_TRANSFERFUNCTION); });
}

// --- Byte swapping after a change of BitsPerSample

TEST_F(TagHazards, OneBitAfterADeeperOneIsNotSwapped) {
  for (const int bits : {16, 32, 64}) {
    const Input file = create({{TIFFTAG_PHOTOMETRIC, 1},
                               {TIFFTAG_BITSPERSAMPLE, bits},
                               {TIFFTAG_BITSPERSAMPLE, 1},
                               {TIFFTAG_SAMPLESPERPIXEL, 1},
                               {TIFFTAG_IMAGEWIDTH, 20},
                               {TIFFTAG_IMAGELENGTH, 1},
                               {TIFFTAG_ROWSPERSTRIP, 1}},
                              "wb");
    const vxArrayPtr row =
        image<bool>(1, 20, 1, [](auto, auto column, auto) { return column < 5; });
    call("writeEncodedStrip", file, 0, row);  // three bytes, an odd number
    file_.reset();
    const OpenedFile written(folder_ / "new.tif", "r");
    EXPECT_EQ(bytesOf(call("readEncodedStrip", written, 0)), bytesOf(row)) << bits;
  }
}

TEST_F(TagHazards, SameDepthAgainLeavesThePredictorItsSwapping) {
  writeTiff(folder_ / "p.tif",
            {{.bits = 16, .compression = COMPRESSION_LZW, .more = stores(TIFFTAG_PREDICTOR, 2)}},
            "wb");
  const OpenedFile file(folder_ / "p.tif", "r+");
  const auto before = bytesOf(call("readEncodedStrip", file, 0));
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 16);
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), before);
}

TEST_F(TagHazards, SameDepthIsStoredWhenItIsADefaultSoFar) {
  const Input file = create({{TIFFTAG_PHOTOMETRIC, 1}});
  call("setField", file, TIFFTAG_BITSPERSAMPLE, 1);
  std::uint16_t bits = 0;
  EXPECT_EQ(TIFFGetField(handle(), TIFFTAG_BITSPERSAMPLE, &bits), 1);
}

// --- Tags that libtiff knows by another definition than the call assumes

std::vector<RawEntry> grayWith(const RawEntry& entry) {
  auto entries = rawGray(4, 4);
  replaceEntry(entries, entry);
  return entries;
}

TEST_F(TagHazards, PredictorOfAnUncompressedFileIsNeitherReadNorSet) {
  const Input file = update(grayWith({TIFFTAG_PREDICTOR, TIFF_SHORT, {2}}));
  expectError<Tiff::tagRetrievalFailed>({"Predictor"},
                                        [&] { call("getField", file, TIFFTAG_PREDICTOR); });
  expectRefused<Tiff::unableToWriteTag>(file, TIFFTAG_PREDICTOR, 60000, {"Predictor"});
}

TEST_F(TagHazards, GroupOptionsOfAnUncompressedFileAreNeitherReadNorSet) {
  for (const std::uint16_t tag :
       {std::uint16_t{TIFFTAG_GROUP3OPTIONS}, std::uint16_t{TIFFTAG_GROUP4OPTIONS}}) {
    const Input file = update(grayWith({tag, TIFF_LONG, {1}}));
    const char* name = tag == TIFFTAG_GROUP3OPTIONS ? "Group3Options" : "Group4Options";
    expectError<Tiff::tagRetrievalFailed>({name}, [&] { call("getField", file, tag); });
    expectRefused<Tiff::unableToWriteTag>(file, tag, 60000, {name});
  }
}

// A file that is opened while the GeoTIFF tags are not registered, but through the module's
// registry: any other program in the process may do that.
class UnregisteredGeoTags : public TagHazards {
 protected:
  UnregisteredGeoTags() { call("getVersion"); }
  ~UnregisteredGeoTags() override {
    TiffAtExitUnregister(tif_.get());
    registerCustomGeoTags();
  }

  Input adopt(const std::vector<RawEntry>& entries) {
    writeRawTiff(folder_ / "geo.tif", entries, std::vector<std::byte>(256));
    unregisterCustomGeoTags();
    tif_ = openTiff(folder_ / "geo.tif", "r+");
    TiffAtExitRegister(tif_.get());
    return packUpTiffFileId(tif_.get());
  }
  TiffHandle tif_;
};

TEST_F(UnregisteredGeoTags, AreNeitherReadNorSet) {
  auto entries = grayWith({tiffutils::kModelPixelScaleTag, TIFF_BYTE, {1, 2, 3}});
  replaceEntry(entries, {tiffutils::kGeoAsciiParamsTag, TIFF_ASCII, {'a', 0}});
  const Input file = adopt(entries);
  expectError<Tiff::tagRetrievalFailed>(
      {"ModelPixelScaleTag"}, [&] { call("getField", file, tiffutils::kModelPixelScaleTag); });
  expectError<Tiff::tagRetrievalFailed>(
      {"GeoASCIIParamsTag"}, [&] { call("getField", file, tiffutils::kGeoAsciiParamsTag); });
  expectError<Tiff::unableToWriteTag>({"ModelPixelScaleTag"}, [&] {
    call("setField", file, tiffutils::kModelPixelScaleTag, row({1, 2, 3}));
  });
  expectError<Tiff::unableToWriteTag>({"GeoASCIIParamsTag"}, [&] {
    call("setField", file, tiffutils::kGeoAsciiParamsTag, "text");
  });
  expectError<Tiff::unableToWriteTag>({"GeoDoubleParamsTag"}, [&] {
    call("setField", file, tiffutils::kGeoDoubleParamsTag, row({1}));
  });
}

TEST_F(UnregisteredGeoTags, KeepTheFilesValueWhenAStoreIsRefused) {
  const Input file = adopt(grayWith({tiffutils::kModelPixelScaleTag, TIFF_BYTE, {1, 2, 3}}));
  expectError<Tiff::unableToWriteTag>({"ModelPixelScaleTag"}, [&] {
    call("setField", file, tiffutils::kModelPixelScaleTag, row({1, 2, 3}));
  });
  std::uint32_t count = 0;
  const std::uint8_t* values = nullptr;
  ASSERT_EQ(TIFFGetField(tif_.get(), tiffutils::kModelPixelScaleTag, &count, &values), 1);
  EXPECT_EQ(count, 3U);
}

// --- Refused arrays

TEST_F(TagHazards, RefusedEmptyArrayLeavesTheValueThatWasThere) {
  const Input file = create({{tiffutils::kGeoDoubleParamsTag, row({1, 2})},
                             {tiffutils::kModelTiepointTag, arrayOf<double>({1, 6}, {})},
                             {TIFFTAG_ICCPROFILE, zeros(vxUINT8, {1, 9})}});
  expectError<Tiff::unableToWriteTag>({"GeoDoubleParamsTag"}, [&] {
    call("setField", file, tiffutils::kGeoDoubleParamsTag, row({}));
  });
  expectError<Tiff::unableToWriteTag>({"ModelTiepointTag"}, [&] {
    call("setField", file, tiffutils::kModelTiepointTag, arrayOf<double>({0, 6}, {}));
  });
  expectError<Tiff::unableToWriteTag>({"ICC Profile"}, [&] {
    call("setField", file, TIFFTAG_ICCPROFILE, zeros(vxUINT8, {0, 0}));
  });
  call("setField", file, TIFFTAG_IMAGEDESCRIPTION, "another tag of libtiff's list");
  EXPECT_EQ(valueOf(call("getField", file, tiffutils::kGeoDoubleParamsTag)).elements.size(), 2U);
  EXPECT_EQ(valueOf(call("getField", file, tiffutils::kModelTiepointTag)).elements.size(), 6U);
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_ICCPROFILE)).elements.size(), 9U);
}

TEST_F(TagHazards, CountsAbove65535AreRefusedNotCut) {
  const Input file = create(gray() + std::vector<Tag>{{tiffutils::kGeoDoubleParamsTag, row({1})}});
  expectRefused<Tiff::unableToWriteTag>(file, tiffutils::kGeoDoubleParamsTag,
                                        zeros(vxDOUBLE, {1, 65536}), {"GeoDoubleParamsTag"});
  expectRefused<Tiff::unableToWriteTag>(file, tiffutils::kModelTiepointTag,
                                        zeros(vxDOUBLE, {10923, 6}), {"ModelTiepointTag"});
  expectRefused<Tiff::unableToWriteTag>(file, tiffutils::kGeoKeyDirectoryTag,
                                        zeros(vxDOUBLE, {16384, 4}), {"GeoKeyDirectoryTag"});
  // Cut to 16 bits there would be two, which three samples have room for.
  expectRefused<Tiff::unableToWriteTag>(create(rgb()), TIFFTAG_EXTRASAMPLES,
                                        zeros(vxDOUBLE, {1, 65538}), {"ExtraSamples"});
}

TEST_F(TagHazards, TheLargestCountIsStoredWhole) {
  const Input file = create({});
  call("setField", file, tiffutils::kGeoDoubleParamsTag, zeros(vxDOUBLE, {1, 65535}));
  EXPECT_EQ(valueOf(call("getField", file, tiffutils::kGeoDoubleParamsTag)).elements.size(),
            65535U);
}

TEST_F(TagHazards, InkNamesAbove65535BytesAreRefusedNotCut) {
  const Input file = create({{TIFFTAG_PHOTOMETRIC, 5},
                             {TIFFTAG_BITSPERSAMPLE, 8},
                             {TIFFTAG_SAMPLESPERPIXEL, 3},
                             {TIFFTAG_NUMBEROFINKS, 3}});
  // Cut to 16 bits, four bytes would be left: two names.
  expectRefused<Tiff::unableToWriteTag>(
      file, TIFFTAG_INKNAMES, cellOfTexts({"c", "m", std::string(65535, 'y')}), {"InkNames"});
}

TEST_F(TagHazards, BlocksAbove2GibibytesAreRefused) {
  const Input file = create({{TIFFTAG_ICCPROFILE, zeros(vxUINT8, {1, 200})}});
  vxArrayPtr large;
  try {
    large = zeros(vxUINT8, {1, 0x80000000});
  } catch (const std::bad_alloc&) {
    GTEST_SKIP() << "this machine has no 2 GiB";
  }
  expectRefused<Tiff::unableToWriteTag>(file, TIFFTAG_ICCPROFILE, large, {"ICC Profile"});
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_ICCPROFILE)).elements.size(), 200U);
}

TEST_F(TagHazards, ExtraSamplesOf999AreCorrectedInACopy) {
  const Input file = create(rgb());
  const vxArrayPtr kinds = row({999});
  call("setField", file, TIFFTAG_EXTRASAMPLES, kinds);
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_EXTRASAMPLES)), aRow({2}));
  EXPECT_EQ(elementsOf<double>(kinds), std::vector<double>{999});
}

// --- Sub-directories

TEST_F(TagHazards, NoSubDirectoriesAreNotWritten) {
  const Input file = create(gray() + std::vector<Tag>{{TIFFTAG_IMAGEWIDTH, 1},
                                                      {TIFFTAG_IMAGELENGTH, 1},
                                                      {TIFFTAG_ROWSPERSTRIP, 1},
                                                      {TIFFTAG_SUBIFD, 0}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {1, 1}));
  call("writeDirectory", file);
  file_.reset();
  const OpenedFile written(folder_ / "new.tif", "r");
  expectError<Tiff::tagRetrievalFailed>({"SubIFD"},
                                        [&] { call("getField", written, TIFFTAG_SUBIFD); });
}

TEST_F(TagHazards, SubDirectoriesDoNotNest) {
  const std::vector<Tag> pixel =
      gray() + std::vector<Tag>{
                   {TIFFTAG_IMAGEWIDTH, 1}, {TIFFTAG_IMAGELENGTH, 1}, {TIFFTAG_ROWSPERSTRIP, 1}};
  const Input file = create(pixel + std::vector<Tag>{{TIFFTAG_SUBIFD, 1}});
  call("writeEncodedStrip", file, 0, zeros(vxUINT8, {1, 1}));
  call("writeDirectory", file);
  setFields(file, pixel);
  expectRefused<Tiff::unableToWriteTag>(file, TIFFTAG_SUBIFD, 1, {"SubIFD"});
}

}  // namespace
}  // namespace tb::test

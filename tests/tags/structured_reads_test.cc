// Tags whose value getField shapes: maps, offsets and byte counts, ink names, and the arrays with a
// count. The files are plain libtiff's or built byte by byte.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <numeric>

#include "host/tiff_utilities.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/tag_files.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

std::vector<std::uint16_t> ramp(std::size_t count, std::uint16_t first = 0) {
  std::vector<std::uint16_t> values(count);
  std::iota(values.begin(), values.end(), first);
  return values;
}

class StructuredReads : public testing::Test {
 protected:
  Input open(const Layout& layout, const char* mode = "wl") {
    writeTiff(folder_ / "a.tif", {layout}, mode);
    file_ = std::make_unique<OpenedFile>(folder_ / "a.tif", "r");
    return *file_;
  }
  Input openRaw(const std::vector<RawEntry>& entries) {
    writeRawTiff(folder_ / "raw.tif", entries, std::vector<std::byte>(4096));
    file_ = std::make_unique<OpenedFile>(folder_ / "raw.tif", "r");
    return *file_;
  }
  TemporaryFolder folder_;
  std::unique_ptr<OpenedFile> file_;
};

std::function<void(TIFF*)> storesCurves(std::uint32_t tag, const std::vector<std::uint16_t>& a,
                                        const std::vector<std::uint16_t>& b,
                                        const std::vector<std::uint16_t>& c) {
  return [=](TIFF* tif) { EXPECT_EQ(TIFFSetField(tif, tag, a.data(), b.data(), c.data()), 1); };
}

TEST_F(StructuredReads, ColorMapIsThreeColumnsFromZeroToOne) {
  auto red = ramp(256), green = ramp(256, 1000), blue = ramp(256, 40000);
  red[7] = 65535;
  green[7] = 32768;
  const Input file = open({.photometric = PHOTOMETRIC_PALETTE,
                           .more = storesCurves(TIFFTAG_COLORMAP, red, green, blue)});
  const HostValue map = valueOf(call("getField", file, TIFFTAG_COLORMAP));
  EXPECT_EQ(map.classId, vxDOUBLE);
  EXPECT_EQ(map.dimensions, (Dimensions{256, 3}));
  for (std::size_t entry = 0; entry < 256; ++entry) {
    EXPECT_EQ(map.elements[entry], red[entry] / 65535.0);
    EXPECT_EQ(map.elements[256 + entry], green[entry] / 65535.0);
    EXPECT_EQ(map.elements[512 + entry], blue[entry] / 65535.0);
  }
  EXPECT_EQ(map.elements[7], 1.0);
  EXPECT_EQ(map.elements[256 + 7], 32768 / 65535.0);
}

TEST_F(StructuredReads, ColorMapOf16BitsHas65536Rows) {
  const auto curve = ramp(65536);
  const Input file = open({.bits = 16,
                           .photometric = PHOTOMETRIC_PALETTE,
                           .more = storesCurves(TIFFTAG_COLORMAP, curve, curve, curve)});
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_COLORMAP)).dimensions, (Dimensions{65536, 3}));
}

TEST_F(StructuredReads, SingleTransferFunctionIsARow) {
  const auto curve = ramp(256, 100);
  const Input file = open({.more = storesCurves(TIFFTAG_TRANSFERFUNCTION, curve, {}, {})});
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION)),
            aRow({curve.begin(), curve.end()}));
}

TEST_F(StructuredReads, TransferFunctionOf16BitsHas65536Columns) {
  const auto curve = ramp(65536);
  const Input file =
      open({.bits = 16, .more = storesCurves(TIFFTAG_TRANSFERFUNCTION, curve, {}, {})});
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION)).dimensions,
            (Dimensions{1, 65536}));
}

TEST_F(StructuredReads, ThreeTransferFunctionsAreColumns) {
  const auto a = ramp(256), b = ramp(256, 1000), c = ramp(256, 60000);
  const Input file = open({.samples = 3,
                           .photometric = PHOTOMETRIC_RGB,
                           .more = storesCurves(TIFFTAG_TRANSFERFUNCTION, a, b, c)});
  std::vector<double> columns(a.begin(), a.end());
  columns.insert(columns.end(), b.begin(), b.end());
  columns.insert(columns.end(), c.begin(), c.end());
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION)), aMatrix(256, 3, columns));
}

TEST_F(StructuredReads, CurvesOfExtraSamplesAreZero) {
  // With two extra samples of three libtiff keeps the first curve alone.
  const OpenedFile file(folder_ / "new.tif", "w");
  const std::uint16_t kinds[] = {0, 0};
  const auto curve = ramp(256, 1);
  TIFFSetField(file.handle(), TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(file.handle(), TIFFTAG_SAMPLESPERPIXEL, 3);
  TIFFSetField(file.handle(), TIFFTAG_EXTRASAMPLES, 2, kinds);
  TIFFSetField(file.handle(), TIFFTAG_TRANSFERFUNCTION, curve.data());
  std::vector<double> columns(curve.begin(), curve.end());
  columns.resize(3 * 256);
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_TRANSFERFUNCTION)), aMatrix(256, 3, columns));
}

TEST_F(StructuredReads, TransferFunctionOfTwoOrFourSamplesIsRefused) {
  for (const std::uint16_t samples : {std::uint16_t{2}, std::uint16_t{4}}) {
    const Input file = open({.samples = samples});
    expectError<Tiff::badTransferFunctionSppCombination>(
        {samples}, [&] { call("getField", file, TIFFTAG_TRANSFERFUNCTION); });
  }
}

TEST_F(StructuredReads, MapsOfImpossibleDepthsFailWithoutReading) {
  // libtiff takes no map from a file of more than 24 bits, whatever the file says.
  for (const std::uint32_t bits : {31U, 32U, 64U, 65535U}) {
    auto entries = rawGray(4, 4);
    replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {bits}});
    replaceEntry(entries, {TIFFTAG_TRANSFERFUNCTION, TIFF_SHORT, {1, 2, 3, 4}});
    replaceEntry(entries, {TIFFTAG_COLORMAP, TIFF_SHORT, {1, 2, 3, 4, 5, 6}});
    const Input file = openRaw(entries);
    expectError<Tiff::tagRetrievalFailed>(
        {"TransferFunction"}, [&] { call("getField", file, TIFFTAG_TRANSFERFUNCTION); });
    expectError<Tiff::tagRetrievalFailed>({"ColorMap"},
                                          [&] { call("getField", file, TIFFTAG_COLORMAP); });
  }
}

// Code that shares the handle need not fit the maps to a depth that it stores.
TEST_F(StructuredReads, MapsOfADepthBeyondAllNumbersAreOutOfBounds) {
  const Input file =
      open({.photometric = PHOTOMETRIC_PALETTE,
            .more = storesCurves(TIFFTAG_COLORMAP, ramp(256), ramp(256), ramp(256))});
  for (const int bits : {64, 65535}) {
    TIFFSetField(file_->handle(), TIFFTAG_BITSPERSAMPLE, bits);
    expectError<validate::argumentOutOfBounds>({},
                                               [&] { call("getField", file, TIFFTAG_COLORMAP); });
  }
}

TEST_F(StructuredReads, MapsOfFilesWithoutBitsPerSampleAreIgnored) {
  auto entries = rawGray(4, 4);
  removeEntry(entries, TIFFTAG_BITSPERSAMPLE);
  replaceEntry(entries, {TIFFTAG_COLORMAP, TIFF_SHORT, {1, 2, 3, 4, 5, 6}});
  const Input file = openRaw(entries);
  expectError<Tiff::tagRetrievalFailed>({"ColorMap"},
                                        [&] { call("getField", file, TIFFTAG_COLORMAP); });
}

// --- Offsets and byte counts

std::vector<double> stripOffsets(TIFF* tif) {
  std::vector<double> offsets;
  for (std::uint32_t strip = 0; strip < TIFFNumberOfStrips(tif); ++strip)
    offsets.push_back(static_cast<double>(TIFFGetStrileOffset(tif, strip)));
  return offsets;
}

TEST_F(StructuredReads, StripTagsHaveOneElementForEachStripOfEachPlane) {
  for (const auto planar : {PLANARCONFIG_CONTIG, PLANARCONFIG_SEPARATE}) {
    const Layout layout{.samples = 3,
                        .planar = static_cast<std::uint16_t>(planar),
                        .photometric = PHOTOMETRIC_RGB,
                        .rowsPerStrip = 5};
    const Input file = open(layout);
    const std::size_t strips = planar == PLANARCONFIG_CONTIG ? 4 : 12;
    const HostValue offsets = valueOf(call("getField", file, TIFFTAG_STRIPOFFSETS));
    const HostValue counts = valueOf(call("getField", file, TIFFTAG_STRIPBYTECOUNTS));
    EXPECT_EQ(offsets, aRowOf(vxUINT64, stripOffsets(file_->handle())));
    EXPECT_EQ(offsets.dimensions, (Dimensions{1, strips}));
    EXPECT_EQ(counts.elements.front(), 16 * 5 * (planar == PLANARCONFIG_CONTIG ? 3 : 1));
    EXPECT_EQ(counts.dimensions, (Dimensions{1, strips}));
  }
}

TEST_F(StructuredReads, TileTagsHaveOneElementForEachTile) {
  const Input file = open({.width = 40, .length = 20, .tileWidth = 16, .tileLength = 16});
  const HostValue counts = valueOf(call("getField", file, TIFFTAG_TILEBYTECOUNTS));
  EXPECT_EQ(counts, aRowOf(vxUINT64, {256, 256, 256, 256, 256, 256}));
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_TILEOFFSETS)).elements.size(), 6U);
}

TEST_F(StructuredReads, TagsOfTheOtherLayoutAreRefused) {
  const Input tiled = open({.tileWidth = 16, .tileLength = 16});
  for (const int tag : {TIFFTAG_STRIPOFFSETS, TIFFTAG_STRIPBYTECOUNTS})
    expectError<Tiff::strippedOperationOnTiledImage>({}, [&] { call("getField", tiled, tag); });
  const Input stripped = open({});
  for (const int tag : {TIFFTAG_TILEOFFSETS, TIFFTAG_TILEBYTECOUNTS})
    expectError<Tiff::tiledOperationOnStrippedImage>({}, [&] { call("getField", stripped, tag); });
}

TEST_F(StructuredReads, StripsThatLibtiffDoesNotHoldAreZero) {
  writeTiff(folder_ / "a.tif", {{.rowsPerStrip = 4}});
  const OpenedFile file(folder_ / "a.tif", "r+");
  // Sixteen strips now, while four are in the file.
  call("setField", file, TIFFTAG_ROWSPERSTRIP, 1);
  const HostValue offsets = valueOf(call("getField", file, TIFFTAG_STRIPOFFSETS));
  EXPECT_EQ(offsets.dimensions, (Dimensions{1, 16}));
  EXPECT_NE(offsets.elements[3], 0);
  EXPECT_EQ(std::accumulate(offsets.elements.begin() + 4, offsets.elements.end(), 0.0), 0);
}

// --- Ink names

TEST_F(StructuredReads, InkNamesAreACellOfRows) {
  const Layout layout = {.samples = 4,
                         .photometric = PHOTOMETRIC_SEPARATED,
                         .more = stores(TIFFTAG_INKNAMES, 26, "Cyan\0Magenta\0Yellow\0Black\0")};
  const Input file = open(layout);
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_INKNAMES)),
            aCell({aText("Cyan"), aText("Magenta"), aText("Yellow"), aText("Black")}));
}

TEST_F(StructuredReads, NumberOfInksFollowsTheNames) {
  // The file says 2, but libtiff believes the names.
  auto entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_SEPARATED}});
  replaceEntry(entries, {TIFFTAG_INKNAMES, TIFF_ASCII, {'a', 0, 'b', 0, 'c', 0}});
  replaceEntry(entries, {TIFFTAG_NUMBEROFINKS, TIFF_SHORT, {2}});
  const Input file = openRaw(entries);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_NUMBEROFINKS), 3);
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_INKNAMES)),
            aCell({aText("a"), aText("b"), aText("c")}));
}

// --- Arrays with a count

TEST_F(StructuredReads, XmlPacketOfAThousandBytesIsARowOfThem) {
  std::vector<std::uint8_t> packet(1000);
  std::iota(packet.begin(), packet.end(), std::uint8_t{0});
  const Input file = open({.more = stores(TIFFTAG_XMLPACKET, 1000U, packet.data())});
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_XMLPACKET)),
            aRowOf(vxCHAR, {packet.begin(), packet.end()}));
}

TEST_F(StructuredReads, IptcStoredAsLongsIsReadAsTheirBytes) {
  // libtiff has them as numbers, so that the bytes of each are in the order of the machine.
  const std::array<std::uint32_t, 2> longs{0x04030201, 0x08070605};
  const auto bytes = std::bit_cast<std::array<std::uint8_t, 8>>(longs);
  auto entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_RICHTIFFIPTC, TIFF_LONG, {longs.begin(), longs.end()}});
  const Input file = openRaw(entries);
  EXPECT_EQ(valueOf(call("getField", file, TIFFTAG_RICHTIFFIPTC)),
            aRowOf(vxUINT8, {bytes.begin(), bytes.end()}));
}

struct Sized {
  const char* name;
  std::uint32_t tag;
  std::size_t count;
  std::vector<Message> warnings;
};

class CountedDoubles : public testing::TestWithParam<Sized> {};

TEST_P(CountedDoubles, WarnAboutAnOddCountAndReturnAll) {
  const auto& [name, tag, count, expected] = GetParam();
  const TemporaryFolder folder;
  std::vector<double> values(count);
  std::iota(values.begin(), values.end(), 0.5);
  writeTiff(folder / "a.tif", {{.more = stores(tag, static_cast<int>(count), values.data())}});
  const OpenedFile file(folder / "a.tif", "r");
  EXPECT_EQ(valueOf(call("getField", file, tag)), aRow(values));
  EXPECT_EQ(warnings(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Counts, CountedDoubles,
    testing::ValuesIn(std::vector<Sized>{
        Sized{"PixelScaleOf3", tiffutils::kModelPixelScaleTag, 3, {}},
        Sized{"PixelScaleOf4",
              tiffutils::kModelPixelScaleTag,
              4,
              {warningOf(Warning::wrongSizedTagRetrieval, {3, "ModelPixelScaleTag", 4})}},
        Sized{"TransformationOf16", tiffutils::kModelTransformationTag, 16, {}},
        Sized{"TransformationOf15",
              tiffutils::kModelTransformationTag,
              15,
              {warningOf(Warning::wrongSizedTagRetrieval, {16, "ModelTransformationTag", 15})}},
        Sized{"RpcOf92", tiffutils::kRpcCoefficientTag, 92, {}},
        Sized{"RpcOf90",
              tiffutils::kRpcCoefficientTag,
              90,
              {warningOf(Warning::badMultipleTagValueRetrieved, {90, "RPCCoefficientTag", 92})}},
        Sized{"GeoDoublesOf7", tiffutils::kGeoDoubleParamsTag, 7, {}}}),
    [](const auto& test) { return test.param.name; });

TEST_F(StructuredReads, TiepointsThatAreNoMultipleOfSixAreRefused) {
  const double values[10] = {};
  const Input file = open({.more = stores(tiffutils::kModelTiepointTag, 10, +values)});
  expectError<Tiff::badMultipleTagValueRetrieved>(
      {10, "ModelTiepointTag", 6}, [&] { call("getField", file, tiffutils::kModelTiepointTag); });
}

TEST_F(StructuredReads, TagsWithoutValuesAreEmptyMatricesAndRows) {
  auto entries = rawGray(4, 4);
  // libtiff keeps an entry for each but takes it for set only when there is another such tag.
  replaceEntry(entries, {TIFFTAG_MAKE, TIFF_ASCII, {'m', 0}});
  replaceEntry(entries, {TIFFTAG_XMLPACKET, TIFF_BYTE, {}});
  replaceEntry(entries, {tiffutils::kModelPixelScaleTag, TIFF_DOUBLE, {}});
  replaceEntry(entries, {tiffutils::kModelTiepointTag, TIFF_DOUBLE, {}});
  replaceEntry(entries, {TIFFTAG_ICCPROFILE, TIFF_UNDEFINED, {}});
  replaceEntry(entries, {tiffutils::kGeoKeyDirectoryTag, TIFF_SHORT, {}});
  const Input file = openRaw(entries);
  EXPECT_EQ(answerFor(file, tiffutils::kModelTiepointTag), (Answer{aMatrix(0, 6, {}), {}}));
  EXPECT_EQ(answerFor(file, tiffutils::kGeoKeyDirectoryTag), (Answer{aMatrix(0, 4, {}), {}}));
  EXPECT_EQ(answerFor(file, tiffutils::kModelPixelScaleTag), (Answer{aRow({}), {}}));
  EXPECT_EQ(answerFor(file, TIFFTAG_ICCPROFILE), (Answer{aRowOf(vxUINT8, {}), {}}));
  EXPECT_EQ(answerFor(file, TIFFTAG_XMLPACKET), (Answer{aRowOf(vxCHAR, {}), {}}));
}

TEST_F(StructuredReads, FloatTagsOfAnotherLengthAreAbsent) {
  // libtiff drops them with a warning, so that the length of a row is always the tag's.
  const auto bits = [](float value) { return std::bit_cast<std::uint32_t>(value); };
  auto entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_WHITEPOINT, TIFF_FLOAT, {bits(0.25F), bits(0.5F), bits(9), 0}});
  const Input file = openRaw(entries);
  expectError<Tiff::tagRetrievalFailed>({"WhitePoint"},
                                        [&] { call("getField", file, TIFFTAG_WHITEPOINT); });
}

}  // namespace
}  // namespace tb::test

#include "core/image_metadata.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <boost/numeric/conversion/cast.hpp>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "core/arguments.h"
#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

// --- determineClassId

using Shorts = std::vector<std::uint16_t>;

struct SampleLayout {
  std::uint16_t bits, format;
  vxClassID expected;
};

TEST(DetermineClassId, MapsSampleLayoutsToHostClasses) {
  const SampleLayout rows[] = {
      {1, 1, vxLOGICAL}, {1, 2, vxLOGICAL},  {1, 3, vxLOGICAL}, {1, 4, vxLOGICAL},
      {1, 0, vxLOGICAL}, {1, 99, vxLOGICAL}, {8, 1, vxUINT8},   {8, 2, vxINT8},
      {8, 4, vxUINT8},   {16, 1, vxUINT16},  {16, 2, vxINT16},  {16, 4, vxUINT16},
      {32, 1, vxUINT32}, {32, 2, vxINT32},   {32, 3, vxSINGLE}, {32, 4, vxUINT32},
      {64, 3, vxDOUBLE},
  };
  for (const auto& [bits, format, expected] : rows)
    EXPECT_EQ(determineClassId({.bitsPerSample = bits, .sampleFormat = format}), expected)
        << bits << " bits, format " << format;
}

template <class Id>
void expectClassError(std::uint16_t bits, std::uint16_t format, const Arguments& arguments) {
  SCOPED_TRACE(testing::Message() << bits << " bits, format " << format);
  clearRecord();
  expectError<Id>(arguments,
                  [&] { determineClassId({.bitsPerSample = bits, .sampleFormat = format}); });
}

TEST(DetermineClassId, ComplexSamplesAreRefusedWhateverTheirSize) {
  for (const auto bits : Shorts{1, 8, 32, 64, 128, 12})
    for (const auto format : Shorts{5, 6})
      expectClassError<Tiff::complexSampleFormat>(bits, format, {});
}

TEST(DetermineClassId, EightAndSixteenBitsAreIntegersOnly) {
  for (const auto bits : Shorts{8, 16})
    for (const auto format : Shorts{0, 3, 7, 65535})
      expectClassError<Tiff::badSampleFormatBitsPerSampleCombination>(bits, format, {format, bits});
}

TEST(DetermineClassId, UnknownFormatOf32BitsIsNamed) {
  for (const auto format : Shorts{0, 7, 65535})
    expectClassError<Tiff::unknownSampleFormat>(32, format, {format});
}

TEST(DetermineClassId, SixtyFourBitsAreFloatingPointOnly) {
  for (const auto format : Shorts{0, 1, 2, 4, 7})
    expectClassError<Tiff::sampleFormatMustBeIeeeFpFor64Bits>(64, format, {});
}

TEST(DetermineClassId, OtherWidthsAreNamed) {
  for (const auto bits : Shorts{0, 2, 4, 7, 12, 24, 33, 128, 65535})
    for (const auto format : Shorts{1, 3, 9})
      expectClassError<Tiff::unhandledBitsPerSample>(bits, format, {bits});
}

// --- The record

class ImageMetadata : public testing::Test {
 protected:
  TiffImageMetaData_ recordOf(const Layout& layout, const char* mode = "w") {
    writeTiff(folder_ / "file.tif", {layout}, mode);
    return recordOfFile("file.tif");
  }
  TiffImageMetaData_ recordOf(const std::vector<RawEntry>& entries) {
    writeRawTiff(folder_ / "file.tif", entries, std::vector<std::byte>(4096));
    return recordOfFile("file.tif");
  }
  TiffImageMetaData_ recordOfFile(const char* name) {
    tif_ = openTiff(folder_ / name, "r");
    TiffImageMetaData_ record;
    retrieveImageMetadata(tif_.get(), &record);
    return record;
  }

  TemporaryFolder folder_;
  TiffHandle tif_;
};

TEST_F(ImageMetadata, StrippedImageHasNoTileSizeAndBlocksOfStripSize) {
  const auto record =
      recordOf(Layout{.width = 20, .length = 100, .bits = 16, .format = 2, .rowsPerStrip = 30});
  EXPECT_EQ(record.tif, tif_.get());
  EXPECT_FALSE(record.isTiled);
  EXPECT_EQ(record.imageWidth, 20U);
  EXPECT_EQ(record.imageLength, 100U);
  EXPECT_EQ(record.rowsPerStrip, 30U);
  EXPECT_EQ(record.blockLength, 30U);
  EXPECT_EQ(record.blockWidth, 20U);
  EXPECT_EQ(record.tileWidth, 0U);
  EXPECT_EQ(record.tileLength, 0U);
  EXPECT_EQ(record.bitsPerSample, 16);
  EXPECT_EQ(record.sampleFormat, 2);
  EXPECT_EQ(record.photometric, PHOTOMETRIC_MINISBLACK);
  EXPECT_EQ(record.compression, COMPRESSION_NONE);
  EXPECT_EQ(record.imageDepth, 1U);
  EXPECT_EQ(record.mode, O_RDONLY);
}

TEST_F(ImageMetadata, TiledImageHasNoRowsPerStripAndBlocksOfTileSize) {
  const auto record =
      recordOf(Layout{.width = 20, .length = 100, .tileWidth = 32, .tileLength = 48});
  EXPECT_TRUE(record.isTiled);
  EXPECT_EQ(record.rowsPerStrip, 0U);
  EXPECT_EQ(record.tileWidth, 32U);
  EXPECT_EQ(record.tileLength, 48U);
  EXPECT_EQ(record.blockWidth, 32U);
  EXPECT_EQ(record.blockLength, 48U);
}

TEST_F(ImageMetadata, AbsentRowsPerStripMeansOneStrip) {
  std::vector<RawEntry> entries = rawGray(20, 100);
  removeEntry(entries, TIFFTAG_ROWSPERSTRIP);
  const auto record = recordOf(entries);
  EXPECT_EQ(record.rowsPerStrip, 100U);
  EXPECT_EQ(record.blockLength, 100U);
}

TEST_F(ImageMetadata, RowsPerStripIsLimitedToTheLength) {
  std::vector<RawEntry> entries = rawGray(20, 100);
  replaceEntry(entries, {TIFFTAG_ROWSPERSTRIP, TIFF_LONG, {5000}});
  const auto record = recordOf(entries);
  EXPECT_EQ(record.rowsPerStrip, 100U);
  EXPECT_EQ(record.blockLength, 100U);
}

TEST_F(ImageMetadata, SeparatePlanesHaveOneSampleABlock) {
  Layout layout{.samples = 3, .photometric = PHOTOMETRIC_RGB};
  EXPECT_EQ(recordOf(layout).samplesPerBlock, 3);
  layout.planar = PLANARCONFIG_SEPARATE;
  const auto record = recordOf(layout);
  EXPECT_EQ(record.samplesPerBlock, 1);
  EXPECT_EQ(record.samplesPerPixel, 3);
  EXPECT_EQ(record.planarConfig, 2);
}

TEST_F(ImageMetadata, ExtraSamplesAreCounted) {
  const std::uint16_t extras[] = {EXTRASAMPLE_ASSOCALPHA, EXTRASAMPLE_UNSPECIFIED};
  const auto record =
      recordOf(Layout{.samples = 5, .photometric = PHOTOMETRIC_RGB, .more = [&](TIFF* tif) {
                        TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 2, extras);
                      }});
  EXPECT_EQ(record.extraSamplesCount, 2);
  EXPECT_EQ(recordOf(Layout{.samples = 3, .photometric = PHOTOMETRIC_RGB}).extraSamplesCount, 0);
}

TEST_F(ImageMetadata, YCbCrWithoutSubsamplingHasTwoByTwo) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_YCBCR}});
  replaceEntry(entries, {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, {3}});
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {8, 8, 8}});
  const auto record = recordOf(entries);
  EXPECT_EQ(record.ycbcrSubsampling[0], 2);
  EXPECT_EQ(record.ycbcrSubsampling[1], 2);
  EXPECT_EQ(record.jpegColorMode, 0);
}

TEST_F(ImageMetadata, YCbCrSubsamplingIsHorizontalThenVertical) {
  const auto record = recordOf(
      Layout{.samples = 3, .photometric = PHOTOMETRIC_YCBCR, .horizontal = 4, .vertical = 1});
  EXPECT_EQ(record.ycbcrSubsampling[0], 4);
  EXPECT_EQ(record.ycbcrSubsampling[1], 1);
}

TEST_F(ImageMetadata, JpegColorModeIsThatOfTheCodecForYCbCrOnly) {
  const auto jpegMode = [](int mode) {
    return [mode](TIFF* tif) { TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, mode); };
  };
  Layout layout{.samples = 3,
                .photometric = PHOTOMETRIC_YCBCR,
                .compression = COMPRESSION_JPEG,
                .more = jpegMode(JPEGCOLORMODE_RAW)};
  recordOf(layout);
  TIFFSetField(tif_.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  TiffImageMetaData_ record;
  retrieveImageMetadata(tif_.get(), &record);
  EXPECT_EQ(record.jpegColorMode, JPEGCOLORMODE_RGB);

  layout.photometric = PHOTOMETRIC_RGB;
  recordOf(layout);
  TIFFSetField(tif_.get(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  retrieveImageMetadata(tif_.get(), &record);
  EXPECT_EQ(record.jpegColorMode, 0) << "the record was used before and must be filled afresh";
}

TEST_F(ImageMetadata, LogDataFormatIsSignedAndMinusOneUntilChosen) {
  TiffHandle tif = openTiff(folder_ / "new.tif", "w");
  for (const auto& [tag, value] :
       std::vector<std::pair<std::uint32_t, int>>{{TIFFTAG_IMAGEWIDTH, 4},
                                                  {TIFFTAG_IMAGELENGTH, 4},
                                                  {TIFFTAG_COMPRESSION, COMPRESSION_SGILOG},
                                                  {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGLUV}})
    TIFFSetField(tif.get(), tag, value);
  TiffImageMetaData_ record;
  retrieveImageMetadata(tif.get(), &record);
  EXPECT_EQ(record.sgiLogDataFmt, -1);
  TIFFSetField(tif.get(), TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_8BIT);
  retrieveImageMetadata(tif.get(), &record);
  EXPECT_EQ(record.sgiLogDataFmt, SGILOGDATAFMT_8BIT);
}

// --- Missing tags, through an operation that fills the record

class MissingTags : public testing::Test {
 protected:
  void expectMissing(const char* tagName) const {
    SCOPED_TRACE(tagName);
    expectError<Tiff::tagRetrievalFailed>({tagName}, [&] { call("retrieveMetadata", file_); });
  }
  void set(std::uint32_t tag, int value) const { TIFFSetField(file_.handle(), tag, value); }

  TemporaryFolder folder_;
  OpenedFile file_{folder_ / "new.tif", "w"};
};

TEST_F(MissingTags, AreNamedInOrder) {
  expectMissing("ImageLength");
  set(TIFFTAG_IMAGELENGTH, 10);
  expectMissing("PhotometricInterpretation");  // length and width count as set together
  set(TIFFTAG_IMAGEWIDTH, 10);
  expectMissing("PhotometricInterpretation");
  set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  EXPECT_NO_THROW(call("retrieveMetadata", file_));
}

TEST_F(MissingTags, LogLuvWithoutItsCodecHasNoDataFormat) {
  set(TIFFTAG_IMAGELENGTH, 10);
  set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGLUV);
  expectMissing("SgiLogDataFmt");
  set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGL);
  expectMissing("SgiLogDataFmt");
}

// --- Argument unpackers

struct NumberCase {
  double value;
  std::uint32_t expected;
};

TEST(Unpackers, TruncateTowardZeroAndTakeNanAsZero) {
  const NumberCase rows[] = {{0, 0},
                             {-0.5, 0},
                             {-0.9999, 0},
                             {3.9, 3},
                             {-0.0, 0},
                             {4294967295.9, 4294967295U},
                             {std::nan(""), 0},
                             {-std::nan(""), 0},
                             {std::numeric_limits<double>::denorm_min(), 0}};
  for (const auto& [value, expected] : rows) {
    const vxArrayPtr argument = row({value});
    EXPECT_EQ(unpackRow(argument.get()), expected) << value;
    EXPECT_EQ(unpack_tstrip_t(argument.get()), expected) << value;
    EXPECT_EQ(unpack_ttile_t(argument.get()), expected) << value;
  }
}

TEST(Unpackers, RefuseWhatDoesNotFit) {
  using boost::numeric::bad_numeric_cast;
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double value : {-1.0, -2.5, 4294967296.0, 1e300, infinity, -infinity}) {
    const vxArrayPtr argument = row({value});
    EXPECT_THROW(unpackRow(argument.get()), bad_numeric_cast) << value;
    EXPECT_THROW(unpack_tstrip_t(argument.get()), bad_numeric_cast) << value;
    EXPECT_THROW(unpack_ttile_t(argument.get()), bad_numeric_cast) << value;
  }
}

TEST(Unpackers, ReadOnlyTheFirstElementAndZeroWhereThereIsNone) {
  EXPECT_EQ(unpackRow(row({7, 9}).get()), 7U);
  EXPECT_EQ(unpackRow(row({}).get()), 0U);
  EXPECT_EQ(unpackRow(structure().get()), 0U);
  EXPECT_EQ(unpackRow(scalar<std::uint8_t>(200).get()), 200U);
}

TEST(Unpackers, PixelIsTheSecondElementThenTheFirst) {
  std::uint32_t x = 0, y = 0;
  unpackPixelXY(row({7, 9}).get(), x, y);
  EXPECT_EQ(x, 9U);
  EXPECT_EQ(y, 7U);
  unpackPixelXY(row({7}).get(), x, y);
  EXPECT_EQ(x, 0U);
  EXPECT_EQ(y, 7U);
}

TEST(Unpackers, PixelConvertsTheSecondElementFirst) {
  std::uint32_t x = 1, y = 1;
  EXPECT_THROW(unpackPixelXY(row({5, -1}).get(), x, y), boost::numeric::negative_overflow);
  EXPECT_EQ(y, 1U) << "the first element was converted before the second";
  EXPECT_THROW(unpackPixelXY(row({1e10, -1}).get(), x, y), boost::numeric::negative_overflow);
}

constexpr std::uint16_t kContiguous = 1, kSeparate = 2;

TiffImageMetaData_ threeSamples(std::uint16_t planar) {
  return {.samplesPerPixel = 3, .planarConfig = planar};
}

TEST(Unpackers, SampleIsLimitedToTheNumberOfSamplesItself) {
  const NumberCase rows[] = {{0, 0},     {2.9, 2},  {3, 3},           {7, 3},
                             {65535, 3}, {-0.5, 0}, {std::nan(""), 0}};
  for (const auto& [value, expected] : rows)
    EXPECT_EQ(unpack_tsample_t(3, row({value}).get(), threeSamples(kSeparate)), expected) << value;
}

TEST(Unpackers, SampleOf65536IsOutOfRange) {
  EXPECT_THROW(unpack_tsample_t(3, row({65536}).get(), threeSamples(kSeparate)),
               boost::numeric::positive_overflow);
  EXPECT_THROW(unpack_tsample_t(3, row({-1}).get(), threeSamples(kSeparate)),
               boost::numeric::negative_overflow);
}

TEST(Unpackers, SampleIsRequiredForPlanesAndRefusedOtherwise) {
  EXPECT_EQ(unpack_tsample_t(2, nullptr, threeSamples(kContiguous)), 0);
  clearRecord();
  expectError<Tiff::sampleParameterRequired>(
      {}, [] { unpack_tsample_t(2, nullptr, threeSamples(kSeparate)); });
  clearRecord();
  expectError<Tiff::sampleParameterNotAllowedInChunkyCase>(
      {}, [] { unpack_tsample_t(3, row({70000}).get(), threeSamples(kContiguous)); });
}

}  // namespace
}  // namespace tb::test

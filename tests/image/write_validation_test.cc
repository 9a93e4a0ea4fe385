// The checks of images against the directory, before anything is written, on records.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include "image/write_checks.h"
#include "tests/support/image_records.h"

namespace tb::test {
namespace {

constexpr vxClassID kAllClasses[] = {vxCELL,   vxLOGICAL, vxCHAR,  vxDOUBLE, vxSINGLE,
                                     vxINT8,   vxUINT8,   vxINT16, vxUINT16, vxINT32,
                                     vxUINT32, vxINT64,   vxUINT64};

// --- validateInputImage: the class

struct BitsRow {
  std::uint16_t bits;
  std::set<vxClassID> accepted;
  std::string error;
};
const BitsRow kBits[] = {{1, {vxLOGICAL}, "imageDatatypeNotLogical"},
                         {8, {vxINT8, vxUINT8}, "imageDatatypeNot8bit"},
                         {16, {vxINT16, vxUINT16}, "imageDatatypeNot16bit"},
                         {32, {vxINT32, vxUINT32, vxSINGLE}, "imageDatatypeNot32bit"},
                         {64, {vxDOUBLE}, "imageDatatypeNotDouble"}};

struct FormatRow {
  std::uint16_t format;
  std::set<vxClassID> accepted;
  Arguments arguments;  // of badDatatypeForSampleFormat; none for badSampleFormat
};
const FormatRow kFormats[] = {
    {SAMPLEFORMAT_UINT,
     {vxLOGICAL, vxUINT8, vxUINT16, vxUINT32},
     {"Uint", "logical, uint8, uint16, uint32"}},
    {SAMPLEFORMAT_INT, {vxINT8, vxINT16, vxINT32}, {"Int", "int8, int16, int32"}},
    {SAMPLEFORMAT_IEEEFP, {vxSINGLE, vxDOUBLE}, {"IEEEFP", "single, double"}},
    {SAMPLEFORMAT_VOID, {}, {}},
    {SAMPLEFORMAT_COMPLEXINT, {}, {}},
    {SAMPLEFORMAT_COMPLEXIEEEFP, {}, {}},
};

// What the two tables say of a class, one after the other; no identifier when it passes.
Message expectedFor(const BitsRow& bits, const FormatRow& format, const vxArrayPtr& image) {
  const std::string group = "KORVAL:pictoria:Tiff:";
  const vxClassID classId = vxGetClassID(image.get());
  if (!bits.accepted.contains(classId))
    return {group + bits.error, {std::string(vxGetClassName(image.get()))}};
  if (format.arguments.empty()) return {group + "badSampleFormat", {}};
  if (!format.accepted.contains(classId))
    return {group + "badDatatypeForSampleFormat", format.arguments};
  return {};
}

Message resultOf(const std::function<void()>& check) {
  clearRecord();
  try {
    check();
  } catch (const foundation::core::except::IMsgIDException& error) {
    return {error.message().identifier(), error.message().arguments()};
  }
  return {};
}

TEST(ValidateInputImage, ClassMustFitTheBitsAndThenTheSampleFormat) {
  for (const BitsRow& bits : kBits)
    for (const FormatRow& format : kFormats)
      for (const vxClassID classId : kAllClasses) {
        TiffImageMetaData_ image = grayRecord();
        image.bitsPerSample = bits.bits;
        image.sampleFormat = format.format;
        const vxArrayPtr array = zeros(classId, {16, 16});
        EXPECT_EQ(resultOf([&] { validateInputImage(array.get(), image); }),
                  expectedFor(bits, format, array))
            << bits.bits << " bits, format " << format.format << ", "
            << vxGetClassName(array.get());
      }
}

TEST(ValidateInputImage, GivesTheClassOfTheImage) {
  EXPECT_EQ(validateInputImage(zeros(vxUINT8, {16, 16}).get(), grayRecord()), vxUINT8);
}

TEST(ValidateInputImage, OtherBitsFitNoClass) {
  for (const auto bits : std::vector<std::uint16_t>{0, 2, 4, 12, 24, 128, 65535}) {
    TiffImageMetaData_ image = grayRecord();
    image.bitsPerSample = bits;
    expectRefusal<Tiff::unsupportedBitsPerSample>({bits}, [&] {
      validateInputImage(zeros(vxUINT8, {16, 16}).get(), image);
    });
  }
}

// --- validateInputImage: the shape

struct Shape {
  std::uint16_t planar, samples;
  std::uint16_t photometric;
  Dimensions dimensions;
  std::string error;
};

TEST(ValidateInputImage, ShapeMustFitThePlanarConfiguration) {
  const Shape shapes[] = {
      {1, 1, 1, {16, 16}, ""},
      {1, 1, 1, {16, 16, 2}, "badContigImageOneSpp"},
      {1, 1, 1, {16, 16, 1, 2}, "badContigImageOneSpp"},
      {1, 3, 2, {16, 16, 3}, ""},
      {1, 3, 2, {16, 16}, "badContigImageMultipleSpp"},
      {1, 3, 2, {16, 16, 3, 2}, "badContigImageMultipleSpp"},
      {1, 3, 2, {16, 16, 2}, "badContigImageMultipleSpp"},
      {1, 3, 2, {16, 16, 0}, "badContigImageMultipleSpp"},
      {1, 3, 2, {16, 16, 4}, ""},
      {2, 3, 2, {16, 16}, ""},
      {2, 3, 2, {16, 16, 3}, "badPlanarImage"},
      {1, 3, 6, {16, 16}, ""},
  };
  for (const auto& [planar, samples, photometric, dimensions, error] : shapes) {
    TiffImageMetaData_ image = record(photometric, samples);
    image.planarConfig = planar;
    if (planar == PLANARCONFIG_SEPARATE) image.samplesPerBlock = 1;
    const vxArrayPtr array = zeros(vxUINT8, dimensions);
    const Message expected =
        error.empty() ? Message{} : Message{"KORVAL:pictoria:Tiff:" + error, {}};
    EXPECT_EQ(resultOf([&] { validateInputImage(array.get(), image); }), expected)
        << testing::PrintToString(dimensions) << " with planar " << planar;
  }
}

TEST(ValidateInputImage, ClassAgainstBitsThenShapeThenClassAgainstFormat) {
  TiffImageMetaData_ image = grayRecord();
  image.sampleFormat = SAMPLEFORMAT_INT;
  const auto check = [&image](const vxArrayPtr& array) {
    return [&] { validateInputImage(array.get(), image); };
  };
  expectRefusal<Tiff::imageDatatypeNot8bit>({"double"}, check(zeros(vxDOUBLE, {16, 16, 2})));
  expectRefusal<Tiff::badContigImageOneSpp>({}, check(zeros(vxUINT8, {16, 16, 2})));
  expectRefusal<Tiff::badDatatypeForSampleFormat>({"Int", "int8, int16, int32"},
                                                  check(zeros(vxUINT8, {16, 16})));
}

// --- validateExtraSamples

struct ExtraRow {
  std::uint16_t photometric, samples, extra;
  Message outcome;  // an error, a warning or nothing
};

const Message kPasses;
const Message kWarns{"KORVAL:pictoria:Tiff:missingExtraSamples", {}};
Message badExtra(const char* name, std::int64_t samples) {
  return {"KORVAL:pictoria:Tiff:badExtraSamples", {name, samples}};
}
Message improper(std::int64_t extra) {
  return {"KORVAL:pictoria:Tiff:improperUsageOfExtraSamples", {extra}};
}

std::vector<ExtraRow> extraRows() {
  std::vector<ExtraRow> rows = {
      {0, 1, 0, kPasses},
      {0, 2, 1, kPasses},
      {0, 2, 0, kWarns},
      {1, 1, 0, kPasses},
      {1, 4, 3, kPasses},
      {1, 2, 0, kWarns},
      {1, 1, 1, kWarns},
      {1, 1, 2, kWarns},
      {2, 3, 0, kPasses},
      {2, 4, 1, kPasses},
      {2, 4, 0, badExtra("RGB", 4)},
      {2, 3, 1, badExtra("RGB", 3)},
      {3, 1, 0, kPasses},
      {3, 2, 1, kPasses},
      {3, 2, 0, badExtra("PALETTE", 2)},
      {5, 4, 0, kPasses},
      {5, 5, 1, kPasses},
      {5, 3, 0, kWarns},
      {5, 5, 0, kWarns},
      {7, 9, 3, kPasses},
      {7, 9, 0, kPasses},
      {999, 9, 3, kPasses},
      {999, 1, 0, kPasses},
  };
  for (const auto photometric : std::vector<std::uint16_t>{4, 6, 8, 9, 10, 32844, 32845}) {
    rows.push_back({photometric, 4, 0, kPasses});
    rows.push_back({photometric, 4, 1, improper(1)});
    rows.push_back({photometric, 1, 7, improper(7)});
  }
  return rows;
}

TEST(ValidateExtraSamples, ColourSamplesMustBeThoseOfThePhotometricInterpretation) {
  for (const auto& [photometric, samples, extra, outcome] : extraRows()) {
    SCOPED_TRACE(testing::Message() << photometric << ", " << samples << " - " << extra);
    TiffImageMetaData_ image = record(photometric, samples);
    image.extraSamplesCount = extra;
    const bool warns = outcome == kWarns;
    EXPECT_EQ(resultOf([&] { validateExtraSamples(image); }), warns ? kPasses : outcome);
    EXPECT_EQ(warnings(), warns ? std::vector<Message>{kWarns} : std::vector<Message>{});
  }
}

// --- validateCompression

TEST(ValidateCompression, SchemesOtherThanJpegPass) {
  for (const auto compression : std::vector<std::uint16_t>{1, 3, 4, 5, 8, 32773, 32946, 34676}) {
    TiffImageMetaData_ image = record(PHOTOMETRIC_MINISBLACK, 7);
    image.compression = compression;
    image.bitsPerSample = 64;
    image.rowsPerStrip = 5;
    EXPECT_NO_THROW(validateCompression(image));
  }
}

TEST(ValidateCompression, JpegIsCheckedByBitsThenSamplesThenBlockSize) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_MINISBLACK, 4);
  image.compression = COMPRESSION_JPEG;
  image.bitsPerSample = 16;
  image.rowsPerStrip = 20;
  const auto act = [&image] { validateCompression(image); };
  expectRefusal<Tiff::jpegBitsPerSampleMustBeEight>({}, act);
  image.bitsPerSample = 8;
  for (const auto samples : std::vector<std::uint16_t>{0, 2, 4}) {
    image.samplesPerPixel = samples;
    expectRefusal<Tiff::jpegCompressionRequiresThreeSamplesPerPixel>({}, act);
  }
  image.samplesPerPixel = 3;
  expectRefusal<Tiff::strippedJpegInvalidRowsPerStrip>({}, act);
  image.samplesPerPixel = 1;
  image.rowsPerStrip = 24;
  EXPECT_NO_THROW(act());
}

struct StripUnit {
  std::uint16_t photometric, vertical;
  std::uint32_t rows;
  bool fits;
};

TEST(ValidateCompression, JpegStripsAreMultiplesOfEightRowsTimesTheVerticalFactor) {
  const StripUnit cases[] = {{1, 2, 16, true}, {1, 2, 8, true},      {1, 2, 20, false},
                             {1, 2, 0, true},  {6, 1, 8, true},      {6, 2, 8, false},
                             {6, 2, 16, true}, {6, 4, 16, false},    {6, 4, 32, true},
                             {6, 0, 5, true},  {6, 65535, 16, false}};
  for (const auto& [photometric, vertical, rows, fits] : cases) {
    SCOPED_TRACE(testing::Message() << photometric << ' ' << vertical << ' ' << rows);
    TiffImageMetaData_ image = record(photometric, 3);
    image.compression = COMPRESSION_JPEG;
    image.ycbcrSubsampling[1] = vertical;
    image.rowsPerStrip = rows;
    const auto act = [&record = image] { validateCompression(record); };
    if (fits)
      EXPECT_NO_THROW(act());
    else
      expectRefusal<Tiff::strippedJpegInvalidRowsPerStrip>({}, act);
  }
}

TEST(ValidateCompression, JpegTilesAreMultiplesOfSixteenBothWays) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_RGB, 3);
  image.compression = COMPRESSION_JPEG;
  image.isTiled = true;
  for (const auto& [width, length] : {std::pair{24U, 16U}, std::pair{16U, 24U}}) {
    image.tileWidth = width;
    image.tileLength = length;
    expectRefusal<Tiff::tiledJpegCompressionRequires16>({}, [&] { validateCompression(image); });
  }
  image.tileWidth = image.tileLength = 32;
  image.rowsPerStrip = 5;
  EXPECT_NO_THROW(validateCompression(image)) << "the strip rule is not for tiles";
}

// --- The order of all checks

// A fault in the configuration: the error that it causes while it is the first one left, and its
// cure.
struct Fault {
  std::string error;
  std::function<void()> cure;
};

TEST(ValidateWriteConfiguration, ChecksRunInTheirOrder) {
  const vxArrayPtr wrongClass = zeros(vxCHAR, {16, 16}), wrongShape = zeros(vxINT8, {16, 16}),
                   wrongFormat = zeros(vxINT8, {16, 16, 4}), right = zeros(vxUINT8, {16, 16, 4});
  std::vector<const vxArray*> images(3, wrongClass.get());
  TiffImageMetaData_ image = record(PHOTOMETRIC_RGB, 2);
  image.imageWidth = 0;
  image.isTiled = true;
  image.compression = COMPRESSION_JPEG;
  image.extraSamplesCount = 0;

  const std::vector<Fault> faults = {
      {"imageDimensionsNotSet", [&] { image.imageWidth = 16; }},
      {"tileDimensionsNotSet", [&] { image.tileWidth = image.tileLength = 24; }},
      {"wrongNumberOfInputImages", [&] { images.resize(1); }},
      {"badRgbSamplesPerPixelConfiguration",
       [&] { image.samplesPerPixel = image.samplesPerBlock = 4; }},
      {"imageDatatypeNot8bit", [&] { images[0] = wrongShape.get(); }},
      {"badContigImageMultipleSpp", [&] { images[0] = wrongFormat.get(); }},
      {"badDatatypeForSampleFormat", [&] { images[0] = right.get(); }},
      {"badExtraSamples", [&] { image.extraSamplesCount = 1; }},
      {"jpegCompressionRequiresThreeSamplesPerPixel",
       [&] {
         image.photometric = 999;  // no rule for its samples
         image.samplesPerPixel = 3;
       }},
      {"tiledJpegCompressionRequires16", [&] { image.tileWidth = image.tileLength = 32; }},
  };
  for (const Fault& fault : faults) {
    EXPECT_EQ(resultOf([&] { validateWriteConfiguration(image, images); }).identifier,
              "KORVAL:pictoria:Tiff:" + fault.error);
    fault.cure();
  }
  EXPECT_EQ(resultOf([&] { validateWriteConfiguration(image, images); }), Message{});
}

TEST(ValidateWriteConfiguration, OneSampleInSeparatePlanesIsRefusedLast) {
  const vxArrayPtr array = zeros(vxUINT8, {16, 16});
  const vxArray* images[] = {array.get()};
  TiffImageMetaData_ image = grayRecord();
  image.planarConfig = PLANARCONFIG_SEPARATE;
  image.extraSamplesCount = 2;
  image.compression = COMPRESSION_JPEG;
  image.rowsPerStrip = 5;
  const auto act = [&] { validateWriteConfiguration(image, images); };
  expectRefusal<Tiff::strippedJpegInvalidRowsPerStrip>({}, act);
  EXPECT_EQ(warnings(), std::vector<Message>{kWarns}) << "extra samples come before compression";
  image.rowsPerStrip = 16;
  expectRefusal<Tiff::badPlanarConfigurationSamplesPerPixelCombination>({}, act);
}

TEST(ValidateWriteConfiguration, EitherDimensionMissingIsReported) {
  const vxArrayPtr array = zeros(vxUINT8, {16, 16});
  const vxArray* images[] = {array.get()};
  TiffImageMetaData_ image = grayRecord();
  image.imageLength = 0;
  expectRefusal<Tiff::imageDimensionsNotSet>({},
                                             [&] { validateWriteConfiguration(image, images); });
  image.imageLength = 16;
  image.isTiled = true;
  image.tileWidth = 16;
  expectRefusal<Tiff::tileDimensionsNotSet>({}, [&] { validateWriteConfiguration(image, images); });
}

}  // namespace
}  // namespace tb::test

// The checks of images against the directory, before anything is written: on records where a table
// wants them all, and through the gateway where the order of the whole operation matters.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "image/write_checks.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr vxClassID kAllClasses[] = {vxCELL,   vxLOGICAL, vxCHAR,  vxDOUBLE, vxSINGLE,
                                     vxINT8,   vxUINT8,   vxINT16, vxUINT16, vxINT32,
                                     vxUINT32, vxINT64,   vxUINT64};

// A contiguous gray image of 16 x 16 pixels in one strip, for changing some members.
TiffImageMetaData_ grayRecord() {
  return {.rowsPerStrip = 16,
          .imageWidth = 16,
          .imageLength = 16,
          .imageDepth = 1,
          .bitsPerSample = 8,
          .samplesPerPixel = 1,
          .planarConfig = PLANARCONFIG_CONTIG,
          .photometric = PHOTOMETRIC_MINISBLACK,
          .sampleFormat = SAMPLEFORMAT_UINT,
          .compression = COMPRESSION_NONE,
          .blockWidth = 16,
          .blockLength = 16,
          .samplesPerBlock = 1,
          .ycbcrSubsampling = {2, 2}};
}

TiffImageMetaData_ record(std::uint16_t photometric, std::uint16_t samples) {
  TiffImageMetaData_ result = grayRecord();
  result.photometric = photometric;
  result.samplesPerPixel = result.samplesPerBlock = samples;
  return result;
}

// Expects the error from a check that is called directly.
template <class Id>
void expectRefusal(const Arguments& arguments, const std::function<void()>& check) {
  clearRecord();
  expectError<Id>(arguments, check);
}

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

// --- validatePhotometric

vxClassID check(const TiffImageMetaData_& image, const std::vector<const vxArrayPtr*>& arrays) {
  std::vector<const vxArray*> inputs;
  for (const vxArrayPtr* array : arrays) inputs.push_back(array->get());
  return validatePhotometric(image, inputs);
}

class ValidatePhotometric : public testing::Test {
 protected:
  const vxArrayPtr gray_ = zeros(vxUINT8, {16, 16});
  const vxArrayPtr rgb_ = zeros(vxUINT8, {16, 16, 3});
  const vxArrayPtr chroma_ = zeros(vxUINT8, {8, 8});
  const vxArrayPtr wrong_ = zeros(vxCHAR, {16, 16});
};

TEST_F(ValidatePhotometric, OneImageUnlessYCbCr) {
  for (const auto photometric :
       std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 32844, 32845, 999})
    for (const auto& images : std::vector<std::vector<const vxArrayPtr*>>{
             {&wrong_, &wrong_}, {&wrong_, &wrong_, &wrong_}})
      expectRefusal<Tiff::wrongNumberOfInputImages>({},
                                                    [&] { check(record(photometric, 1), images); });
}

TEST_F(ValidatePhotometric, LogImagesNeedAFormatBelowEightBits) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_LOGLUV, 3);
  image.bitsPerSample = 16;
  image.sampleFormat = SAMPLEFORMAT_INT;
  const vxArrayPtr signed16 = zeros(vxINT16, {16, 16, 3});
  for (const std::int32_t format : {-1, 0, 1, 2}) {
    image.sgiLogDataFmt = format;
    EXPECT_EQ(check(image, {&signed16}), vxINT16);
  }
  image.sgiLogDataFmt = 3;
  expectRefusal<Tiff::eightBitSgiFormatNotAllowedWhenWriting>({}, [&] { check(image, {&wrong_}); });
  image.sgiLogDataFmt = 4;
  expectRefusal<Tiff::luvCodecNotSet>({}, [&] { check(image, {&wrong_}); });
}

TEST_F(ValidatePhotometric, RgbNeedsThreeSamplesBeforeTheImageIsLookedAt) {
  for (const auto samples : std::vector<std::uint16_t>{0, 1, 2})
    expectRefusal<Tiff::badRgbSamplesPerPixelConfiguration>(
        {}, [&] { check(record(PHOTOMETRIC_RGB, samples), {&wrong_}); });
  EXPECT_EQ(check(record(PHOTOMETRIC_RGB, 3), {&rgb_}), vxUINT8);
}

TEST_F(ValidatePhotometric, PaletteImageIsUint8OrUint16OfTheSameBits) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_PALETTE, 1);
  const vxArrayPtr wide = zeros(vxUINT16, {16, 16});
  expectRefusal<Tiff::badDatatypeForPaletteImage>({8, 8}, [&] { check(image, {&wide}); });
  image.bitsPerSample = 16;
  expectRefusal<Tiff::badDatatypeForPaletteImage>({16, 16}, [&] { check(image, {&gray_}); });
  for (const auto bits : std::vector<std::uint16_t>{1, 4, 32, 64}) {
    image.bitsPerSample = bits;
    expectRefusal<Tiff::badPaletteWriteConfiguration>({}, [&] { check(image, {&gray_}); });
  }
}

TEST_F(ValidatePhotometric, PaletteNeedsUnsignedSamplesThenAColorMap) {
  Scene scene;
  const OpenedFile& file = scene.fresh(stripTags(PHOTOMETRIC_PALETTE, 8, 1));
  call("setField", file, TIFFTAG_SAMPLEFORMAT, 3);
  expectError<Tiff::badPaletteWriteConfiguration>(
      {}, [&] { call("writeEncodedStrip", file, 0, gray_); });
  call("setField", file, TIFFTAG_SAMPLEFORMAT, 1);
  expectError<Tiff::colorMapShouldbeSet>({}, [&] { call("writeEncodedStrip", file, 0, gray_); });
  call("setField", file, TIFFTAG_COLORMAP, zeros(vxDOUBLE, {256, 3}));
  EXPECT_NO_THROW(call("writeEncodedStrip", file, 0, gray_));
}

// --- YCbCr

TEST_F(ValidatePhotometric, YCbCrNeedsThreeImagesUnlessTheCodecConverts) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  EXPECT_EQ(check(image, {&gray_, &chroma_, &chroma_}), vxUINT8);
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&gray_}); });
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&gray_, &chroma_}); });

  image.jpegColorMode = JPEGCOLORMODE_RGB;
  EXPECT_EQ(check(image, {&rgb_}), vxUINT8);
  EXPECT_EQ(check(image, {&rgb_, &wrong_}), vxUINT8) << "only the first is looked at";
}

TEST_F(ValidatePhotometric, ConvertingCodecNeedsThreeSamples) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 1);
  image.jpegColorMode = JPEGCOLORMODE_RGB;
  expectRefusal<Tiff::badRgbSamplesPerPixelConfiguration>({}, [&] { check(image, {&wrong_}); });
}

TEST_F(ValidatePhotometric, ConvertingCodecNeedsAllThreePlanesOfTheOneImage) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  image.jpegColorMode = JPEGCOLORMODE_RGB;
  expectRefusal<Tiff::badContigImageMultipleSpp>({}, [&] { check(image, {&gray_}); });
}

TEST_F(ValidatePhotometric, ColourModesThatDoNotExistNeedThreeImagesToo) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  image.jpegColorMode = 2;
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&rgb_}); });
  expectRefusal<Tiff::wrongNumberOfInputImages>({}, [&] { check(image, {&rgb_, &rgb_}); });
  expectRefusal<Tiff::badContigImageMultipleSpp>({}, [&] {
    check(image, {&gray_, &chroma_, &chroma_});
  });
}

TEST_F(ValidatePhotometric, EveryYCbCrImageIsValidatedBeforeThePlanarConfiguration) {
  TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
  image.planarConfig = PLANARCONFIG_SEPARATE;
  image.samplesPerBlock = 1;
  for (const auto& images : std::vector<std::vector<const vxArrayPtr*>>{
           {&wrong_, &chroma_, &chroma_}, {&gray_, &wrong_, &chroma_}, {&gray_, &chroma_, &wrong_}})
    expectRefusal<Tiff::imageDatatypeNot8bit>({"char"}, [&] { check(image, images); });
  expectRefusal<Tiff::unsupportedYCbCrConfiguration>({}, [&] {
    check(image, {&gray_, &gray_, &gray_});
  });
}

struct ChromaCase {
  Dimensions y, cb, cr;
  std::uint16_t horizontal, vertical;
  bool fits;
};

TEST_F(ValidatePhotometric, ChromaSizeIsTheLumaSizeOverTheFactorsRoundedUp) {
  const ChromaCase cases[] = {
      {{16, 15}, {8, 8}, {8, 8}, 2, 2, true},     {{16, 15}, {8, 7}, {8, 8}, 2, 2, false},
      {{16, 15}, {8, 8}, {8, 7}, 2, 2, false},    {{16, 15}, {7, 8}, {8, 8}, 2, 2, false},
      {{16, 15}, {8, 8}, {9, 8}, 2, 2, false},    {{7, 9}, {7, 3}, {7, 3}, 4, 1, true},
      {{7, 9}, {2, 9}, {2, 9}, 1, 4, true},       {{1, 1}, {1, 1}, {1, 1}, 4, 4, true},
      {{16, 16}, {16, 16}, {16, 16}, 1, 1, true}, {{0, 0}, {0, 0}, {0, 0}, 2, 2, true},
      {{16, 16}, {0, 0}, {0, 0}, 0, 0, false},    {{16, 16}, {8, 8}, {8, 8}, 0, 2, false},
      {{16, 16}, {8, 8}, {8, 8}, 2, 0, false},    {{16, 16}, {1, 1}, {1, 1}, 65535, 65535, true},
  };
  for (const auto& [y, cb, cr, h, v, fits] : cases) {
    TiffImageMetaData_ image = record(PHOTOMETRIC_YCBCR, 3);
    image.ycbcrSubsampling[0] = h;
    image.ycbcrSubsampling[1] = v;
    const vxArrayPtr arrays[] = {zeros(vxUINT8, y), zeros(vxUINT8, cb), zeros(vxUINT8, cr)};
    const auto act = [&, &record = image] { check(record, {&arrays[0], &arrays[1], &arrays[2]}); };
    if (fits) {
      EXPECT_NO_THROW(act());
    } else {
      expectRefusal<Tiff::badYCbCrDimensions>({y[0], y[1], cb[0], cb[1], cr[0], cr[1], h, v}, act);
    }
  }
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

// --- The whole operation

class WriteErrors : public testing::Test {
 protected:
  Scene scene_;
  const vxArrayPtr image_ = zeros(vxUINT8, {16, 16});
};

TEST_F(WriteErrors, ImagesAreCheckedBeforeLayoutLayoutBeforeNumber) {
  for (const bool tiled : {true, false}) {
    const char* operation = tiled ? "writeEncodedStrip" : "writeEncodedTile";
    const OpenedFile& file = scene_.fresh(tiled ? tileTags(1, 8, 1) : stripTags(1, 8, 1));
    expectError<Tiff::imageDatatypeNot8bit>({"double"},
                                            [&] { call(operation, file, -1, row({1})); });
    expectError<Tiff::tiledOperationOnStrippedImage>({},
                                                     [&] { call(operation, file, -1, image_); });
  }
}

TEST_F(WriteErrors, BlockNumberOutOfRangeOrTooLarge) {
  const OpenedFile& strips = scene_.fresh(also(stripTags(1, 8, 1), {{TIFFTAG_ROWSPERSTRIP, 4}}));
  const OpenedFile& tiles = scene_.fresh(tileTags(1, 8, 1));
  for (const double number : {-1.0, 4294967296.0}) {
    expectError<validate::argumentOutOfBounds>(
        {}, [&] { call("writeEncodedStrip", strips, number, image_); });
    expectError<validate::argumentOutOfBounds>(
        {}, [&] { call("writeEncodedTile", tiles, number, image_); });
  }
  for (const double number : {4.0, 5.9, 4294967295.0})
    expectError<Tiff::stripNumberTooLarge>(
        {4}, [&] { call("writeEncodedStrip", strips, number, image_); });
  expectError<Tiff::tileNumberTooLarge>({1}, [&] { call("writeEncodedTile", tiles, 1, image_); });
}

TEST_F(WriteErrors, BlockNumberIsComparedBeforeTheDataIsClipped) {
  const OpenedFile& file = scene_.fresh(stripTags(1, 8, 1));
  expectError<Tiff::stripNumberTooLarge>({1}, [&] {
    call("writeEncodedStrip", file, 1, zeros(vxUINT8, {99, 99}));
  });
  EXPECT_THAT(moduleWarnings(), IsEmpty());
}

TEST_F(WriteErrors, RefusalByLibtiffNamesTheBlockOneHigher) {
  const OpenedFile& strips = scene_.written({Layout{.rowsPerStrip = 4}});
  expectError<Tiff::stripWriteFailure>({3}, [&] { call("writeEncodedStrip", strips, 2, image_); });
  const OpenedFile& tiles =
      scene_.written({Layout{.width = 64, .tileWidth = 16, .tileLength = 16}});
  expectError<Tiff::tileWritefailure>({3}, [&] { call("writeEncodedTile", tiles, 2, image_); });
}

TEST_F(WriteErrors, MissingTagsComeBeforeTheImages) {
  const OpenedFile& file = scene_.fresh();
  for (const char* operation : {"writeEncodedStrip", "writeEncodedTile"})
    expectError<Tiff::tagRetrievalFailed>({"ImageLength"},
                                          [&] { call(operation, file, -1, structure()); });
}

TEST_F(WriteErrors, MissingExtraSamplesWarnAndTheWriteGoesOn) {
  const OpenedFile& file = scene_.fresh(stripTags(1, 8, 2));
  const vxArrayPtr written = image<std::uint8_t>(
      16, 16, 2, [](auto r, auto c, auto s) { return static_cast<std::uint8_t>(r + c + s); });
  call("writeEncodedStrip", file, 0, written);
  EXPECT_THAT(moduleWarnings(), ElementsAre(kWarns));
  EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), bytesOf(written));
}

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(WriteErrors, RefusedWritesLeaveTheFileAsItWas) {
  const OpenedFile& file = scene_.written({Layout{}}, "r+");
  const std::filesystem::path path = TIFFFileName(file.handle());
  const std::string before = contentOf(path);
  for (const auto& image : {row({1}), zeros(vxUINT8, {16, 16, 3}), zeros(vxINT8, {16, 16})})
    EXPECT_ANY_THROW(call("writeEncodedStrip", file, 0, image));
  EXPECT_ANY_THROW(call("writeEncodedStrip", file, 7, image_));
  EXPECT_ANY_THROW(call("writeEncodedTile", file, 0, image_));
  EXPECT_ANY_THROW(call("writeEncodedStrip", file, 0, image_, image_, image_));
  EXPECT_TRUE(contentOf(path) == before);
  call("close", file);
  EXPECT_TRUE(contentOf(path) == before);
}

}  // namespace
}  // namespace tb::test

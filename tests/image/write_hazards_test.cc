// Directories and arrays for which the layout of a block and the buffer that libtiff asks for
// disagree. What the module must do is to stay inside its memory and leave the rest to libtiff;
// AddressSanitizer is the judge of the first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "image/write_buffer.h"
#include "runtime/memory.h"
#include "tests/support/file_content.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

using testing::Each;

class WriteHazards : public testing::Test {
 protected:
  // Spelled out here: within a template, clang 14 takes Arguments{1} for a vector of one default
  // argument.
  static inline const Arguments kBlockOne = {1};

  // Writes and accepts that libtiff refuses the block, with the block's own error.
  template <class Failure>
  static void writeOrFail(const char* operation, const Input& file,
                          const std::vector<const vxArrayPtr*>& images) {
    Inputs inputs{operation, file, 0};
    for (const vxArrayPtr* image : images) inputs.emplace_back(*image);
    try {
      callGateway(0, inputs);
    } catch (const foundation::core::except::Exception<Failure, std::exception>&) {
      EXPECT_EQ(reportedErrors().front().arguments, kBlockOne);
    }
  }
  static void writeStripOrFail(const Input& file, const std::vector<const vxArrayPtr*>& images) {
    writeOrFail<Tiff::stripWriteFailure>("writeEncodedStrip", file, images);
  }
  static void writeTileOrFail(const Input& file, const std::vector<const vxArrayPtr*>& images) {
    writeOrFail<Tiff::tileWritefailure>("writeEncodedTile", file, images);
  }

  Scene scene_;
};

Tags ycbcr(bool tiled, int samples, double horizontal, double vertical) {
  return also((tiled ? tileTags : stripTags)(PHOTOMETRIC_YCBCR, 8, samples),
              {{TIFFTAG_YCBCRSUBSAMPLING, row({horizontal, vertical})}});
}

vxArrayPtr bytes(const Dimensions& dimensions) { return zeros(vxUINT8, dimensions); }

vxArrayPtr chromaFor(double horizontal, double vertical) {
  return bytes({static_cast<std::size_t>(std::ceil(16 / vertical)),
                static_cast<std::size_t>(std::ceil(16 / horizontal))});
}

TEST_F(WriteHazards, YCbCrUnitsDoNotPassABufferThatIsSmallerThanTheyAre) {
  const vxArrayPtr y = bytes({16, 16});
  for (const bool tiled : {false, true})
    for (const int samples : {1, 2, 3, 4, 5})
      for (const double h : {1.0, 2.0, 3.0, 4.0, 16.0, 65535.0})
        for (const double v : {1.0, 2.0, 3.0, 4.0, 65535.0}) {
          SCOPED_TRACE(testing::Message() << samples << " samples, " << h << ':' << v);
          const OpenedFile& file = scene_.fresh(ycbcr(tiled, samples, h, v));
          const vxArrayPtr chroma = chromaFor(h, v);
          (tiled ? writeTileOrFail : writeStripOrFail)(file, {&y, &chroma, &chroma});
        }
}

TEST_F(WriteHazards, UnitsOfBillionsOfSamplesTakeNoTime) {
  const vxArrayPtr y = bytes({16, 16}), chroma = bytes({1, 1});
  const OpenedFile& file = scene_.fresh(ycbcr(false, 3, 65535, 65535));
  const auto start = std::chrono::steady_clock::now();
  writeStripOrFail(file, {&y, &chroma, &chroma});
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(WriteHazards, YCbCrFactorOfZeroFitsNoChroma) {
  const vxArrayPtr y = bytes({16, 16}), chroma = bytes({8, 8});
  for (const auto& [h, v] : {std::pair{0, 2}, std::pair{2, 0}, std::pair{0, 0}}) {
    const OpenedFile& file = scene_.fresh(ycbcr(false, 3, h, v));
    expectError<Tiff::badYCbCrDimensions>({16, 16, 8, 8, 8, 8, h, v}, [&, &handle = file] {
      call("writeEncodedStrip", handle, 0, y, chroma, chroma);
    });
  }
}

TEST_F(WriteHazards, ArraysLargerThanTheImageStayInside) {
  const vxArrayPtr y = bytes({50, 40}), chroma = bytes({25, 20});
  writeStripOrFail(scene_.fresh(ycbcr(false, 3, 2, 2)), {&y, &chroma, &chroma});
  writeTileOrFail(scene_.fresh(ycbcr(true, 3, 2, 2)), {&y, &chroma, &chroma});
  const vxArrayPtr wide = bytes({16, 17}), wideChroma = bytes({8, 9});
  writeStripOrFail(scene_.fresh(ycbcr(false, 3, 2, 2)), {&wide, &wideChroma, &wideChroma});
}

TEST_F(WriteHazards, EmptyYCbCrArraysAreNoReasonToDivide) {
  const vxArrayPtr none = bytes({0, 0});
  writeStripOrFail(scene_.fresh(ycbcr(false, 3, 2, 2)), {&none, &none, &none});
  const vxArrayPtr noRows = bytes({0, 16}), noChromaRows = bytes({0, 8});
  writeStripOrFail(scene_.fresh(ycbcr(false, 3, 2, 2)), {&noRows, &noChromaRows, &noChromaRows});
}

// --- Planes that are not there

TEST_F(WriteHazards, ThirdDimensionShorterThanTheSamplesIsRefused) {
  const OpenedFile& file = scene_.fresh(stripTags(PHOTOMETRIC_RGB, 8, 3));
  for (const std::size_t planes : {0U, 2U})
    expectError<Tiff::badContigImageMultipleSpp>({}, [&] {
      call("writeEncodedStrip", file, 0, bytes({16, 16, planes}));
    });
}

TEST_F(WriteHazards, SixteenBitYCbCrTakesBytesOfThreeWholeArrays) {
  const OpenedFile& file = scene_.fresh(
      also(stripTags(PHOTOMETRIC_YCBCR, 16, 3), {{TIFFTAG_YCBCRSUBSAMPLING, row({2, 2})}}));
  const vxArrayPtr y = zeros(vxUINT16, {16, 16}), chroma = zeros(vxUINT16, {8, 8});
  writeStripOrFail(file, {&y, &chroma, &chroma});
}

TEST_F(WriteHazards, ColourModesThatDoNotExistReadOnlyWhatIsThere) {
  const Tags tags = also(ycbcr(false, 3, 2, 2),
                         {{TIFFTAG_COMPRESSION, COMPRESSION_JPEG}, {TIFFTAG_JPEGCOLORMODE, 2}});
  const vxArrayPtr y = bytes({16, 16}), chroma = bytes({8, 8}), rgb = bytes({16, 16, 3});
  for (const auto& images : std::vector<std::vector<const vxArrayPtr*>>{{&rgb}, {&rgb, &rgb}}) {
    Inputs inputs{"writeEncodedStrip", scene_.fresh(tags), 0};
    for (const vxArrayPtr* image : images) inputs.emplace_back(*image);
    expectError<Tiff::wrongNumberOfInputImages>({}, [&] { callGateway(0, inputs); });
  }
  expectError<Tiff::badContigImageMultipleSpp>(
      {}, [&] { call("writeEncodedStrip", scene_.fresh(tags), 0, y, chroma, chroma); });
}

TEST_F(WriteHazards, ThreeBytesAPixelDoNotPassABufferOfOneAndAHalf) {
  // The upsampling flag of the codec is stale: set while the planes were separate.
  const OpenedFile& file = scene_.fresh(ycbcr(false, 3, 2, 2));
  setFields(file, {{TIFFTAG_COMPRESSION, COMPRESSION_JPEG},
                   {TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE},
                   {TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB},
                   {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG}});
  const vxArrayPtr rgb = bytes({16, 16, 3});
  writeStripOrFail(file, {&rgb});
}

// --- Bits

TEST_F(WriteHazards, BitsOfASubsampledImageStayInTheSmallerBuffer) {
  constexpr std::size_t kRows = 32000;  // so many that what is too much passes any padding
  for (const int width : {1, 9}) {
    const OpenedFile& file = scene_.fresh(ycbcr(false, 3, 4, 4));
    setFields(file, {{TIFFTAG_BITSPERSAMPLE, 1},
                     {TIFFTAG_IMAGEWIDTH, width},
                     {TIFFTAG_IMAGELENGTH, kRows},
                     {TIFFTAG_ROWSPERSTRIP, kRows}});
    const auto columns = static_cast<std::size_t>(width);
    const vxArrayPtr y = zeros(vxLOGICAL, {kRows, columns}),
                     chroma = zeros(vxLOGICAL, {kRows / 4, (columns + 3) / 4});
    writeStripOrFail(file, {&y, &chroma, &chroma});
  }
}

TEST_F(WriteHazards, BitsOfTallAndWideArraysStayInsideTheArray) {
  for (const Dimensions& dimensions :
       std::vector<Dimensions>{{100, 1}, {1, 100}, {17, 16}, {99, 99}}) {
    const vxArrayPtr image = zeros(vxLOGICAL, dimensions);
    writeStripOrFail(scene_.fresh(stripTags(1, 1, 1)), {&image});
    writeTileOrFail(scene_.fresh(tileTags(1, 1, 1)), {&image});
  }
}

// --- The buffer itself

TiffImageMetaData_ blockOf(std::uint16_t bits, std::uint16_t samples) {
  return {.bitsPerSample = bits,
          .samplesPerPixel = samples,
          .planarConfig = PLANARCONFIG_CONTIG,
          .blockWidth = 9,
          .blockLength = 4,
          .samplesPerBlock = samples};
}

TEST_F(WriteHazards, BuffersOfEverySizeAreFilledAndNotPassed) {
  for (const auto& [bits, classId] : {std::pair<std::uint16_t, vxClassID>{1, vxLOGICAL},
                                      {8, vxUINT8},
                                      {16, vxUINT16},
                                      {32, vxUINT32},
                                      {64, vxDOUBLE}})
    for (const auto samples : std::vector<std::uint16_t>{1, 3}) {
      if (bits == 1 && samples != 1) continue;
      const vxArrayPtr image = zeros(classId, {4, 9, samples});
      std::memset(vxGetWritableData(image.get()), 0xFF, bytesOf(image).size());
      const vxArray* images[] = {image.get()};
      const std::size_t rowBits = std::size_t{9} * samples * bits;
      const std::size_t whole = 4 * ((rowBits + 7) / 8);
      for (std::size_t size = 0; size <= whole; ++size) {
        const bool filled = fillsWholeBuffer(images, size, blockOf(bits, samples));
        EXPECT_EQ(filled, bits != 1 && size == whole) << bits << ' ' << size;
        std::vector<std::byte> buffer(size, std::byte{filled});
        fillWriteBuffer(images, buffer, blockOf(bits, samples));
        // Only the unfinished pixel at a short buffer's end may be missing.
        const std::size_t pixel = std::max<std::size_t>(1, std::size_t{samples} * bits / 8);
        buffer.resize(size / pixel * pixel);
        if (bits == 1) continue;  // the last bits of a row are padding
        EXPECT_THAT(buffer, Each(std::byte{0xFF})) << bits << ' ' << size;
      }
    }
}

TEST_F(WriteHazards, BufferOfWholeBytesOfBitsIsFilled) {
  const vxArrayPtr image = zeros(vxLOGICAL, {5, 16});
  const vxArray* images[] = {image.get()};
  TiffImageMetaData_ block = blockOf(1, 1);
  block.blockWidth = 16;
  std::vector<std::byte> buffer(8, std::byte{0xFF});
  EXPECT_TRUE(fillsWholeBuffer(images, buffer.size(), block));
  fillWriteBuffer(images, buffer, block);
  EXPECT_THAT(buffer, Each(std::byte{0}));
  // Bits of several samples are not interleaved: only those of the first are written.
  block.samplesPerBlock = 3;
  EXPECT_FALSE(fillsWholeBuffer(images, 3 * buffer.size(), block));
}

TEST_F(WriteHazards, BufferThatAnArrayIsTooSmallForIsNotFilled) {
  for (const auto& [rows, columns] : {std::pair<std::size_t, std::size_t>{3, 9}, {4, 8}}) {
    const vxArrayPtr image = bytes({rows, columns});
    const vxArray* images[] = {image.get()};
    EXPECT_FALSE(fillsWholeBuffer(images, 36, blockOf(8, 1)));
  }
}

TEST_F(WriteHazards, WidthsWithoutARoutineAreNamed) {
  const vxArrayPtr image = bytes({4, 9});
  const vxArray* images[] = {image.get()};
  std::vector<std::byte> buffer(100);
  clearRecord();
  expectError<Tiff::unhandledBitsPerSample>(
      {12}, [&] { fillWriteBuffer(images, buffer, blockOf(12, 1)); });
}

// --- How much libtiff is told to encode

TEST_F(WriteHazards, CountOfJpegYCbCrNeverPassesTheBuffer) {
  for (const auto& [h, v] : {std::pair{1, 1}, std::pair{2, 1}, std::pair{1, 2}, std::pair{2, 2}})
    for (const std::size_t rows : {8U, 16U, 40U}) {
      SCOPED_TRACE(testing::Message() << h << ':' << v << ", " << rows << " rows");
      const Tags tags = also(ycbcr(false, 3, h, v), {{TIFFTAG_IMAGELENGTH, 64},
                                                     {TIFFTAG_COMPRESSION, COMPRESSION_JPEG},
                                                     {TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB}});
      const vxArrayPtr rgb = bytes({rows, 16, 3});
      writeStripOrFail(scene_.fresh(tags), {&rgb});
      const vxArrayPtr y = bytes({rows, 16});
      const vxArrayPtr chroma =
          bytes({(rows + static_cast<std::size_t>(v) - 1) / static_cast<std::size_t>(v),
                 16U / static_cast<std::size_t>(h)});
      writeStripOrFail(scene_.fresh(also(tags, {{TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RAW}})),
                       {&y, &chroma, &chroma});
    }
}

// Three times the bytes of an RGB array, which the codec converts, are those of three strips.
TEST_F(WriteHazards, JpegOfAnArrayThatIsSmallerThanItsImageIsWritten) {
  const OpenedFile& file =
      scene_.fresh(also(ycbcr(false, 3, 1, 1), {{TIFFTAG_IMAGELENGTH, 64},
                                                {TIFFTAG_COMPRESSION, COMPRESSION_JPEG},
                                                {TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB}}));
  for (int strip = 0; strip < 4; ++strip)
    EXPECT_NO_THROW(call("writeEncodedStrip", file, strip, bytes({16, 16, 3})));
}

TEST_F(WriteHazards, JpegWithFactorsThatItCannotHaveIsRefused) {
  for (const double factor : {0.0, 65535.0}) {
    constexpr double kRows = 8 * 65535;  // as many as the larger one asks for
    const OpenedFile& file = scene_.fresh(
        also(ycbcr(false, 3, factor, factor), {{TIFFTAG_IMAGELENGTH, 2 * kRows},
                                               {TIFFTAG_ROWSPERSTRIP, kRows},
                                               {TIFFTAG_COMPRESSION, COMPRESSION_JPEG},
                                               {TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB}}));
    expectError<Tiff::stripWriteFailure>({1}, [&, &handle = file] {
      call("writeEncodedStrip", handle, 0, bytes({16, 16, 3}));
    });
  }
}

// --- Sizes

TEST_F(WriteHazards, BlocksBeyondTheMemoryLimitAreRefusedAndTheFileUntouched) {
  const OpenedFile& file = scene_.fresh({{TIFFTAG_PHOTOMETRIC, 1},
                                         {TIFFTAG_BITSPERSAMPLE, 8},
                                         {TIFFTAG_IMAGEWIDTH, 30000},
                                         {TIFFTAG_IMAGELENGTH, 30000},
                                         {TIFFTAG_ROWSPERSTRIP, 30000}});
  const auto before = std::filesystem::file_size(TIFFFileName(file.handle()));
  runtime::setMemoryLimit(std::size_t{64} << 20);
  EXPECT_THROW(call("writeEncodedStrip", file, 0, bytes({16, 16})), std::bad_alloc);
  runtime::setMemoryLimit(0);
  EXPECT_EQ(std::filesystem::file_size(TIFFFileName(file.handle())), before);
}

TEST_F(WriteHazards, TilesBeyondAllNumbersAreLibtiffsToRefuse) {
  const OpenedFile& file = scene_.fresh({{TIFFTAG_PHOTOMETRIC, 1},
                                         {TIFFTAG_BITSPERSAMPLE, 64},
                                         {TIFFTAG_SAMPLEFORMAT, 3},
                                         {TIFFTAG_SAMPLESPERPIXEL, 65535},
                                         {TIFFTAG_IMAGEWIDTH, 16},
                                         {TIFFTAG_IMAGELENGTH, 16},
                                         {TIFFTAG_PLANARCONFIG, 2},
                                         {TIFFTAG_TILEWIDTH, 4294967280.0},
                                         {TIFFTAG_TILELENGTH, 4294967280.0}});
  const vxArrayPtr image = zeros(vxDOUBLE, {16, 16});
  EXPECT_ANY_THROW(call("writeEncodedTile", file, 0, image));
}

// --- All or nothing

TEST_F(WriteHazards, EncoderThatFailsHalfwayLeavesNothingInTheFile) {
  // The byte count for 2:2 subsampling is not a whole number of the encoder's rows here.
  const Tags tags =
      also(stripTags(PHOTOMETRIC_YCBCR, 8, 3), {{TIFFTAG_IMAGEWIDTH, 64},
                                                {TIFFTAG_IMAGELENGTH, 128},
                                                {TIFFTAG_ROWSPERSTRIP, 64},
                                                {TIFFTAG_YCBCRSUBSAMPLING, row({2, 2})},
                                                {TIFFTAG_COMPRESSION, COMPRESSION_JPEG}});
  const OpenedFile& file = scene_.fresh(stripTags(1, 8, 1));
  const std::filesystem::path path = TIFFFileName(file.handle());
  call("writeEncodedStrip", file, 0, bytes({16, 16}));
  call("writeDirectory", file);
  setFields(file, tags);
  const std::string before = contentOf(path);
  expectError<Tiff::stripWriteFailure>({1}, [&] {
    call("writeEncodedStrip", file, 0, bytes({64, 64}), bytes({32, 32}), bytes({32, 32}));
  });
  EXPECT_TRUE(contentOf(path) == before);

  call("close", file);
  const OpenedFile again(path, "r");
  EXPECT_THAT(bytesOf(call("readEncodedStrip", again, 0)), Each(std::byte{0}));
}

TEST(LogLuvOfOneSample, IsNotEncoded) {
  Scene scene;
  const OpenedFile& file = scene.fresh({{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGL},
                                        {TIFFTAG_IMAGEWIDTH, 16},
                                        {TIFFTAG_IMAGELENGTH, 16},
                                        {TIFFTAG_ROWSPERSTRIP, 16},
                                        {TIFFTAG_COMPRESSION, COMPRESSION_SGILOG},
                                        {TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT},
                                        {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGLUV}});
  expectError<Tiff::stripWriteFailure>({1}, [&] {
    call("writeEncodedStrip", file, 0, zeros(vxSINGLE, {16, 16}));
  });
}

}  // namespace
}  // namespace tb::test

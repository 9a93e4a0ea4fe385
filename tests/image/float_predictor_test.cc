// Floating-point prediction (Predictor 3) in files of the other byte order, whose samples libtiff
// alone predicts with their bytes in the wrong order.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>

#include "tests/support/scene.h"

namespace tb::test {
namespace {

class FloatPrediction
    : public testing::TestWithParam<std::tuple<std::uint16_t, std::uint16_t, bool>> {
 protected:
  FloatPrediction() {
    const auto [compression, bits, isTiled] = GetParam();
    layout_ = {
        .width = 40,
        .length = 40,
        .bits = bits,
        .format = SAMPLEFORMAT_IEEEFP,
        .compression = compression,
        .more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_FLOATINGPOINT); }};
    (isTiled ? layout_.tileWidth : layout_.rowsPerStrip) = 16;
    if (isTiled) layout_.tileLength = 16;
    path_ = folder_ / "floats.tif";
  }
  Tags tags() const { return also(tagsOf(layout_), {{TIFFTAG_PREDICTOR, 3}}); }
  const char* read() const { return layout_.tiled() ? "readEncodedTile" : "readEncodedStrip"; }
  void expectAllBlocks() const {
    const TiffHandle tif = openTiff(path_, "r");
    for (std::uint32_t block = 0; block < blockCount(layout_); ++block) {
      const std::vector<std::byte> found = readBlock(tif.get(), block);
      const std::vector<std::byte> expected = blockBytes(layout_, block, 0);
      EXPECT_TRUE(std::ranges::equal(std::span(found).first(expected.size()), expected)) << block;
    }
  }

  TemporaryFolder folder_;
  std::filesystem::path path_;
  Layout layout_;
};

TEST_P(FloatPrediction, IsWrittenAsOtherProgramsReadIt) {
  {
    const OpenedFile file(path_, "wb");
    setFields(file, tags());
    writeBlocks(file, layout_);
  }
  expectAllBlocks();
}

TEST_P(FloatPrediction, IsWrittenAfterABlockOfTheSameHandleWasRead) {
  {
    const OpenedFile file(path_, "wb");
    setFields(file, tags());
    writeBlock(file, layout_, 0);
    EXPECT_EQ(bytesOf(call(read(), file, 0)), hostBytes(layout_, 0));
    writeBlocks(file, layout_);
    EXPECT_EQ(bytesOf(call(read(), file, 1)), hostBytes(layout_, 1));
  }
  expectAllBlocks();
}

TEST_P(FloatPrediction, IsWrittenIntoAFileThatIsThere) {
  {
    const OpenedFile file(path_, "wb");
    setFields(file, tags());
    writeBlocks(file, layout_);
  }
  {
    const OpenedFile file(path_, "r+");
    writeBlock(file, layout_, 2);
  }
  expectAllBlocks();
}

INSTANTIATE_TEST_SUITE_P(Codecs, FloatPrediction,
                         testing::Combine(testing::Values(COMPRESSION_LZW,
                                                          COMPRESSION_ADOBE_DEFLATE),
                                          testing::Values(32, 64), testing::Bool()));

}  // namespace
}  // namespace tb::test

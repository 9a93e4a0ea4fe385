// Fax data whose bits lie in the reverse order (FillOrder 2), which libtiff alone decodes wrongly
// on files that can be written.
#include <gtest/gtest.h>

#include "tests/support/scene.h"

namespace tb::test {
namespace {

class FaxOfReversedBits : public testing::TestWithParam<std::uint16_t> {
 protected:
  Layout layout_{
      .width = 60,
      .length = 40,
      .bits = 1,
      .photometric = PHOTOMETRIC_MINISWHITE,
      .compression = GetParam(),
      .rowsPerStrip = 16,
      .more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB); }};
  void expectAllStrips(const Input& file) const {
    for (std::uint32_t strip = 0; strip < 3; ++strip) {
      EXPECT_EQ(bytesOf(call("readEncodedStrip", file, strip)), hostBytes(layout_, strip)) << strip;
    }
  }
  Scene scene_;
};

TEST_P(FaxOfReversedBits, IsReadInEveryMode) {
  for (const char* mode : {"r", "rm", "r+", "r+m", "a"}) {
    SCOPED_TRACE(mode);
    const OpenedFile& file = scene_.written({layout_}, mode);
    call("setDirectory", file, 0);
    expectAllStrips(file);
  }
}

// setField refuses Compression 2.
class WrittenFaxOfReversedBits : public FaxOfReversedBits {};

TEST_P(WrittenFaxOfReversedBits, IsReadAsItWasThroughTheSameHandle) {
  const OpenedFile& file = scene_.fresh(also(tagsOf(layout_), {{TIFFTAG_FILLORDER, 2}}));
  writeBlocks(file, layout_);
  expectAllStrips(file);
}

TEST_P(FaxOfReversedBits, IsReadAsRgbaLikeFromAFileOpenForReading) {
  const OpenedFile& expected = scene_.written({layout_}, "r");
  const OpenedFile& file = scene_.written({layout_}, "r+");
  EXPECT_EQ(bytesOf(call("readRGBAImage", file)), bytesOf(call("readRGBAImage", expected)));
}

TEST_P(FaxOfReversedBits, IsReadAfterOneOfItsStripsWasReplaced) {
  const OpenedFile& file = scene_.written({layout_}, "r+");
  writeBlock(file, layout_, 1);
  expectAllStrips(file);
}

class ReversedBits : public testing::Test {
 protected:
  static Layout reversed(Layout layout) {
    layout.more = [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_FILLORDER, FILLORDER_LSB2MSB); };
    return layout;
  }
  // Reads the first block of either directory, the second one's twice.
  void expectBothRead(const Layout& first, const Layout& second) {
    const OpenedFile& file = scene_.written({first, second});
    const char* read = second.tiled() ? "readEncodedTile" : "readEncodedStrip";
    EXPECT_EQ(bytesOf(call("readEncodedStrip", file, 0)), hostBytes(first, 0));
    call("setDirectory", file, 1);
    EXPECT_EQ(bytesOf(call(read, file, 0)), hostBytes(second, 0));
    EXPECT_EQ(bytesOf(call(read, file, 0)), hostBytes(second, 0));
    EXPECT_TRUE(warnings().empty());
  }
  Scene scene_;
};

TEST_F(ReversedBits, OfAStripAreReadAfterASmallerStrip) {
  expectBothRead({.width = 8}, reversed({.width = 60, .length = 60}));
}

TEST_F(ReversedBits, OfATileAreReadAfterASmallerStrip) {
  expectBothRead({.width = 8}, reversed({.width = 60, .tileWidth = 64, .tileLength = 32}));
}

TEST_F(ReversedBits, OfAnEncodedStripAreReadAfterAFaxStrip) {
  expectBothRead({.width = 8, .bits = 1, .compression = COMPRESSION_CCITTFAX4},
                 reversed({.width = 60, .length = 60, .compression = COMPRESSION_LZW}));
}

TEST_F(ReversedBits, OfAStripThatIsReadRowByRowAreReadAfterASmallerStrip) {
  expectBothRead({.width = 8}, reversed({.width = 4096, .length = 250, .rowsPerStrip = 200}));
}

TEST_F(ReversedBits, AreReadAsRgbaAfterASmallerStrip) {
  const Layout large = reversed({.width = 60, .length = 60});
  const OpenedFile& expected = scene_.written({large});
  const OpenedFile& file = scene_.written({{.width = 8}, large});
  call("readEncodedStrip", file, 0);
  call("setDirectory", file, 1);
  EXPECT_EQ(bytesOf(call("readRGBAImage", file)), bytesOf(call("readRGBAImage", expected)));
}

INSTANTIATE_TEST_SUITE_P(Codecs, WrittenFaxOfReversedBits,
                         testing::Values(COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4));

INSTANTIATE_TEST_SUITE_P(Codecs, FaxOfReversedBits,
                         testing::Values(COMPRESSION_CCITTRLE, COMPRESSION_CCITTFAX3,
                                         COMPRESSION_CCITTFAX4));

}  // namespace
}  // namespace tb::test

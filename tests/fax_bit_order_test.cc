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

INSTANTIATE_TEST_SUITE_P(Codecs, WrittenFaxOfReversedBits,
                         testing::Values(COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4));

INSTANTIATE_TEST_SUITE_P(Codecs, FaxOfReversedBits,
                         testing::Values(COMPRESSION_CCITTRLE, COMPRESSION_CCITTFAX3,
                                         COMPRESSION_CCITTFAX4));

}  // namespace
}  // namespace tb::test

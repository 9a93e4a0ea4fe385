// JPEG 2000 files cannot be written, but the rest of such a file can be edited; and what happens
// where the host has no codec for them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "gateway/cleanup.h"
#include "host/tiff_utilities.h"
#include "runtime/codec_hooks.h"
#include "runtime/codec_registration.h"
#include "tests/support/codestreams.h"
#include "tests/support/gateway_call.h"
#include "tests/support/scene.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using testing::IsEmpty;

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Jpeg2000Edit : public testing::Test {
 protected:
  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

const Layout kStrips{.length = 32, .compression = kJpeg2000, .rowsPerStrip = 16};
const Layout kTiles{.width = 32, .compression = kJpeg2000, .tileWidth = 16, .tileLength = 16};

TEST_F(Jpeg2000Edit, AStripIsNotWrittenAndTheFileStaysAsItWas) {
  writeJpeg2000(path_, kStrips);
  const std::string before = contentsOf(path_);
  {
    const OpenedFile file(path_, "r+");
    expectError<Tiff::stripWriteFailure>({2}, [&] {
      call("writeEncodedStrip", file, 1, zeros(vxUINT8, {16, 16}));
    });
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, 1)) == hostBytes(kStrips, 1));
    EXPECT_THAT(libtiffMessages(), IsEmpty());
  }
  EXPECT_EQ(contentsOf(path_), before);
}

TEST_F(Jpeg2000Edit, ATileIsNotWrittenAndTheFileStaysAsItWas) {
  writeJpeg2000(path_, kTiles);
  const std::string before = contentsOf(path_);
  {
    const OpenedFile file(path_, "r+");
    (void)call("readEncodedTile", file, 0);  // now libtiff does not set the codec up again
    expectError<Tiff::tileWritefailure>({1}, [&] {
      call("writeEncodedTile", file, 0, zeros(vxUINT8, {16, 16}));
    });
    EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 0)) == hostBytes(kTiles, 0));
  }
  EXPECT_EQ(contentsOf(path_), before);
}

TEST_F(Jpeg2000Edit, TagsOfSuchAFileCanBeChanged) {
  writeJpeg2000(path_, kTiles);
  {
    const OpenedFile file(path_, "r+");
    call("setField", file, TIFFTAG_IMAGEDESCRIPTION, "a slide");
    call("rewriteDirectory", file);
  }
  const OpenedFile file(path_, "r");
  EXPECT_EQ(textOf(call("getField", file, TIFFTAG_IMAGEDESCRIPTION)), "a slide");
  EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 1)) == hostBytes(kTiles, 1));
}

// Although its subsampling is set when it is opened.
TEST_F(Jpeg2000Edit, OpeningAFileForEditingDoesNotChangeIt) {
  Layout layout = kTiles;
  layout.samples = 3;
  layout.photometric = PHOTOMETRIC_YCBCR;
  writeJpeg2000(path_, layout, [](Coding& coding) { coding.dx = 2; });
  const std::string before = contentsOf(path_);
  {
    const OpenedFile file(path_, "r+");
    EXPECT_EQ(dimensionsOf(callFor(3, "readEncodedTile", file, 0)[1]), (Dimensions{16, 8}));
  }
  EXPECT_EQ(contentsOf(path_), before);
}

TEST_F(Jpeg2000Edit, NoTagChoosesItForWriting) {
  const OpenedFile file(path_, "w");
  setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
  for (const std::uint16_t scheme : {kJpeg2000YCbCr, kJpeg2000Rgb, kJpeg2000})
    expectError<Tiff::unsupportedCompressionScheme>(
        {scheme}, [&] { call("setField", file, TIFFTAG_COMPRESSION, scheme); });
}

TEST_F(Jpeg2000Edit, AnotherDirectoryCanBeAddedToSuchAFile) {
  writeJpeg2000(path_, kTiles);
  {
    const OpenedFile file(path_, "a");
    setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
    call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
    call("writeDirectory", file);
  }
  const OpenedFile file(path_, "r");
  EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 1)) == hostBytes(kTiles, 1));
}

TEST_F(Jpeg2000Edit, DirectoriesOfSeveralKindsCanBeVisitedInTurn) {
  writeJpeg2000(path_, kTiles);
  writeTiff(path_, {{}}, "a");
  const OpenedFile file(path_, "r");
  for (int turn = 0; turn < 3; ++turn) {
    call("setDirectory", file, 0);
    EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 1)) == hostBytes(kTiles, 1));
    call("setDirectory", file, 1);
    EXPECT_TRUE(bytesOf(call("readEncodedStrip", file, 0)) == hostBytes({}, 0));
  }
}

TEST_F(Jpeg2000Edit, TheDisputedCompressionIsUnsupported) {
  Layout layout = kTiles;
  layout.compression = 33004;
  writeJpeg2000(path_, layout);
  expectError<Tiff::unsupportedCompressionScheme>({33004}, [&] { call("open", path_, "r"); });
}

// --- Where the codec cannot hook into libtiff

std::optional<runtime::CodecHookPlaces> findNothing() {
  runtime::HookFingerprints fingerprints = runtime::kHookFingerprints;
  fingerprints.isFreshBuffer = [](const runtime::RawBuffer&, const void*, tmsize_t) {
    return false;
  };
  return runtime::findCodecHooks(fingerprints);
}

TEST_F(Jpeg2000Edit, WithoutHooksSuchAFileIsRefusedAndOthersAreRead) {
  unregisterJPEG2000Codecs();
  runtime::registerJpeg2000Codecs(findNothing);
  for (const std::uint16_t scheme : {kJpeg2000YCbCr, kJpeg2000Rgb, kJpeg2000}) {
    Layout layout = kTiles;
    layout.compression = scheme;
    writeJpeg2000(path_, layout);
    expectError<Tiff::unsupportedCompressionScheme>({scheme}, [&] { call("open", path_, "r"); });
  }
  writeTiff(path_, {{}});
  EXPECT_TRUE(bytesOf(call("readEncodedStrip", OpenedFile(path_, "r"), 0)) == hostBytes({}, 0));
  unregisterJPEG2000Codecs();
}

TEST_F(Jpeg2000Edit, CleanupForgetsTheCodecAndTheNextCallBringsItBack) {
  writeJpeg2000(path_, kTiles);
  { const OpenedFile file(path_, "r"); }
  EXPECT_NE(getCompressionScheme(kJpeg2000), "");
  TagBridgeCleanup();
  EXPECT_EQ(getCompressionScheme(kJpeg2000), "");
  const OpenedFile file(path_, "r");
  EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 1)) == hostBytes(kTiles, 1));
}

}  // namespace
}  // namespace tb::test

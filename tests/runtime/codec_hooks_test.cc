// Where the host's codecs hook into libtiff, and what registering them does.
#include "runtime/codec_hooks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <optional>
#include <thread>

#include "host/tiff_utilities.h"
#include "runtime/codec_registration.h"
#include "runtime/sanitizer.h"
#include "tests/support/codestreams.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using runtime::CodecHookPlaces;
using runtime::CodecHooks;
using runtime::findCodecHooks;
using runtime::HookFingerprints;
using runtime::kHookFingerprints;
using runtime::RawBuffer;

constexpr std::array kSchemes = {kJpeg2000YCbCr, kJpeg2000Rgb, kJpeg2000};

bool isAnyCodec(const CodecHooks&) { return true; }
bool isNoCodec(const CodecHooks&) { return false; }
bool isAnyBuffer(const RawBuffer&, const void*, tmsize_t) { return true; }
bool isNoBuffer(const RawBuffer&, const void*, tmsize_t) { return false; }

class CodecHooksTest : public testing::Test {
 protected:
  TiffHandle opened(const Layout& layout) const {
    writeTiff(path_, {layout});
    return openTiff(path_, "r");
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

TEST_F(CodecHooksTest, AreFoundAlwaysInTheSamePlaces) {
  const auto places = findCodecHooks();
  ASSERT_TRUE(places.has_value());
  EXPECT_EQ(findCodecHooks(), places);
}

TEST_F(CodecHooksTest, OfAnUncompressedFileHaveTheFingerprint) {
  const TiffHandle tif = opened({});
  const CodecHooks hooks = findCodecHooks().value().hooks(tif.get());
  EXPECT_TRUE(kHookFingerprints.isUncompressedCodec(hooks));
}

TEST_F(CodecHooksTest, OfACompressedFileDecodeByOtherFunctions) {
  const CodecHookPlaces places = findCodecHooks().value();
  const CodecHooks plain = places.hooks(opened({}).get());
  const CodecHooks packed = places.hooks(opened({.compression = COMPRESSION_LZW}).get());
  EXPECT_FALSE(kHookFingerprints.isUncompressedCodec(packed));
  EXPECT_NE(packed.decodeStrip, plain.decodeStrip);
  EXPECT_NE(packed.data, nullptr);
  EXPECT_EQ(packed.close, plain.close);
}

TEST_F(CodecHooksTest, RawBufferHoldsTheStripThatWasRead) {
  const Layout layout{.length = 30, .compression = COMPRESSION_PACKBITS, .rowsPerStrip = 10};
  const TiffHandle tif = opened(layout);
  (void)readBlock(tif.get(), 1);
  const RawBuffer raw = findCodecHooks().value().rawBuffer(tif.get());
  const Bytes strip = encodedBlock(tif.get(), 1);
  ASSERT_EQ(raw.loaded, static_cast<tmsize_t>(strip.size()));
  EXPECT_EQ(raw.left, 0);
  EXPECT_EQ(raw.next, raw.start + raw.loaded);
  EXPECT_TRUE(std::equal(strip.begin(), strip.end(), reinterpret_cast<std::byte*>(raw.start)));
}

TEST_F(CodecHooksTest, AreNotFoundWhereAFingerprintMatchesNowhereOrTwice) {
  const HookFingerprints good = kHookFingerprints;
  for (const HookFingerprints& bad : {HookFingerprints{isNoCodec, good.isFreshBuffer},
                                      HookFingerprints{isAnyCodec, good.isFreshBuffer},
                                      HookFingerprints{good.isUncompressedCodec, isNoBuffer},
                                      HookFingerprints{good.isUncompressedCodec, isAnyBuffer}})
    EXPECT_FALSE(findCodecHooks(bad).has_value());
}

// --- Registration

std::optional<CodecHookPlaces> findNothing() {
  return findCodecHooks({isNoCodec, kHookFingerprints.isFreshBuffer});
}

int otherCodec(TIFF*, int) { return 1; }

class Jpeg2000Codecs : public testing::Test {
 protected:
  ~Jpeg2000Codecs() override { unregisterJPEG2000Codecs(); }
};

TEST_F(Jpeg2000Codecs, AreKnownToLibtiffOnceRegistered) {
  for (const std::uint16_t scheme : kSchemes) EXPECT_EQ(getCompressionScheme(scheme), "") << scheme;
  for (int i = 0; i < 1000; ++i) registerJPEG2000Codecs();
  EXPECT_EQ(getCompressionScheme(kJpeg2000YCbCr), "JPEG 2000 YCbCr");
  EXPECT_EQ(getCompressionScheme(kJpeg2000Rgb), "JPEG 2000 RGB");
  EXPECT_EQ(getCompressionScheme(kJpeg2000), "JPEG 2000");
}

TEST_F(Jpeg2000Codecs, LeaveTheDisputedSchemeUnknown) {
  registerJPEG2000Codecs();
  EXPECT_EQ(TIFFIsCODECConfigured(33004), 0);
}

TEST_F(Jpeg2000Codecs, AreForgottenAndCanBeRegisteredAnew) {
  registerJPEG2000Codecs();
  unregisterJPEG2000Codecs();
  for (const std::uint16_t scheme : kSchemes) EXPECT_EQ(TIFFFindCODEC(scheme), nullptr) << scheme;
  registerJPEG2000Codecs();
  for (const std::uint16_t scheme : kSchemes) EXPECT_EQ(TIFFIsCODECConfigured(scheme), 1) << scheme;
}

TEST_F(Jpeg2000Codecs, LeaveASchemeThatIsDecodedAlready) {
  TIFFCodec* other = TIFFRegisterCODEC(kJpeg2000Rgb, "other", otherCodec);
  registerJPEG2000Codecs();
  EXPECT_EQ(getCompressionScheme(kJpeg2000Rgb), "other");
  EXPECT_NE(getCompressionScheme(kJpeg2000), "");
  unregisterJPEG2000Codecs();
  EXPECT_EQ(getCompressionScheme(kJpeg2000Rgb), "other");
  TIFFUnRegisterCODEC(other);
}

TEST_F(Jpeg2000Codecs, AreNotRegisteredWhereTheHooksAreNotFound) {
  runtime::registerJpeg2000Codecs(findNothing);
  for (const std::uint16_t scheme : kSchemes) EXPECT_EQ(TIFFFindCODEC(scheme), nullptr) << scheme;
}

TEST_F(Jpeg2000Codecs, AreSearchedForOnlyOnce) {
  runtime::registerJpeg2000Codecs(findNothing);
  registerJPEG2000Codecs();
  EXPECT_EQ(TIFFFindCODEC(kJpeg2000), nullptr);
}

std::atomic<bool> isSearching = false;
std::optional<CodecHookPlaces> findSlowly() {
  isSearching = true;
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  return std::nullopt;
}

// The child has no thread that could end what one of the parent's had begun.
TEST_F(Jpeg2000Codecs, CanBeRegisteredInAProcessThatWasForkedMeanwhile) {
  if (runtime::kAddressSanitizer) GTEST_SKIP() << "its allocator does not survive such a fork";
  std::thread other([] { runtime::registerJpeg2000Codecs(findSlowly); });
  while (!isSearching) std::this_thread::yield();
  const pid_t child = fork();
  if (child == 0) {
    alarm(10);
    unregisterJPEG2000Codecs();
    registerJPEG2000Codecs();
    _exit(TIFFIsCODECConfigured(kJpeg2000) == 1 ? 0 : 1);
  }
  other.join();
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace tb::test

// Any bytes as a JPEG 2000 codestream, behind a first byte that says what a TIFF directory adds to
// them. Sizes and samples of the directory are those of the codestream where it has some: otherwise
// hardly any input would get as far as OpenJPEG.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "fuzz/gateway_session.h"
#include "runtime/block_format.h"
#include "tests/support/raw_tiff.h"

// The entry that libFuzzer calls.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tb::fuzz {
namespace {

using runtime::CodestreamBytes;
using runtime::CodestreamSize;
using test::RawEntry;

// Bits of the first byte.
constexpr unsigned kCompression = 3, kIsYCbCr = 4, kIsTiled = 8, kReversesBits = 16, kCutsRows = 32,
                   kReadsRgba = 64;

// What the directory says of the codestream.
struct Image {
  std::uint32_t width = 16, length = 16;
  std::uint32_t samples = 1, bits = 8, format = SAMPLEFORMAT_UINT;
};

std::optional<CodestreamSize> sizeOf(CodestreamBytes codestream) try {
  return runtime::readCodestreamSize(runtime::findCodestream(codestream));
} catch (const runtime::CodestreamError&) {
  return std::nullopt;
}

Image imageOf(CodestreamBytes codestream) {
  constexpr std::uint64_t kMostPixels = 1 << 18;
  constexpr std::size_t kMostSamples = 8;
  const std::optional<CodestreamSize> size = sizeOf(codestream);
  if (!size || size->image.width() * size->image.height() > kMostPixels) return {};
  const runtime::CodestreamComponent& first = size->components.front();
  return {
      .width = static_cast<std::uint32_t>(size->image.width()),
      .length = static_cast<std::uint32_t>(size->image.height()),
      .samples = static_cast<std::uint32_t>(std::min(size->components.size(), kMostSamples)),
      .bits = first.precision == 8 ? 8U : 16U,
      .format = static_cast<std::uint32_t>(first.isSigned ? SAMPLEFORMAT_INT : SAMPLEFORMAT_UINT)};
}

std::uint32_t photometricOf(const Image& image, unsigned flags) {
  if (image.samples < 3) return PHOTOMETRIC_MINISBLACK;
  return (flags & kIsYCbCr) != 0 ? PHOTOMETRIC_YCBCR : PHOTOMETRIC_RGB;
}

std::vector<RawEntry> directoryOf(const Image& image, unsigned flags, std::uint32_t byteCount) {
  constexpr std::uint32_t kCompressions[] = {runtime::kJpeg2000YCbCr, runtime::kJpeg2000Rgb,
                                             runtime::kJpeg2000, runtime::kJpeg2000};
  const bool isTiled = (flags & kIsTiled) != 0;
  const std::uint32_t length = (flags & kCutsRows) != 0 ? (image.length + 1) / 2 : image.length;
  const std::uint32_t fillOrder = (flags & kReversesBits) != 0 ? 2 : 1;
  std::vector<RawEntry> entries{
      {TIFFTAG_IMAGEWIDTH, TIFF_LONG, {image.width}},
      {TIFFTAG_IMAGELENGTH, TIFF_LONG, {length}},
      {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, std::vector(image.samples, image.bits)},
      {TIFFTAG_COMPRESSION, TIFF_SHORT, {kCompressions[flags & kCompression]}},
      {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {photometricOf(image, flags)}},
      {TIFFTAG_FILLORDER, TIFF_SHORT, {fillOrder}},
      {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, {image.samples}},
      {TIFFTAG_SAMPLEFORMAT, TIFF_SHORT, std::vector(image.samples, image.format)}};
  const auto add = [&](std::uint16_t tag, std::uint32_t value) {
    test::replaceEntry(entries, {tag, TIFF_LONG, {value}});
  };
  add(isTiled ? TIFFTAG_TILEOFFSETS : TIFFTAG_STRIPOFFSETS, test::kDataOffset);
  add(isTiled ? TIFFTAG_TILEBYTECOUNTS : TIFFTAG_STRIPBYTECOUNTS, byteCount);
  add(isTiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, image.length);
  if (isTiled) add(TIFFTAG_TILEWIDTH, image.width);
  return entries;
}

}  // namespace
}  // namespace tb::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tb::fuzz;
  if (size < 2) return -1;
  const unsigned flags = data[0];
  const std::span codestream(data + 1, size - 1);
  const MemoryFile contents({});
  const auto* bytes = reinterpret_cast<const std::byte*>(codestream.data());
  tb::test::writeRawTiff(
      contents.name(),
      directoryOf(imageOf(codestream), flags, static_cast<std::uint32_t>(codestream.size())),
      {bytes, bytes + codestream.size()});

  const auto opened =
      call("open", {matrix::create(contents.name()).get(), matrix::create("rm").get()});
  if (!opened[0]) return 0;
  call((flags & kIsTiled) != 0 ? "readEncodedTile" : "readEncodedStrip",
       {opened[0].get(), number(0).get()});
  if ((flags & kReadsRgba) != 0) call("readRGBAImage", {opened[0].get()});
  call("close", {opened[0].get()});
  return 0;
}

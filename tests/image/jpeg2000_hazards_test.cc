// JPEG 2000 files that are not what they say: a codestream that contradicts the directory, that is
// cut off, or that would take much more memory than it has bytes. A block that cannot be decoded
// reads as zeros with one message of libtiff's.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <string>
#include <vector>

#include "runtime/memory.h"
#include "tests/support/codestreams.h"
#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

// Reads the block of a file with one block.
std::vector<std::byte> readOnlyBlock(const Input& file) {
  const bool tiled = numberFrom("isTiled", file) != 0;
  return bytesOf(call(tiled ? "readEncodedTile" : "readEncodedStrip", file, 0));
}

class Jpeg2000Hazards : public testing::Test {
 protected:
  void expectRefused(const Layout& layout, const Bytes& block, const std::string& reason) const {
    SCOPED_TRACE(reason);
    writeCodestreams(path_, layout, {block});
    const OpenedFile file(path_, "r");
    EXPECT_THAT(readOnlyBlock(file), Each(std::byte{0}));
    EXPECT_THAT(libtiffMessages(), ElementsAre(HasSubstr(reason)));
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

// --- Directory and codestream contradict each other

struct Contradiction {
  const char* name;
  Layout layout;
  Recode recode;
  const char* reason;
};
void PrintTo(const Contradiction& row, std::ostream* out) { *out << row.name; }

Layout gray(std::uint16_t bits = 8) { return {.bits = bits, .compression = kJpeg2000}; }
Layout rgb(std::uint16_t compression) {
  return {.samples = 3, .photometric = PHOTOMETRIC_RGB, .compression = compression};
}
Layout signedGray() { return {.format = SAMPLEFORMAT_INT, .compression = kJpeg2000}; }
Layout tile() { return {.compression = kJpeg2000, .tileWidth = 16, .tileLength = 16}; }
Layout strips() { return {.length = 16, .compression = kJpeg2000, .rowsPerStrip = 8}; }

class ContradictoryJpeg2000 : public Jpeg2000Hazards,
                              public testing::WithParamInterface<Contradiction> {};

TEST_P(ContradictoryJpeg2000, IsRefused) {
  const auto& [name, layout, recode, reason] = GetParam();
  expectRefused(layout, codestreamOf(layout, 0, recode), reason);
}

constexpr char kWidth[] = "its width is not that of the directory";
constexpr char kHeight[] = "its height is not that of the directory";
constexpr char kDepth[] = "its depth is not that of the directory";
constexpr char kSign[] = "its sign is not that of the directory";
constexpr char kComponents[] = "its number of components is not that of the directory";
constexpr char kSubsampling[] = "its subsampling is not that of the directory";

INSTANTIATE_TEST_SUITE_P(
    Rows, ContradictoryJpeg2000,
    testing::Values(
        Contradiction{"Narrower", gray(), [](Coding& c) { c.width = 15; }, kWidth},
        Contradiction{"Wider", gray(), [](Coding& c) { c.width = 17; }, kWidth},
        Contradiction{"Shorter", gray(), [](Coding& c) { c.height = 15; }, kHeight},
        Contradiction{"TallerThanTheOnlyStrip", gray(), [](Coding& c) { c.height = 17; }, kHeight},
        Contradiction{"TallerThanAStrip", strips(), [](Coding& c) { c.height = 9; }, kHeight},
        Contradiction{"NarrowerTile", tile(), [](Coding& c) { c.width = 15; }, kWidth},
        Contradiction{"ShorterTile", tile(), [](Coding& c) { c.height = 15; }, kHeight},
        Contradiction{"TallerTile", tile(), [](Coding& c) { c.height = 17; }, kHeight},
        Contradiction{"TooFewComponents", rgb(kJpeg2000Rgb), [](Coding& c) { c.components = 2; },
                      kComponents},
        Contradiction{"TooManyComponents", rgb(kJpeg2000Rgb), [](Coding& c) { c.components = 4; },
                      kComponents},
        Contradiction{"SevenBitsIn8", gray(), [](Coding& c) { c.precision = 7; }, kDepth},
        Contradiction{"TwelveBitsIn8", gray(), [](Coding& c) { c.precision = 12; }, kDepth},
        Contradiction{"EightBitsIn16", gray(16), [](Coding& c) { c.precision = 8; }, kDepth},
        Contradiction{"SignedForUnsigned", gray(), [](Coding& c) { c.isSigned = true; }, kSign},
        Contradiction{"UnsignedForSigned", signedGray(), [](Coding& c) { c.isSigned = false; },
                      kSign},
        Contradiction{"SubsampledRgb", rgb(kJpeg2000Rgb), [](Coding& c) { c.dx = 2; },
                      kSubsampling},
        Contradiction{"SubsampledBy3", rgb(kJpeg2000YCbCr), [](Coding& c) { c.dx = 3; },
                      "its subsampling is not one of TIFF"},
        Contradiction{"CornerWithinAUnit", rgb(kJpeg2000YCbCr),
                      [](Coding& c) { c.dx = 2, c.x0 = 1; }, "its image begins within a unit"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(Jpeg2000Hazards, YCbCrInPlanesCannotBecomeRgb) {
  Layout layout = rgb(kJpeg2000YCbCr);
  layout.planar = PLANARCONFIG_SEPARATE;
  expectRefused(layout, codestreamOf(layout, 0), "cannot become RGB samples");
}

TEST_F(Jpeg2000Hazards, ALaterCodestreamWithOtherSubsamplingIsRefused) {
  const Layout layout{.length = 32,
                      .samples = 3,
                      .photometric = PHOTOMETRIC_YCBCR,
                      .compression = kJpeg2000YCbCr,
                      .rowsPerStrip = 16,
                      .horizontal = 2,
                      .vertical = 1};
  const Bytes other = codestreamOf(layout, 1, [](Coding& c) { c.dx = c.dy = 2; });
  writeCodestreams(path_, layout, {codestreamOf(layout, 0), other});
  const OpenedFile file(path_, "r");
  (void)callFor(3, "readEncodedStrip", file, 1);
  EXPECT_THAT(libtiffMessages(), ElementsAre(HasSubstr(kSubsampling)));
}

TEST_F(Jpeg2000Hazards, SamplesThatJpeg2000CannotGiveAreRefused) {
  const Bytes block = codestreamOf(gray(), 0);
  expectRefused({.bits = 1, .compression = kJpeg2000}, block, "neither 8 nor 16 bits");
  expectRefused({.bits = 32, .compression = kJpeg2000}, block, "neither 8 nor 16 bits");
  writeCodestreams(path_, {.bits = 12, .compression = kJpeg2000}, {block});
  const OpenedFile file(path_, "r");
  expectError<Tiff::unhandledBitsPerSample>({12}, [&] { call("readEncodedStrip", file, 0); });
}

// --- Incomplete codestreams

std::vector<Bytes> completeBlocks() {
  const auto coded = [](const Recode& recode) { return codestreamOf(gray(), 0, recode); };
  return {coded({}), coded([](Coding& c) { c.isInBoxes = true; }),
          coded([](Coding& c) { c.tileWidth = c.tileHeight = 8; }),
          coded([](Coding& c) { c.layers = 2, c.tilePartsBy = 'L'; })};
}

TEST_F(Jpeg2000Hazards, EveryTruncationOfABlockIsRefused) {
  for (const Bytes& block : completeBlocks()) {
    std::vector<Bytes> strips;
    for (auto end = block.begin() + 1; end != block.end(); ++end)
      strips.emplace_back(block.begin(), end);
    Layout layout = gray();
    layout.rowsPerStrip = 16;
    layout.length = static_cast<std::uint32_t>(16 * strips.size());
    writeCodestreams(path_, layout, strips);
    const OpenedFile file(path_, "r");
    for (std::size_t strip = 0; strip < strips.size(); ++strip) {
      EXPECT_THAT(bytesOf(call("readEncodedStrip", file, strip)), Each(std::byte{0})) << strip;
      EXPECT_THAT(libtiffMessages(), ElementsAre(HasSubstr("cannot be decoded"))) << strip;
    }
  }
}

// The directory stands before the data, so that it survives what cuts the data off.
void writeDataLast(const std::filesystem::path& path, const Bytes& block) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {kJpeg2000}});
  replaceEntry(entries,
               {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {static_cast<std::uint32_t>(block.size())}});
  writeRawTiff(path, entries);
  const auto offset = static_cast<std::uint32_t>(std::filesystem::file_size(path));
  replaceEntry(entries, {TIFFTAG_STRIPOFFSETS, TIFF_LONG, {offset}});
  writeRawTiff(path, entries);
  std::ofstream(path, std::ios::binary | std::ios::app)
      .write(reinterpret_cast<const char*>(block.data()),
             static_cast<std::streamsize>(block.size()));
}

TEST_F(Jpeg2000Hazards, EveryTruncationOfAFilesDataIsRefused) {
  const Bytes block = codestreamOf(gray(), 0);
  writeDataLast(path_, block);
  EXPECT_TRUE(readOnlyBlock(OpenedFile(path_, "r")) == hostBytes(gray(), 0));
  const auto whole = std::filesystem::file_size(path_);
  for (std::uintmax_t missing = 1; missing <= block.size(); ++missing) {
    std::filesystem::resize_file(path_, whole - missing);
    for (const char* mode : {"r", "rm"}) {
      const OpenedFile file(path_, mode);
      EXPECT_THAT(readOnlyBlock(file), Each(std::byte{0})) << missing;
      EXPECT_THAT(libtiffMessages(), testing::SizeIs(1)) << missing;
    }
  }
}

constexpr std::size_t kTileBytes = 14;

Bytes marker(unsigned char low) { return {std::byte{0xFF}, std::byte{low}}; }

std::size_t placeOf(const Bytes& block, unsigned char markerLow, std::size_t from = 0) {
  const Bytes wanted = marker(markerLow);
  const auto found = std::search(block.begin() + static_cast<long>(from), block.end(),
                                 wanted.begin(), wanted.end());
  return static_cast<std::size_t>(found - block.begin());
}

// Puts a big-endian number over the bytes at a place.
void put(Bytes& block, std::size_t place, std::uint64_t number, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i)
    block[place + i] = static_cast<std::byte>(number >> (8 * (size - 1 - i)));
}

TEST_F(Jpeg2000Hazards, AMissingTileIsRefused) {
  Bytes block = codestreamOf(gray(), 0, [](Coding& c) { c.tileWidth = c.tileHeight = 8; });
  const std::size_t first = placeOf(block, 0x90), second = placeOf(block, 0x90, first + kTileBytes);
  block.erase(block.begin() + static_cast<long>(first), block.begin() + static_cast<long>(second));
  expectRefused(gray(), block, "a tile is missing");
}

TEST_F(Jpeg2000Hazards, AMissingPartOfATileIsRefused) {
  Bytes block = codestreamOf(gray(), 0, [](Coding& c) { c.layers = 2, c.tilePartsBy = 'L'; });
  const std::size_t second = placeOf(block, 0x90, placeOf(block, 0x90) + kTileBytes);
  block.erase(block.begin() + static_cast<long>(second), block.end() - 2);
  expectRefused(gray(), block, "a part of a tile is missing");
}

TEST_F(Jpeg2000Hazards, ALastTileWithoutALengthIsRead) {
  Bytes block = codestreamOf(gray(), 0);
  put(block, placeOf(block, 0x90) + 6, 0, 4);
  writeCodestreams(path_, gray(), {block});
  EXPECT_TRUE(readOnlyBlock(OpenedFile(path_, "r")) == hostBytes(gray(), 0));
}

TEST_F(Jpeg2000Hazards, BytesThatAreNoCodestreamAreRefused) {
  const Bytes zeros(300), ones(300, std::byte{0xFF});
  expectRefused(gray(), zeros, "it holds no JPEG 2000 codestream");
  expectRefused(gray(), ones, "it holds no JPEG 2000 codestream");
  Bytes boxes = codestreamOf(gray(), 0, [](Coding& c) { c.isInBoxes = true; });
  put(boxes, placeOf(boxes, 0x4F) - 4, 0x6A703264, 4);  // another box
  expectRefused(gray(), boxes, "its JP2 boxes hold no codestream");
}

// OpenJPEG looks for the next known marker inside it.
TEST_F(Jpeg2000Hazards, AnUnknownMarkerIsRefused) {
  Bytes block = codestreamOf(gray(), 0);
  Bytes segment = marker(0x6F);
  segment.insert(segment.end(), {std::byte{0}, std::byte{4}, std::byte{0}, std::byte{0}});
  const std::size_t place = placeOf(block, 0x90);
  block.insert(block.begin() + static_cast<long>(place), segment.begin(), segment.end());
  expectRefused(gray(), block, "unknown marker");
}

// --- Much memory from few bytes. SIZ and COD begin the codestream; where their numbers are:

constexpr std::size_t kImageWidth = 8, kImageHeight = 12, kTileWidth = 24, kTileHeight = 28;

TEST_F(Jpeg2000Hazards, MoreTilesThanBytesAreRefused) {
  const Layout layout{.width = 255, .length = 257, .compression = kJpeg2000};
  Bytes block = codestreamOf(layout, 0);
  put(block, kTileWidth, 1, 4);
  put(block, kTileHeight, 1, 4);
  block.resize(2700);
  expectRefused(layout, block, "more tiles than its data can hold");
}

TEST_F(Jpeg2000Hazards, MorePacketsThanBytesAreRefused) {
  Bytes block = codestreamOf(gray(), 0);
  put(block, placeOf(block, 0x52) + 6, 65535, 2);  // layers
  expectRefused(gray(), block, "more packets than bytes");
}

TEST_F(Jpeg2000Hazards, MorePacketsThanBytesInATileHeaderAreRefused) {
  Bytes block = codestreamOf(gray(), 0);
  const std::size_t style = placeOf(block, 0x52), tile = placeOf(block, 0x90);
  Bytes segment(block.begin() + static_cast<long>(style),
                block.begin() + static_cast<long>(style) + 14);
  put(segment, 6, 65535, 2);
  put(block, tile + 6, block.size() - 2 - tile + segment.size(), 4);
  block.insert(block.begin() + static_cast<long>(tile) + 12, segment.begin(), segment.end());
  expectRefused(gray(), block, "more packets than bytes");
}

TEST_F(Jpeg2000Hazards, MorePrecinctsThanBytesInOneComponentAreRefused) {
  const Layout layout{.width = 512, .length = 512, .samples = 2, .compression = kJpeg2000};
  Bytes block = codestreamOf(layout, 0, [](Coding& c) {
    c.compression = 100;
    c.resolutions = 1;
  });
  // Component 1 with precincts, one resolution, code-blocks of 64 x 64, precincts of 1 x 1.
  const unsigned char style[] = {0xFF, 0x53, 0, 10, 1, 1, 0, 4, 4, 0, 0, 0};
  Bytes segment(std::size(style));
  std::ranges::transform(style, segment.begin(), [](unsigned char c) { return std::byte{c}; });
  const std::size_t tile = placeOf(block, 0x90);
  block.insert(block.begin() + static_cast<long>(tile), segment.begin(), segment.end());
  expectRefused(layout, block, "more packets than bytes");
}

class LimitedMemory : public Jpeg2000Hazards {
 protected:
  explicit LimitedMemory(std::size_t bytes = 0) { runtime::setMemoryLimit(bytes); }
  ~LimitedMemory() override { runtime::setMemoryLimit(0); }
};

TEST_F(LimitedMemory, SamplesBeyondItAreRefused) {
  const Layout layout{.width = 512, .length = 512, .compression = kJpeg2000};
  const Bytes block = codestreamOf(layout, 0);
  runtime::setMemoryLimit(512 * 512 * 8 - 1);
  expectRefused(layout, block, "needs more memory than is allowed");
}

TEST_F(LimitedMemory, SmallCodeBlocksBeyondItAreRefused) {
  const Layout layout{.width = 512, .length = 512, .compression = kJpeg2000};
  const std::size_t limit = std::size_t{512} * 512 * 16;
  for (const auto& [codeBlock, isRead] : {std::pair{64, true}, std::pair{4, false}}) {
    const Bytes block =
        codestreamOf(layout, 0, [size = codeBlock](Coding& c) { c.codeBlock = size; });
    writeCodestreams(path_, layout, {block});
    runtime::setMemoryLimit(limit);
    const OpenedFile file(path_, "r");
    EXPECT_EQ(readOnlyBlock(file) == hostBytes(layout, 0), isRead) << codeBlock;
    runtime::setMemoryLimit(0);
  }
}

// --- The same where memory really ends. A process of its own reads the file and tells how it went:
// zeros and one message, or the exception of an allocation of the module's.

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kHasAddressSpaceToSpare = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kHasAddressSpaceToSpare = false;
#else
constexpr bool kHasAddressSpaceToSpare = true;
#endif
#else
constexpr bool kHasAddressSpaceToSpare = true;
#endif

[[noreturn]] void readInLittleMemory(const std::filesystem::path& path) {
  constexpr rlim_t kBytes = rlim_t{512} << 20;
  const rlimit limit{kBytes, kBytes};
  setrlimit(RLIMIT_AS, &limit);
  const OpenedFile file(path, "r");
  const vxArrayPtr array = call("readEncodedStrip", file, 0);
  const auto* bytes = static_cast<const std::byte*>(vxGetData(array.get()));
  const bool isZero = std::all_of(bytes, bytes + vxGetNumberOfElements(array.get()),
                                  [](std::byte byte) { return byte == std::byte{0}; });
  const bool isTold = libtiffMessages().size() == 1;
  std::fprintf(stderr, "%s\n", isTold ? libtiffMessages().front().c_str() : "not told once");
  _exit(isZero && isTold ? 0 : 1);
}

// A codestream of a few hundred bytes for any image: all packets of its tile are empty.
Bytes emptyCodestream(std::uint32_t width, std::uint32_t height, std::uint8_t codeBlock) {
  Bytes block = encodeCodestream({.width = 64, .height = 64, .resolutions = 1},
                                 [](auto, auto, auto) { return 128; });
  put(block, kImageWidth, width, 4);
  put(block, kImageHeight, height, 4);
  put(block, kTileWidth, width, 4);
  put(block, kTileHeight, height, 4);
  const std::size_t style = placeOf(block, 0x52);
  put(block, style + 10, codeBlock, 1);
  put(block, style + 11, codeBlock, 1);
  return block;
}

struct Bomb {
  const char* name;
  std::uint32_t width, height;
  std::uint8_t codeBlock;  // exponent less 2
};
void PrintTo(const Bomb& bomb, std::ostream* out) { *out << bomb.name; }

class Jpeg2000Bomb : public Jpeg2000Hazards, public testing::WithParamInterface<Bomb> {};

TEST_P(Jpeg2000Bomb, EndsInAMessageWhenMemoryEnds) {
  if (!kHasAddressSpaceToSpare) GTEST_SKIP() << "the sanitizer needs the address space";
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto& [name, width, height, codeBlock] = GetParam();
  writeCodestreams(path_, {.width = width, .length = height, .compression = kJpeg2000},
                   {emptyCodestream(width, height, codeBlock)});
  EXPECT_EXIT(readInLittleMemory(path_), testing::ExitedWithCode(0), "cannot be decoded");
}

INSTANTIATE_TEST_SUITE_P(Bombs, Jpeg2000Bomb,
                         testing::Values(Bomb{"ManySamples", 11000, 11000, 4},
                                         Bomb{"ManyMoreSamples", 13000, 13000, 4},
                                         Bomb{"OneRow", 100000000, 1, 4},
                                         Bomb{"OneColumn", 1, 100000000, 4},
                                         Bomb{"SmallCodeBlocks", 5000, 5000, 0}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace tb::test

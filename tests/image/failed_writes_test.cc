// A write that fails leaves the file as it was, and settings that libtiff does not follow lead to
// an identified error instead of its memory. AddressSanitizer is the judge of the latter.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "runtime/loader.h"
#include "runtime/memory.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Files of this process cannot grow beyond `bytes` in this scope.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::uintmax_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_);
  }

 private:
  rlimit before_{};
  void (*signal_)(int);
};

vxArrayPtr noise(const Dimensions& dimensions) {
  vxArrayPtr array = zeros(vxUINT8, dimensions);
  std::mt19937 random(7);
  auto* pixels = static_cast<std::uint8_t*>(vxGetWritableData(array.get()));
  for (std::size_t i = 0; i < vxGetNumberOfElements(array.get()); ++i) {
    pixels[i] = static_cast<std::uint8_t>(random());
  }
  return array;
}

struct FailedWrite {
  const char* name;
  bool tiled;
  int compression;
  const char* mode;  // of the first open
};

class FailedWrites : public testing::TestWithParam<FailedWrite> {
 protected:
  TemporaryFolder folder_;
};

Tags tagsOf(const FailedWrite& kind) {
  return also(
      kind.tiled ? tileTags(PHOTOMETRIC_MINISBLACK, 8, 1) : stripTags(PHOTOMETRIC_MINISBLACK, 8, 1),
      {{TIFFTAG_COMPRESSION, kind.compression},
       {TIFFTAG_IMAGELENGTH, 32},
       {TIFFTAG_ROWSPERSTRIP, 16}});
}

void write(const FailedWrite& kind, const Input& file, int block, const vxArrayPtr& image) {
  callFor(0, kind.tiled ? "writeEncodedTile" : "writeEncodedStrip", file, block, image);
}

vxArrayPtr read(const FailedWrite& kind, const Input& file, int block) {
  return call(kind.tiled ? "readEncodedTile" : "readEncodedStrip", file, block);
}

TEST_P(FailedWrites, OfAFullDiskLeaveTheFileAsItWas) {
  const FailedWrite& kind = GetParam();
  const auto path = folder_.path() / "image.tif";
  const vxArrayPtr gray = zeros(vxUINT8, {16, 16});
  std::memset(vxGetWritableData(gray.get()), 7, 256);
  {
    OpenedFile file(path, kind.mode);
    Tags tags = tagsOf(kind);
    if (kind.tiled) tags.pop_back();
    setFields(file, tags);
    write(kind, file, 0, gray);
    write(kind, file, 1, gray);
  }
  const std::string before = contentsOf(path);
  for (const std::size_t room : {0U, 50U}) {
    OpenedFile file(path, "r+");
    const FileSizeLimit limit(before.size() + room);
    // Noise takes more room than gray under every compression, so the block must move.
    EXPECT_ANY_THROW(write(kind, file, 0, noise({16, 16})));
    EXPECT_EQ(bytesOf(read(kind, file, 0)), bytesOf(gray));
    file.close();
    EXPECT_EQ(contentsOf(path), before) << room;
  }
}

TEST_P(FailedWrites, AreFollowedByGoodOnes) {
  const FailedWrite& kind = GetParam();
  const auto path = folder_.path() / "image.tif";
  const vxArrayPtr image = noise({16, 16});
  OpenedFile file(path, kind.mode);
  Tags tags = tagsOf(kind);
  if (kind.tiled) tags.pop_back();
  setFields(file, tags);
  {
    const FileSizeLimit limit(std::filesystem::file_size(path));
    EXPECT_ANY_THROW(write(kind, file, 1, image));
  }
  write(kind, file, 1, image);
  const vxArrayPtr again = read(kind, file, 1);
  EXPECT_EQ(std::memcmp(vxGetData(again.get()), vxGetData(image.get()), 256), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, FailedWrites,
    testing::Values(FailedWrite{"LzwStrips", false, COMPRESSION_LZW, "w"},
                    FailedWrite{"DeflateTiles", true, COMPRESSION_ADOBE_DEFLATE, "w"},
                    FailedWrite{"PackBitsStripsOfBigTiff", false, COMPRESSION_PACKBITS, "w8"},
                    FailedWrite{"LzwTilesInBigEndianOrder", true, COMPRESSION_LZW, "wb"}),
    [](const auto& test) { return test.param.name; });

class FailedJpegWrites : public testing::Test {
 protected:
  Scene scene_;
};

// 64 rows of 4:2:0 are more than libtiff's encoder takes from the array's own bytes.
Tags longStrips() {
  return {{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR},
          {TIFFTAG_IMAGEWIDTH, 512},
          {TIFFTAG_IMAGELENGTH, 256},
          {TIFFTAG_BITSPERSAMPLE, 8},
          {TIFFTAG_SAMPLESPERPIXEL, 3},
          {TIFFTAG_COMPRESSION, COMPRESSION_JPEG},
          {TIFFTAG_JPEGQUALITY, 100},
          {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG},
          {TIFFTAG_ROWSPERSTRIP, 64},
          {TIFFTAG_YCBCRSUBSAMPLING, row({2, 2})}};
}

TEST_F(FailedJpegWrites, LeaveNothingInTheFile) {
  const OpenedFile& file = scene_.fresh(longStrips());
  const std::filesystem::path path = TIFFFileName(file.handle());
  const auto before = std::filesystem::file_size(path);
  const vxArrayPtr y = noise({64, 512});
  const vxArrayPtr chroma = noise({32, 256});
  for (int strip = 0; strip < 4; ++strip) {
    expectError<Tiff::stripWriteFailure>(
        {strip + 1}, [&] { callFor(0, "writeEncodedStrip", file, strip, y, chroma, chroma); });
    EXPECT_EQ(TIFFGetStrileByteCount(file.handle(), static_cast<std::uint32_t>(strip)), 0U);
  }
  EXPECT_EQ(std::filesystem::file_size(path), before);
}

TEST(GrownImages, RefuseStripsThatLibtiffHasNoRoomFor) {
  Scene scene;
  const OpenedFile& file =
      scene.fresh(also(stripTags(PHOTOMETRIC_MINISBLACK, 8, 1), {{TIFFTAG_ROWSPERSTRIP, 1}}));
  const vxArrayPtr line = zeros(vxUINT8, {1, 16});
  callFor(0, "writeEncodedStrip", file, 0, line);
  callFor(0, "setField", file, TIFFTAG_IMAGELENGTH, 200000);

  expectError<Tiff::stripWriteFailure>(
      {150001}, [&] { callFor(0, "writeEncodedStrip", file, 150000, line); });
  callFor(0, "writeEncodedStrip", file, 16, line);  // the next one may be added
}

TEST(EditedTileLayout, KeepsTilesFromBeingReadByTheOldSize) {
  Scene scene;
  const OpenedFile& file =
      scene.written({{.width = 256, .length = 256, .tileWidth = 256, .tileLength = 256}}, "r+");
  callFor(0, "setField", file, TIFFTAG_TILEWIDTH, 16);
  callFor(0, "setField", file, TIFFTAG_TILELENGTH, 16);

  expectError<Tiff::tileReadErrorRGBA>({1, 1}, [&] { call("readRGBATile", file, 0, 0); });
  expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
  const vxArrayPtr tile = call("readEncodedTile", file, 0);
  EXPECT_EQ(std::string(static_cast<const char*>(vxGetData(tile.get())), 256),
            std::string(256, '\0'));
}

TEST(EditedTileLayout, IsForgottenWithTheDirectory) {
  Scene scene;
  const OpenedFile& file =
      scene.written({{.width = 64, .length = 64, .tileWidth = 64, .tileLength = 64}}, "r+");
  callFor(0, "setField", file, TIFFTAG_TILEWIDTH, 16);
  callFor(0, "setDirectory", file, 0);
  EXPECT_NE(call("readRGBATile", file, 0, 0), nullptr);
}

TEST(EditedTileLayout, OfTheSameValuesIsNoEdit) {
  Scene scene;
  const OpenedFile& file =
      scene.written({{.width = 64, .length = 64, .tileWidth = 64, .tileLength = 64}}, "r+");
  callFor(0, "setField", file, TIFFTAG_TILEWIDTH, 64);
  EXPECT_NE(call("readRGBATile", file, 0, 0), nullptr);
}

TEST(EditedTileLayout, OfAStrippedImageIsNotDecoded) {
  Scene scene;
  const OpenedFile& file = scene.written({{.width = 64, .length = 64}}, "r+");
  callFor(0, "setField", file, TIFFTAG_TILEWIDTH, 16);
  callFor(0, "setField", file, TIFFTAG_TILELENGTH, 16);
  EXPECT_THAT(bytesOf(call("readEncodedTile", file, 0)),
              testing::AllOf(testing::SizeIs(256), testing::Each(std::byte{0})));
}

TEST(RgbaOfAJpegBeingWritten, IsRefusedWhenTheCodecCannotBeSwitched) {
  Scene scene;
  const OpenedFile& file = scene.fresh({{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR},
                                        {TIFFTAG_IMAGEWIDTH, 64},
                                        {TIFFTAG_IMAGELENGTH, 64},
                                        {TIFFTAG_BITSPERSAMPLE, 8},
                                        {TIFFTAG_SAMPLESPERPIXEL, 3},
                                        {TIFFTAG_COMPRESSION, COMPRESSION_JPEG},
                                        {TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG},
                                        {TIFFTAG_ROWSPERSTRIP, 16},
                                        {TIFFTAG_YCBCRSUBSAMPLING, row({2, 2})}});
  const vxArrayPtr y = noise({16, 64});
  const vxArrayPtr chroma = noise({8, 32});
  for (int strip = 0; strip < 4; ++strip) {
    callFor(0, "writeEncodedStrip", file, strip, y, chroma, chroma);
  }
  expectError<Tiff::stripReadErrorRGBA>({1}, [&] { call("readRGBAStrip", file, 0); });
  expectError<Tiff::imageReadErrorRGBA>({}, [&] { call("readRGBAImage", file); });
}

TEST(EmptySubIfd, OfAFileThatIsOnlyLookedAtIsLeftAlone) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "image.tif";
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_SUBIFD, TIFF_LONG, {}});
  writeRawTiff(path, entries);
  const std::string before = contentsOf(path);
  OpenedFile(path, "r+").close();
  EXPECT_EQ(contentsOf(path), before);
}

TEST(EmptySubIfd, DoesNotCostADirectoryAfterARefusedTag) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "image.tif";
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_SUBIFD, TIFF_LONG, {}});
  writeRawTiff(path, entries);
  {
    const OpenedFile file(path, "r+");
    expectError<Tiff::unableToWriteTag>({"ICC Profile"}, [&] {
      callFor(0, "setField", file, TIFFTAG_ICCPROFILE, zeros(vxUINT8, {0, 0}));
    });
  }
  const OpenedFile again(path, "r");
  EXPECT_EQ(numberFrom("getField", again, TIFFTAG_IMAGEWIDTH), 16);
}

TEST(EmptySubIfd, DoesNotCostAnEditedDirectory) {
  const TemporaryFolder folder;
  const auto path = folder.path() / "image.tif";
  {
    OpenedFile file(path, "w");
    setFields(file, stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
    callFor(0, "writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
    callFor(0, "setField", file, TIFFTAG_SUBIFD, 0);
  }
  const OpenedFile again(path, "r");
  EXPECT_EQ(numberFrom("getField", again, TIFFTAG_IMAGEWIDTH), 16);
}

// --- Images of so many blocks that libtiff's tables of them would take gigabytes

std::size_t peakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

struct ManyBlocks {
  const char* name;
  bool tiled;
  const char* mode;
  double side;  // rows in strips of one row, or rows and columns in tiles
};

class TooManyBlocks : public testing::TestWithParam<ManyBlocks> {
 protected:
  Tags tags() const {
    const ManyBlocks& kind = GetParam();
    if (!kind.tiled)
      return also(stripTags(PHOTOMETRIC_MINISBLACK, 8, 1),
                  {{TIFFTAG_IMAGELENGTH, kind.side}, {TIFFTAG_ROWSPERSTRIP, 1}});
    return also(tileTags(PHOTOMETRIC_MINISBLACK, 8, 1),
                {{TIFFTAG_IMAGEWIDTH, kind.side}, {TIFFTAG_IMAGELENGTH, kind.side}});
  }
  Scene scene_;
};

TEST_P(TooManyBlocks, AreRefusedWithoutTouchingMemory) {
  const ManyBlocks& kind = GetParam();
  const OpenedFile& file = scene_.fresh(tags(), kind.mode);
  const std::size_t before = peakBytes();
  if (kind.tiled)
    expectError<Tiff::tileWritefailure>({1}, [&] {
      callFor(0, "writeEncodedTile", file, 0, zeros(vxUINT8, {16, 16}));
    });
  else
    expectError<Tiff::stripWriteFailure>({1}, [&] {
      callFor(0, "writeEncodedStrip", file, 0, zeros(vxUINT8, {1, 16}));
    });
  EXPECT_LT(peakBytes() - before, std::size_t{64} << 20);
}
INSTANTIATE_TEST_SUITE_P(Kinds, TooManyBlocks,
                         testing::Values(ManyBlocks{"Strips", false, "w", 500e6},
                                         ManyBlocks{"BigStrips", false, "w8", 250e6},
                                         ManyBlocks{"Tiles", true, "w", 262144},
                                         ManyBlocks{"BigTiles", true, "w8", 250000}),
                         [](const auto& test) { return test.param.name; });

// The encoder looks at the first eight bytes of tables, however few there are.
TEST(JpegWritesWithTooFewTables, FailAndLeaveTheFile) {
  const TemporaryFolder folder;
  const auto path = folder / "tables.tif";
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_JPEG}});
  replaceEntry(entries, {TIFFTAG_JPEGTABLES, TIFF_UNDEFINED, {0xFF, 0xD8, 0xFF, 0xD9}});
  writeRawTiff(path, entries, std::vector<std::byte>(256));
  const std::string before = contentsOf(path);
  {
    const OpenedFile file(path, "r+");
    expectError<Tiff::stripWriteFailure>({1}, [&] {
      call("writeEncodedStrip", file, 0, zeros(vxUINT8, {16, 16}));
    });
  }
  EXPECT_TRUE(contentsOf(path) == before);
}

// Undoing the write asks libtiff for the buffer again that it could not have.
TEST(WriteForWhichLibtiffFindsNoBuffer, IsToldOnce) {
  Scene scene;
  runtime::setMemoryLimit(std::size_t{1} << 20);
  const OpenedFile& file = scene.fresh({{TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK},
                                        {TIFFTAG_IMAGEWIDTH, 2048},
                                        {TIFFTAG_IMAGELENGTH, 1024},
                                        {TIFFTAG_BITSPERSAMPLE, 8},
                                        {TIFFTAG_SAMPLESPERPIXEL, 1},
                                        {TIFFTAG_COMPRESSION, COMPRESSION_LZW}});
  runtime::setMemoryLimit(0);
  EXPECT_ANY_THROW(callFor(0, "writeEncodedStrip", file, 0, zeros(vxUINT8, {1024, 2048})));
  const auto said = runtime::collectedDiagnostics();
  ASSERT_EQ(said.size(), 2U);
  EXPECT_NE(said[0].message, said[1].message);
}

// libtiff would set the encoder up at each of them and release one.
TEST(WritesWithAPredictorThatDoesNotFit, Fail) {
  Scene scene;
  for (const int compression : {COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE}) {
    const OpenedFile& file = scene.fresh(stripTags(PHOTOMETRIC_MINISBLACK, 8, 1));
    setFields(file, {{TIFFTAG_COMPRESSION, compression}, {TIFFTAG_PREDICTOR, 4}});
    for (int turn = 0; turn < 2; ++turn) {
      expectError<Tiff::stripWriteFailure>({1}, [&, &handle = file] {
        call("writeEncodedStrip", handle, 0, zeros(vxUINT8, {16, 16}));
      });
    }
  }
}

}  // namespace
}  // namespace tb::test

// Existing files opened with "r+" and "a": what is changed changes, and nothing else does. Files of
// several directories and with sub-directories are written through the module and walked again.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/file_content.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

using Bytes = std::vector<std::byte>;

// Every block of a directory as libtiff alone decodes it.
std::vector<Bytes> blocksOf(const std::filesystem::path& path, std::uint32_t directory) {
  const TiffHandle tif = openTiff(path, "rc");
  TIFFSetDirectory(tif.get(), directory);
  const std::uint32_t count =
      TIFFIsTiled(tif.get()) ? TIFFNumberOfTiles(tif.get()) : TIFFNumberOfStrips(tif.get());
  std::vector<Bytes> blocks;
  for (std::uint32_t block = 0; block < count; ++block)
    blocks.push_back(readBlock(tif.get(), block));
  return blocks;
}

// A text tag of a directory; "(none)" when it is absent.
std::string textTag(const std::filesystem::path& path, std::uint32_t directory, std::uint32_t tag) {
  const TiffHandle tif = openTiff(path, "r");
  TIFFSetDirectory(tif.get(), directory);
  const char* value = nullptr;
  return TIFFGetField(tif.get(), tag, &value) ? value : "(none)";
}

const std::vector<Layout> kPages = {
    {.width = 60, .length = 50, .rowsPerStrip = 16},
    {.width = 61, .length = 51, .bits = 16, .compression = COMPRESSION_LZW, .rowsPerStrip = 16},
    {.width = 62,
     .length = 52,
     .samples = 3,
     .photometric = PHOTOMETRIC_RGB,
     .tileWidth = 32,
     .tileLength = 32}};

class EditInPlace : public testing::Test {
 protected:
  EditInPlace() {
    writeTiff(path_, kPages);
    for (std::uint32_t page = 0; page < 3; ++page) before_.push_back(blocksOf(path_, page));
  }

  // Expects the pages to hold what they held, but for one block of one page.
  void expectUnchangedBut(std::uint32_t changedPage, std::size_t changedBlock) const {
    for (std::uint32_t page = 0; page < 3; ++page) {
      const std::vector<Bytes> now = blocksOf(path_, page);
      ASSERT_EQ(now.size(), before_[page].size());
      for (std::size_t block = 0; block < now.size(); ++block)
        if (page != changedPage || block != changedBlock) {
          EXPECT_TRUE(now[block] == before_[page][block]) << "page " << page << ", block " << block;
        }
    }
  }
  static constexpr std::uint32_t kNoPage = 99;

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "pages.tif";
  std::vector<std::vector<Bytes>> before_;
};

// --- Tags

TEST_F(EditInPlace, OpeningAndClosingChangesNothing) {
  const std::string before = contentOf(path_);
  { const OpenedFile file(path_, "r+"); }
  EXPECT_TRUE(contentOf(path_) == before);
}

TEST_F(EditInPlace, ReadingChangesNothing) {
  const std::string before = contentOf(path_);
  {
    const OpenedFile file(path_, "r+");
    for (int page = 0; page < 3; ++page) {
      call("setDirectory", file, page);
      call("retrieveMetadata", file);
      call("readRGBAImage", file);
      call("getField", file, TIFFTAG_IMAGEWIDTH);
    }
  }
  EXPECT_TRUE(contentOf(path_) == before);
}

TEST_F(EditInPlace, RewrittenTagOfOnePageLeavesPixelsAndOtherPages) {
  for (std::uint32_t page = 0; page < 3; ++page) {
    const OpenedFile file(path_, "r+");
    call("setDirectory", file, page);
    call("setField", file, TIFFTAG_IMAGEDESCRIPTION, "page " + std::to_string(page));
    call("rewriteDirectory", file);
  }
  expectUnchangedBut(kNoPage, 0);
  for (std::uint32_t page = 0; page < 3; ++page) {
    EXPECT_EQ(textTag(path_, page, TIFFTAG_IMAGEDESCRIPTION), "page " + std::to_string(page));
    EXPECT_EQ(textTag(path_, page, TIFFTAG_ARTIST), "(none)");
  }
  EXPECT_EQ(TIFFNumberOfDirectories(openTiff(path_, "r").get()), 3U);
}

TEST_F(EditInPlace, TagSetWithoutRewritingIsStoredByClose) {
  {
    const OpenedFile file(path_, "r+");
    call("setField", file, TIFFTAG_ARTIST, "somebody");
  }
  EXPECT_EQ(textTag(path_, 0, TIFFTAG_ARTIST), "somebody");
  expectUnchangedBut(kNoPage, 0);
}

TEST_F(EditInPlace, RefusedTagChangesNothing) {
  const std::string before = contentOf(path_);
  {
    const OpenedFile file(path_, "r+");
    EXPECT_ANY_THROW(call("setField", file, TIFFTAG_ORIENTATION, 9));
    EXPECT_ANY_THROW(call("setField", file, TIFFTAG_IMAGEWIDTH, 0));
    EXPECT_ANY_THROW(call("setField", file, TIFFTAG_COMPRESSION, 9));
  }
  EXPECT_TRUE(contentOf(path_) == before);
}

TEST_F(EditInPlace, RewritingTwiceKeepsTheChain) {
  {
    const OpenedFile file(path_, "r+");
    for (const char* software : {"first", "second"}) {
      call("setDirectory", file, 1);
      call("setField", file, TIFFTAG_SOFTWARE, software);
      call("rewriteDirectory", file);
    }
  }
  EXPECT_EQ(textTag(path_, 1, TIFFTAG_SOFTWARE), "second");
  EXPECT_EQ(TIFFNumberOfDirectories(openTiff(path_, "r").get()), 3U);
  expectUnchangedBut(kNoPage, 0);
}

// --- Blocks

// A block's array with every byte turned over.
vxArrayPtr turnedOver(const Layout& layout, std::uint32_t block) {
  std::vector<vxArrayPtr> arrays = arraysOf(layout, block);
  auto* bytes = static_cast<unsigned char*>(vxGetWritableData(arrays[0].get()));
  for (std::size_t i = 0; i < bytesOf(arrays[0]).size(); ++i)
    bytes[i] = static_cast<unsigned char>(~bytes[i]);
  return std::move(arrays[0]);
}

struct BlockOfPage {
  std::uint32_t page, block;
};

class EditBlock : public EditInPlace, public testing::WithParamInterface<BlockOfPage> {};

TEST_P(EditBlock, OneBlockIsReplacedAndNoOther) {
  const auto& [page, block] = GetParam();
  const Layout& layout = kPages[page];
  const vxArrayPtr image = turnedOver(layout, block);
  {
    const OpenedFile file(path_, "r+");
    call("setDirectory", file, page);
    call(layout.tiled() ? "writeEncodedTile" : "writeEncodedStrip", file, block, image);
  }
  expectUnchangedBut(page, block);
  const OpenedFile file(path_, "r");
  call("setDirectory", file, page);
  const char* operation = layout.tiled() ? "readEncodedTile" : "readEncodedStrip";
  EXPECT_TRUE(bytesOf(call(operation, file, block)) == bytesOf(image));
}

INSTANTIATE_TEST_SUITE_P(Blocks, EditBlock,
                         testing::Values(BlockOfPage{0, 0}, BlockOfPage{0, 3}, BlockOfPage{1, 0},
                                         BlockOfPage{1, 2}, BlockOfPage{2, 0}, BlockOfPage{2, 3}),
                         [](const auto& test) {
                           return "Page" + std::to_string(test.param.page) + "Block" +
                                  std::to_string(test.param.block);
                         });

TEST_F(EditInPlace, UncompressedBlockIsReplacedWhereItLies) {
  std::uint64_t offset = 0;
  {
    const TiffHandle tif = openTiff(path_, "rc");
    offset = TIFFGetStrileOffset(tif.get(), 1);
  }
  {
    const OpenedFile file(path_, "r+");
    call("writeEncodedStrip", file, 1, turnedOver(kPages[0], 1));
  }
  EXPECT_EQ(TIFFGetStrileOffset(openTiff(path_, "rc").get(), 1), offset);
}

// --- Appending

TEST_F(EditInPlace, AppendedDirectoryComesLast) {
  const Layout fourth{.width = 63, .length = 20};
  {
    const OpenedFile file(path_, "a");
    setFields(file, tagsOf(fourth));
    writeBlocks(file, fourth);
    call("writeDirectory", file);
  }
  EXPECT_EQ(TIFFNumberOfDirectories(openTiff(path_, "r").get()), 4U);
  expectUnchangedBut(kNoPage, 0);
  EXPECT_TRUE(blocksOf(path_, 3).at(0) == blockBytes(fourth, 0));
}

// --- Several directories and pyramids from scratch

// The width of the current directory, which tells the directories of these tests apart.
double width(const Input& file) { return numberFrom("getField", file, TIFFTAG_IMAGEWIDTH); }

TEST(Directories, OfManyKindsAreWrittenAndWalkedAgain) {
  const TemporaryFolder folder;
  {
    const OpenedFile file(folder / "file.tif", "w");
    for (const Layout& layout : kPages) {
      setFields(file, tagsOf(layout));
      writeBlocks(file, layout);
      call("writeDirectory", file);
    }
  }
  const OpenedFile file(folder / "file.tif", "r");
  for (std::uint32_t page = 0; page < 3; ++page) {
    EXPECT_EQ(numberFrom("currentDirectory", file), page + 1.0);
    EXPECT_EQ(width(file), kPages[page].width);
    EXPECT_EQ(numberFrom("lastDirectory", file), page == 2 ? 1 : 0);
    for (std::uint32_t block = 0; block < blockCount(kPages[page]); ++block)
      EXPECT_TRUE(bytesOf(call(kPages[page].tiled() ? "readEncodedTile" : "readEncodedStrip", file,
                               block)) == hostBytes(kPages[page], block));
    if (page < 2) call("readDirectory", file);
  }
}

class Pyramid : public testing::TestWithParam<const char*> {
 protected:
  // Two images, each with two reduced ones in its sub-directories.
  void write() const {
    const OpenedFile file(path_, GetParam());
    for (const std::uint32_t side : {64U, 128U}) {
      writeLevel(file, side, true);
      writeLevel(file, side / 2, false);
      writeLevel(file, side / 4, false);
    }
  }
  static void writeLevel(const OpenedFile& file, std::uint32_t side, bool withSubDirectories) {
    const Layout layout = level(side);
    setFields(file, tagsOf(layout));
    if (withSubDirectories) call("setField", file, TIFFTAG_SUBIFD, 2);
    writeBlocks(file, layout);
    call("writeDirectory", file);
  }
  static Layout level(std::uint32_t side) {
    return {.width = side,
            .length = side,
            .compression = COMPRESSION_ADOBE_DEFLATE,
            .tileWidth = 16,
            .tileLength = 16};
  }
  static void expectLevel(const Input& file, std::uint32_t side) {
    const Layout layout = level(side);
    EXPECT_EQ(width(file), side);
    for (std::uint32_t tile = 0; tile < blockCount(layout); ++tile)
      EXPECT_TRUE(bytesOf(call("readEncodedTile", file, tile)) == hostBytes(layout, tile));
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "pyramid.tif";
};

TEST_P(Pyramid, IsWrittenAndWalkedAgain) {
  write();
  const OpenedFile file(path_, "r");
  for (const std::uint32_t side : {64U, 128U}) {
    const int directory = side == 64 ? 0 : 1;
    call("setDirectory", file, directory);
    expectLevel(file, side);
    const auto offsets = elementsOf<std::uint64_t>(call("getField", file, TIFFTAG_SUBIFD));
    ASSERT_EQ(offsets.size(), 2U);
    for (const std::size_t reduced : {1U, 0U}) {
      call("setDirectory", file, directory);
      call("setSubDirectory", file, scalar(offsets[reduced]));
      expectLevel(file, side / (reduced == 0 ? 2 : 4));
    }
  }
  EXPECT_EQ(TIFFNumberOfDirectories(openTiff(path_, "r").get()), 2U);
}

TEST_P(Pyramid, TagOfASubDirectoryIsRewrittenInPlace) {
  write();
  {
    const OpenedFile file(path_, "r+");
    call("setDirectory", file, 1);
    const auto offsets = elementsOf<std::uint64_t>(call("getField", file, TIFFTAG_SUBIFD));
    call("setSubDirectory", file, scalar(offsets.at(0)));
    call("writeEncodedTile", file, 0, zeros(vxUINT8, {16, 16}));
  }
  const OpenedFile file(path_, "r");
  call("setDirectory", file, 1);
  expectLevel(file, 128);
  const auto offsets = elementsOf<std::uint64_t>(call("getField", file, TIFFTAG_SUBIFD));
  call("setSubDirectory", file, scalar(offsets.at(0)));
  EXPECT_EQ(width(file), 64);
  EXPECT_EQ(bytesOf(call("readEncodedTile", file, 0)), Bytes(256));
  EXPECT_TRUE(bytesOf(call("readEncodedTile", file, 1)) == hostBytes(level(64), 1));
}

INSTANTIATE_TEST_SUITE_P(Modes, Pyramid, testing::Values("wl", "wb", "wl8", "wb8"));

}  // namespace
}  // namespace tb::test

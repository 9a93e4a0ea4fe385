// Opening files by UTF-16 name: what is no file name or no mode opens nothing, nothing blocks, and
// no file that is open here loses its contents.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/tiff_utilities.h"
#include "runtime/loader.h"
#include "runtime/memory.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using runtime::collectedDiagnostics;
using testing::HasSubstr;
namespace fs = std::filesystem;

class OpenByName : public testing::Test {
 protected:
  void SetUp() override {
    TIFFSetErrorHandler(ZQTIFFerrHandler);
    TIFFSetWarningHandler(ZQTIFFwarnHandler);
    ZQTIFFinitializeErrorStack();
  }
  ~OpenByName() override { ZQTIFFinitializeErrorStack(); }

  static TiffHandle open(const fs::path& path, const char* mode) {
    return TiffHandle(tiffutils::UOpen(path.u16string(), mode));
  }
  fs::path imageFile(const char* name = "image.tif") {
    fs::path path = folder_ / name;
    writeTiff(path, {Layout{}});
    SetUp();  // the file was made with other handlers
    return path;
  }
  // What was said, when it was one message.
  static std::string reason() {
    const auto said = collectedDiagnostics();
    return said.size() == 1 ? said.front().message : std::to_string(said.size()) + " messages";
  }

  TemporaryFolder folder_;
  const runtime::GatewayScope inside_;
};

constexpr std::size_t kMemoryLimit = std::size_t{1025} << 20;

int descriptorCount() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/fd")) ++count;
  return count;
}

bool isMapped(const fs::path& path) {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);)
    if (line.find(path.filename()) != std::string::npos) return true;
  return false;
}

TEST_F(OpenByName, ReachesTheFileSystemAsUtf8) {
  const std::u16string name = (folder_.path() / "").u16string() + u"\u00e9\u4e2d\xd83d\xde00.tif";
  const TiffHandle tif(tiffutils::UOpen(name, "w"));
  ASSERT_NE(tif, nullptr);
  const std::string utf8 = (folder_ / "\u00e9\u4e2d\U0001F600.tif").string();
  EXPECT_EQ(TIFFFileName(tif.get()), utf8);
  EXPECT_TRUE(fs::exists(utf8));
}

TEST_F(OpenByName, RefusesWhatIsNoText) {
  const std::u16string folder = (folder_.path() / "").u16string();
  for (const std::u16string& name :
       {folder + u"a\xd800.tif", folder + u"\xdc00\xd800.tif", folder + u"a\xd83d"}) {
    EXPECT_EQ(tiffutils::UOpen(name, "w"), nullptr);
    EXPECT_THAT(reason(), HasSubstr("not valid UTF-16"));
  }
  EXPECT_TRUE(fs::is_empty(folder_.path()));
}

TEST_F(OpenByName, RefusesANameThatANulWouldCut) {
  const fs::path path = imageFile();
  EXPECT_EQ(tiffutils::UOpen(path.u16string() + std::u16string(u"\0x", 2), "r"), nullptr);
  EXPECT_THAT(reason(), HasSubstr("NUL"));
}

TEST_F(OpenByName, SaysWhyAFileCannotBeOpened) {
  EXPECT_EQ(open(folder_ / "absent.tif", "r"), nullptr);
  EXPECT_THAT(reason(), HasSubstr("absent.tif: No such file or directory"));
  ZQTIFFinitializeErrorStack();
  EXPECT_EQ(open("", "r"), nullptr);
  EXPECT_THAT(reason(), HasSubstr("No such file or directory"));
}

TEST_F(OpenByName, SaysTheSameOnceHoweverOftenItIsTried) {
  const fs::path notTiff = folder_ / "text.tif";
  std::ofstream(notTiff) << "no image at all";
  for (int attempt = 0; attempt < 11; ++attempt) {
    EXPECT_EQ(open(folder_ / "absent.tif", "r"), nullptr);
  }
  for (int attempt = 0; attempt < 11; ++attempt) EXPECT_EQ(open(notTiff, "r"), nullptr);
  ASSERT_EQ(collectedDiagnostics().size(), 2U);
  EXPECT_THAT(collectedDiagnostics()[1].message, HasSubstr("Not a TIFF"));
}

TEST_F(OpenByName, RefusesADirectory) {
  for (const char* mode : {"r", "r+", "w", "a"}) {
    EXPECT_EQ(open(folder_.path(), mode), nullptr) << mode;
    EXPECT_THAT(reason(), HasSubstr("Is a directory"));
  }
}

TEST_F(OpenByName, DoesNotWaitForAFifo) {
  const fs::path fifo = folder_ / "fifo.tif";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const char* mode : {"r", "r+", "w", "a"}) {
    EXPECT_EQ(open(fifo, mode), nullptr) << mode;
    EXPECT_THAT(reason(), HasSubstr("Not a regular file"));
  }
}

TEST_F(OpenByName, RefusesADevice) {
  EXPECT_EQ(open("/dev/null", "r"), nullptr);
  EXPECT_THAT(reason(), HasSubstr("Not a regular file"));
}

TEST_F(OpenByName, LeavesNoDescriptorBehind) {
  const fs::path notTiff = folder_ / "text.tif";
  std::ofstream(notTiff) << "no image at all";
  const fs::path image = imageFile();
  const int before = descriptorCount();
  EXPECT_EQ(open(notTiff, "r"), nullptr);
  EXPECT_EQ(open(folder_.path(), "r"), nullptr);
  EXPECT_NE(open(image, "r"), nullptr);
  EXPECT_EQ(descriptorCount(), before);
}

TEST_F(OpenByName, DoesNotPassDescriptorsToChildren) {
  const TiffHandle tif = open(imageFile(), "r");
  ASSERT_NE(tif, nullptr);
  EXPECT_NE(fcntl(TIFFFileno(tif.get()), F_GETFD) & FD_CLOEXEC, 0);
}

// --- Modes

class GoodMode : public OpenByName, public testing::WithParamInterface<const char*> {};

TEST_P(GoodMode, OpensTheFile) {
  EXPECT_NE(open(imageFile(), GetParam()), nullptr);
  EXPECT_THAT(collectedDiagnostics(), testing::IsEmpty());
}
INSTANTIATE_TEST_SUITE_P(Modes, GoodMode,
                         testing::Values("r", "r+", "a", "w", "w8", "wl", "wb", "w4", "rm", "rM",
                                         "rc", "rC", "rL", "rH", "rB", "rb", "a8"));

class BadMode : public OpenByName, public testing::WithParamInterface<const char*> {};

TEST_P(BadMode, OpensNothing) {
  const fs::path path = imageFile();
  const auto size = fs::file_size(path);
  EXPECT_EQ(open(path, GetParam()), nullptr);
  EXPECT_THAT(reason(), HasSubstr("Bad mode \"" + std::string(GetParam()) + "\""));
  EXPECT_EQ(fs::file_size(path), size);
}
INSTANTIATE_TEST_SUITE_P(Modes, BadMode,
                         testing::Values("", "x", "R", "+", " r", "rw", "w+", "a+", "r++", "rz",
                                         "read", "b"));

class IgnoredFlag : public OpenByName, public testing::WithParamInterface<const char*> {};

TEST_P(IgnoredFlag, IsAWarning) {
  EXPECT_NE(open(imageFile(), (std::string("r") + GetParam()).c_str()), nullptr);
  EXPECT_THAT(reason(), HasSubstr(std::string("letters \"") + GetParam() + "\""));
  EXPECT_TRUE(collectedDiagnostics()[0].warning);
}
INSTANTIATE_TEST_SUITE_P(Modes, IgnoredFlag, testing::Values("D", "O", "DO", "h"));

TEST_F(OpenByName, DropsFlagsThatLibtiffCannotBear) {
  const fs::path path = imageFile();
  // With the directory left unread, as 'h' asks, there would be no width.
  std::uint32_t width = 0;
  EXPECT_EQ(TIFFGetField(open(path, "rh").get(), TIFFTAG_IMAGEWIDTH, &width), 1);
  EXPECT_EQ(width, Layout{}.width);
}

TEST_F(OpenByName, PassesFlagsOn) {
  EXPECT_NE(TIFFIsBigTIFF(open(folder_ / "big.tif", "w8").get()), 0);
  EXPECT_NE(TIFFIsBigEndian(open(folder_ / "msb.tif", "wb").get()), 0);
}

TEST_F(OpenByName, MapsFilesThatAreOnlyRead) {
  const fs::path path = imageFile("unusual-name.tif");
  {
    const TiffHandle tif = open(path, "r");
    EXPECT_TRUE(isMapped(path));
  }
  EXPECT_FALSE(isMapped(path));
  const TiffHandle unmapped = open(path, "rm");
  EXPECT_FALSE(isMapped(path));
  const TiffHandle writable = open(path, "r+");
  EXPECT_FALSE(isMapped(path));
}

// More than 32 bits can count or map.
TEST_F(OpenByName, ReachesBlocksBeyond4GiB) {
  constexpr off_t kBeyond = off_t{5} << 30;
  const fs::path path = folder_ / "large.tif";
  std::vector<std::byte> block = blockBytes({}, 0);
  const auto size = static_cast<tmsize_t>(block.size());
  {
    const TiffHandle tif = open(path, "w8");
    setLayout(tif.get(), {});
    ASSERT_EQ(ftruncate(TIFFFileno(tif.get()), kBeyond), 0);
    ASSERT_EQ(TIFFWriteEncodedStrip(tif.get(), 0, block.data(), size), size);
  }
  for (const char* mode : {"r", "rm", "r+"}) {
    const TiffHandle tif = open(path, mode);
    ASSERT_NE(tif, nullptr) << mode;
    EXPECT_GE(TIFFGetStrileOffset(tif.get(), 0), std::uint64_t{kBeyond});
    std::vector<std::byte> read(block.size());
    EXPECT_EQ(TIFFReadEncodedStrip(tif.get(), 0, read.data(), size), size) << mode;
    EXPECT_TRUE(read == block) << mode;
  }
}

TEST_F(OpenByName, AppendsToWhatIsThereAndCreatesWhatIsNot) {
  const fs::path path = imageFile();
  writeImage(open(path, "a").get(), {});
  EXPECT_EQ(TIFFNumberOfDirectories(open(path, "r").get()), 2U);
  writeImage(open(folder_ / "new.tif", "a").get(), {});
  EXPECT_EQ(TIFFNumberOfDirectories(open(folder_ / "new.tif", "r").get()), 1U);
}

TEST_F(OpenByName, DoesNotCreateFilesForReading) {
  EXPECT_EQ(open(folder_ / "absent.tif", "r+"), nullptr);
  EXPECT_FALSE(fs::exists(folder_ / "absent.tif"));
}

TEST_F(OpenByName, CreatesFilesWithTheUsualPermissions) {
  const mode_t mask = umask(027);
  EXPECT_NE(open(folder_ / "new.tif", "w"), nullptr);
  umask(mask);
  struct stat status;
  ASSERT_EQ(stat((folder_ / "new.tif").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(OpenByName, LimitsSingleAllocations) {
  const fs::path path = folder_ / "long.tif";
  Layout layout;
  layout.more = [](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, std::string(100000, 'x').c_str());
  };
  writeTiff(path, {layout});
  SetUp();
  char* text = nullptr;
  EXPECT_EQ(TIFFGetField(open(path, "r").get(), TIFFTAG_IMAGEDESCRIPTION, &text), 1);
  runtime::setMemoryLimit(50000);
  EXPECT_EQ(TIFFGetField(open(path, "r").get(), TIFFTAG_IMAGEDESCRIPTION, &text), 0);
  runtime::setMemoryLimit(0);
}

struct Allowance {
  const char* mode;
  std::size_t most;
};

class SingleAllocations : public OpenByName, public testing::WithParamInterface<Allowance> {};

// libtiff makes a buffer as large as it is told.
TEST_P(SingleAllocations, HaveALimitThatFollowsFromTheMode) {
  const auto& [mode, most] = GetParam();
  runtime::setMemoryLimit(kMemoryLimit);
  const TiffHandle tif =
      open(std::string_view(mode) == "w" ? folder_ / "new.tif" : imageFile(), mode);
  runtime::setMemoryLimit(0);
  ASSERT_NE(tif, nullptr);
  const auto size = static_cast<tmsize_t>(most);
  EXPECT_EQ(TIFFWriteBufferSetup(tif.get(), nullptr, size), 1);
  EXPECT_EQ(TIFFWriteBufferSetup(tif.get(), nullptr, size + 1), 0);
}

INSTANTIATE_TEST_SUITE_P(Modes, SingleAllocations,
                         testing::Values(Allowance{"r", std::size_t{256} << 20},
                                         Allowance{"r+", std::size_t{1} << 30},
                                         Allowance{"w", kMemoryLimit},
                                         Allowance{"a", kMemoryLimit}),
                         [](const auto& test) {
                           const std::string_view mode = test.param.mode;
                           return std::string(mode == "r+" ? "update" : mode);
                         });

// --- Files that are open here

class FileInUse : public OpenByName, public testing::WithParamInterface<const char*> {};

TEST_P(FileInUse, IsNotTruncated) {
  const fs::path path = imageFile();
  const TiffHandle reader = open(path, GetParam());
  const auto size = fs::file_size(path);
  EXPECT_EQ(open(path, "w"), nullptr);
  EXPECT_THAT(reason(), HasSubstr("is open"));
  EXPECT_EQ(fs::file_size(path), size);
}

TEST_P(FileInUse, IsRecognisedByAnotherName) {
  const fs::path path = imageFile(), link = folder_ / "link.tif", hard = folder_ / "hard.tif";
  fs::create_symlink(path, link);
  fs::create_hard_link(path, hard);
  const TiffHandle reader = open(path, GetParam());
  EXPECT_EQ(open(link, "w"), nullptr);
  EXPECT_EQ(open(hard, "w"), nullptr);
}
INSTANTIATE_TEST_SUITE_P(Modes, FileInUse, testing::Values("r", "rm", "r+", "a"));

TEST_F(OpenByName, TruncatesAFileThatWasClosed) {
  const fs::path path = imageFile();
  open(path, "r").reset();
  EXPECT_NE(open(path, "w"), nullptr);
}

// The number of the closed descriptor goes to the next open of the same file.
TEST_F(OpenByName, TruncatesAFileThatOthersHaveOpen) {
  const fs::path path = imageFile();
  TiffHandle reader = open(path, "r");
  const int number = TIFFFileno(reader.get());
  reader.reset();
  const int other = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(other, number);
  EXPECT_NE(open(path, "w"), nullptr);
  close(other);
}

TEST_F(OpenByName, ReadsAFileTwiceAtOnce) {
  const fs::path path = imageFile();
  const TiffHandle first = open(path, "r"), second = open(path, "r");
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
}

}  // namespace
}  // namespace tb::test

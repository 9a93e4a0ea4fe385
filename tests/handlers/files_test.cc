#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <ostream>
#include <string>

#include "core/open_files.h"
#include "gateway/cleanup.h"
#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using std::chrono::steady_clock;

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator first("/proc/self/fd"), last;
  return static_cast<std::size_t>(std::distance(first, last));
}

class Open : public testing::Test {
 protected:
  Open() { writeTiff(path_, {Layout{}}); }

  // How long a failing open takes.
  static std::chrono::milliseconds timeToFail(const Input& file, const Input& mode,
                                              const std::u16string& name) {
    const auto start = steady_clock::now();
    expectError<Tiff::unableToOpenFile>({name}, [&] { call("open", file, mode); });
    return std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "gray.tif";
};

TEST_F(Open, MissingFileIsTriedElevenTimesATenthOfASecondApart) {
  const std::filesystem::path missing = folder_ / "missing.tif";
  const auto duration = timeToFail(missing, "r", missing.u16string());
  EXPECT_GE(duration.count(), 1000);
  EXPECT_LT(duration.count(), 1100 + 900) << "more pauses than ten";
}

TEST_F(Open, ExistingFileIsOpenedWithoutPause) {
  const auto start = steady_clock::now();
  const OpenedFile file(path_, "r");
  EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(100));
}

TEST_F(Open, FileNameThatIsNotTextIsRefusedBeforeAnyAttempt) {
  const auto start = steady_clock::now();
  for (const auto& name : {row({1, 2}), row({}), scalar<std::uint16_t>(65), cellOfTexts({"a.tif"})})
    expectError<Tiff::argumentWasNotChar>({"file"}, [&] { call("open", name, "r"); });
  EXPECT_LT(steady_clock::now() - start, std::chrono::milliseconds(500));
}

TEST_F(Open, ModeThatIsNotTextIsRefused) {
  for (const auto& mode : {row({114}), scalar<std::uint8_t>(114), cellOfTexts({"r"})})
    expectError<Tiff::argumentWasNotChar>({"access mode"}, [&] { call("open", path_, mode); });
}

TEST_F(Open, FileNameIsLookedAtBeforeTheMode) {
  expectError<Tiff::argumentWasNotChar>({"file"}, [] { call("open", 1, 2); });
}

class OpenNamed : public Open, public testing::WithParamInterface<const char16_t*> {};

TEST_P(OpenNamed, ReachesTheFileSystemUnchanged) {
  const std::filesystem::path name = folder_ / std::filesystem::path(GetParam());
  writeTiff(name, {Layout{.width = 3}});
  const OpenedFile file(path_, "r");
  const vxArrayPtr id = call("open", text(name.u16string()), "r");
  EXPECT_EQ(std::string(TIFFFileName(getFileID(id.get()))), name.string());
  call("close", id);
}

INSTANTIATE_TEST_SUITE_P(Names, OpenNamed,
                         testing::Values(u"plain.tif", u"stra\u00DFe.tif", u"\u6E2C\u5730.tif",
                                         u"\U0001F6F0.tif"));

TEST_F(Open, NonAsciiNameIsTheErrorsArgumentAsUtf16) {
  const std::u16string name = (folder_ / u"\u6E2C.tif").u16string();
  timeToFail(text(name), "r", name);
}

TEST_F(Open, NameThatIsNoFileNameOpensNothingElse) {
  const std::u16string cut = path_.u16string() + u'\0' + u"more";
  const std::u16string unpaired = path_.u16string() + u'\xD800';
  timeToFail(text(cut), "r", cut);
  timeToFail(text(unpaired), "r", unpaired);
}

TEST_F(Open, FolderAndPipeAreRefusedWithoutBlocking) {
  const std::filesystem::path pipe = folder_ / "pipe.tif";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_LT(timeToFail(pipe, "r", pipe.u16string()).count(), 3000);
  EXPECT_LT(timeToFail(folder_.path(), "r", folder_.path().u16string()).count(), 3000);
}

TEST_F(Open, FileThatIsNoTiffIsRefused) {
  const std::filesystem::path other = folder_ / "other.tif";
  writeRawTiff(other, {});
  std::filesystem::resize_file(other, 3);
  timeToFail(other, "r", other.u16string());
}

TEST_F(Open, WritingAnewDoesNotTruncateAFileThatIsOpenHere) {
  const auto size = std::filesystem::file_size(path_);
  const OpenedFile reader(path_, "r");
  timeToFail(path_, "w", path_.u16string());
  EXPECT_EQ(std::filesystem::file_size(path_), size);
}

TEST_F(Open, UnknownCompressionIsNamedAndLeavesNothingOpen) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {60000}});
  writeRawTiff(folder_ / "odd.tif", entries, std::vector<std::byte>(16));
  const std::size_t before = openDescriptors();
  expectError<Tiff::unsupportedCompressionScheme>({60000},
                                                  [&] { call("open", folder_ / "odd.tif", "r"); });
  EXPECT_EQ(openDescriptors(), before);

  clearRecord();
  TagBridgeCleanup();
  EXPECT_TRUE(warnings().empty()) << "the refused file was in the registry";
}

TEST_F(Open, EveryModeThatLibtiffKnowsChecksTheCompression) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {60000}});
  writeRawTiff(folder_ / "odd.tif", entries, std::vector<std::byte>(16));
  for (const char* mode : {"r", "r+", "rm", "rc"}) {
    SCOPED_TRACE(mode);
    expectError<Tiff::unsupportedCompressionScheme>(
        {60000}, [&] { call("open", folder_ / "odd.tif", mode); });
  }
}

struct Mode {
  const char* mode;
  bool accepted;
};
void PrintTo(const Mode& value, std::ostream* out) { *out << '"' << value.mode << '"'; }
class OpenMode : public Open, public testing::WithParamInterface<Mode> {};

TEST_P(OpenMode, IsTakenOrRefused) {
  const auto& [mode, accepted] = GetParam();
  if (accepted) {
    EXPECT_NE(call("open", path_, mode), nullptr);
    TagBridgeCleanup();
  } else {
    timeToFail(path_, mode, path_.u16string());
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, OpenMode,
                         testing::Values(Mode{"r", true}, Mode{"r+", true}, Mode{"a", true},
                                         Mode{"w", true}, Mode{"wl", true}, Mode{"w8", true},
                                         Mode{"rm", true}, Mode{"rhDO", true}, Mode{"", false},
                                         Mode{"R", false}, Mode{"x", false}, Mode{"+r", false}));

TEST_F(Open, WritingAnewWorksOnceTheFileIsClosed) {
  const std::filesystem::path fresh = folder_ / "fresh.tif";
  for (int turn = 0; turn < 3; ++turn) {
    const OpenedFile file(fresh, "w");
    writeImage(file.handle(), Layout{});
  }
  EXPECT_EQ(TIFFNumberOfDirectories(openTiff(fresh, "r").get()), 1U);
}

TEST_F(Open, NewFileIsReadyForWritingAndClosesToNothing) {
  const std::filesystem::path fresh = folder_ / "fresh.tif";
  OpenedFile file(fresh, "w");
  EXPECT_NE(file.handle(), nullptr);
  EXPECT_NO_THROW(file.close());
  EXPECT_TRUE(std::filesystem::exists(fresh));
}

TEST_F(Open, LibtiffsComplaintsAreNotReportedWhenOpenFails) {
  const std::filesystem::path missing = folder_ / "missing.tif";
  timeToFail(missing, "r", missing.u16string());
  EXPECT_TRUE(warnings().empty());
}

TEST_F(Open, IdentifierIsDroppedButTheFileRegisteredWhenThereIsNoSlot) {
  TagBridgeCleanup();
  callFor(0, "open", path_, "r");
  clearRecord();
  TagBridgeCleanup();
  EXPECT_EQ(moduleWarnings(),
            std::vector<Message>{warningOf(Warning::closingFileHandle, {path_.u16string()})});
}

TEST_F(Open, ClosingWritesWhatIsPending) {
  const std::filesystem::path copy = folder_ / "copy.tif";
  std::filesystem::copy_file(path_, copy);
  {
    const OpenedFile file(copy, "r+");
    TIFFSetField(file.handle(), TIFFTAG_SOFTWARE, "tests");
  }
  const TiffHandle tif = openTiff(copy, "r");
  const char* software = nullptr;
  ASSERT_EQ(TIFFGetField(tif.get(), TIFFTAG_SOFTWARE, &software), 1);
  EXPECT_STREQ(software, "tests");
}

// The descriptor is gone already, as it is when the system says only now that a disk is full.
TEST_F(Open, CloseThatTheSystemRefusesIsAWarning) {
  for (const char* mode : {"r", "r+"}) {
    const OpenedFile file(path_, mode);
    close(TIFFFileno(file.handle()));
    call("close", file);
    EXPECT_THAT(libtiffMessages(), testing::ElementsAre(testing::HasSubstr("Bad file descriptor")));
  }
}

}  // namespace
}  // namespace tb::test

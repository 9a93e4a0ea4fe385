// A file that somebody else cuts off, or replaces by another, while it is open here to be edited:
// every call ends in a result or an identified error, and what has taken the file's place is left
// alone.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "gateway/cleanup.h"
#include "tests/support/file_content.h"
#include "tests/support/scene.h"

namespace tb::test {
namespace {

const Layout kStrips{.width = 60, .length = 50, .rowsPerStrip = 10};

struct Act {
  const char* name;
  std::function<void(OpenedFile&)> run;
};

// Whether the call succeeds is libtiff's to say; an exception that is no identified error, or one
// that the host was not told of, is none of the two.
void attempt(const std::function<void()>& act) {
  try {
    act();
  } catch (const std::exception&) {
    EXPECT_EQ(reportedErrors().size(), 1U);
  }
}

void storeText(const Input& file) {
  attempt([&] { call("setField", file, TIFFTAG_IMAGEDESCRIPTION, std::string(300, 'x')); });
}

void storeStrip(const Input& file) {
  attempt([&] { call("writeEncodedStrip", file, 2, zeros(vxUINT8, {10, 60})); });
}

const Act kActs[] = {
    {"rewriteDirectory",
     [](OpenedFile& file) { attempt([&] { call("rewriteDirectory", file); }); }},
    {"writeEncodedStrip", [](OpenedFile& file) { storeStrip(file); }},
    {"readAndMove",
     [](OpenedFile& file) {
       attempt([&] { call("readEncodedStrip", file, 4); });
       attempt([&] { call("setDirectory", file, 1); });
       attempt([&] { call("readRGBAImage", file); });
     }},
    {"writeDirectory", [](OpenedFile& file) { attempt([&] { call("writeDirectory", file); }); }},
    {"close", [](OpenedFile& file) { attempt([&] { file.close(); }); }},
    {"cleanup", [](OpenedFile&) { TagBridgeCleanup(); }},
};

struct Case {
  Act act;
  const char* mode;
};

std::vector<Case> cases() {
  std::vector<Case> made;
  for (const Act& act : kActs)
    for (const char* mode : {"r+", "a"}) made.push_back({act, mode});
  return made;
}

class ChangedFile : public testing::TestWithParam<Case> {
 protected:
  ChangedFile() { writeTiff(path_, {kStrips, kStrips}); }

  // Begins to edit, lets the change happen, and goes on.
  void edit(const std::function<void()>& change) const {
    OpenedFile file(path_, GetParam().mode);
    storeText(file);
    if (GetParam().mode == std::string("r+")) storeStrip(file);
    change();
    GetParam().act.run(file);
    storeStrip(file);
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

TEST_P(ChangedFile, CutOffIsAnErrorOrAResult) {
  const std::uintmax_t size = std::filesystem::file_size(path_);
  for (const std::uintmax_t kept :
       {std::uintmax_t{0}, std::uintmax_t{4}, std::uintmax_t{100}, size / 2, size - 20, size - 1}) {
    SCOPED_TRACE(kept);
    writeTiff(path_, {kStrips, kStrips});
    edit([&] { std::filesystem::resize_file(path_, kept); });
  }
}

TEST_P(ChangedFile, ReplacedByAnotherLeavesThatAlone) {
  const std::filesystem::path other = folder_ / "other.tif";
  writeTiff(other, {Layout{.width = 20}});
  const std::string before = contentOf(other);
  edit([&] { std::filesystem::rename(other, path_); });
  EXPECT_TRUE(contentOf(path_) == before);
}

INSTANTIATE_TEST_SUITE_P(Acts, ChangedFile, testing::ValuesIn(cases()), [](const auto& test) {
  return test.param.act.name + std::string(test.param.mode == std::string("a") ? "Append" : "Edit");
});

}  // namespace
}  // namespace tb::test

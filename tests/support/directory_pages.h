// What tests of written directories have in common: a file of three pages.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/file_content.h"
#include "tests/support/scene.h"

namespace tb::test {

inline const std::vector<Layout> kPages = {{.width = 30}, {.width = 31}, {.width = 32}};

inline std::vector<std::uint32_t> widthsOf(const std::filesystem::path& path) {
  std::vector<std::uint32_t> widths;
  const TiffHandle tif = openTiff(path, "r");
  if (tif == nullptr) return widths;
  do {
    std::uint32_t width = 0;
    TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &width);
    widths.push_back(width);
  } while (TIFFReadDirectory(tif.get()));
  return widths;
}

class DirectoryWrites : public testing::Test {
 protected:
  DirectoryWrites() { writeTiff(path_, kPages); }
  void expectUnchanged(const std::string& before) const {
    EXPECT_TRUE(contentOf(path_) == before);
    EXPECT_THAT(widthsOf(path_), testing::ElementsAre(30, 31, 32));
  }
  Message notWritten() const {
    return warningOf(Warning::directoryNotWritten, {path_.u16string()});
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "pages.tif";
};

}  // namespace tb::test

// What tests of moves between directories have in common.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <vector>

#include "tests/support/gateway_call.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {

// Gray images of widths 10, 11 and 12.
inline const std::vector<Layout> kThreeDirectories = {
    {.width = 10, .length = 100, .rowsPerStrip = 30},
    {.width = 11, .length = 100, .tileWidth = 64, .tileLength = 64},
    {.width = 12}};

class Directories : public testing::Test {
 protected:
  std::filesystem::path write(const std::vector<Layout>& layouts) const {
    writeTiff(folder_ / "file.tif", layouts);
    return folder_ / "file.tif";
  }
  static std::uint32_t widthOf(const OpenedFile& file) {
    std::uint32_t width = 0;
    TIFFGetField(file.handle(), TIFFTAG_IMAGEWIDTH, &width);
    return width;
  }

  TemporaryFolder folder_;
};

}  // namespace tb::test

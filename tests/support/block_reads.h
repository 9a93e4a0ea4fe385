// What tests of block reads have in common.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "tests/support/gateway_call.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {

struct Size {
  std::uint32_t width, length;
};

inline const char* readOperation(const Layout& layout) {
  return layout.tiled() ? "readEncodedTile" : "readEncodedStrip";
}

class ReadBlocks : public testing::Test {
 protected:
  std::filesystem::path write(const std::vector<Layout>& layouts, const char* mode = "w") const {
    writeTiff(path_, layouts, mode);
    return path_;
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "image.tif";
};

}  // namespace tb::test

// What tests of block writes have in common.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <vector>

#include "tests/support/scene.h"

namespace tb::test {

using Bytes = std::vector<std::byte>;

struct Size {
  std::uint32_t width, length;
};

// Finishes a file and opens it with libtiff alone.
inline TiffHandle reopened(const OpenedFile& file) {
  const std::filesystem::path path = TIFFFileName(file.handle());
  call("close", file);
  return openTiff(path, "r");
}

class WriteBlocks : public testing::Test {
 protected:
  const OpenedFile& fresh(const Layout& layout) { return scene_.fresh(tagsOf(layout)); }

  Scene scene_;
};

inline vxArrayPtr numbered(std::size_t rows, std::size_t columns, std::size_t planes = 1) {
  return image<std::uint8_t>(rows, columns, planes, [](auto r, auto c, auto s) {
    return static_cast<std::uint8_t>(r * 7 + c * 3 + s * 101 + 1);
  });
}

}  // namespace tb::test

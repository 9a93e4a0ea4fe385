// Files for tests that need many of them, each in one expression: written with libtiff, written as
// raw entries, or fresh and given tags through the module.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {

using Tags = std::vector<Tag>;

// What makes an image of 16 x 16 pixels in one strip or one tile writable, in an order that the
// setters accept; 0 samples leaves bits and samples away. `also` appends.
Tags stripTags(int photometric, int bits, int samples);
Tags tileTags(int photometric, int bits, int samples);
Tags also(Tags tags, const Tags& more);

// The tags of a layout, in an order that the setters accept. Samples beyond those of a gray image
// are declared as extra samples.
Tags tagsOf(const Layout& layout);

// The class of a layout's samples, and the arrays of a block: Y, Cb and Cr, or one.
vxClassID classOf(const Layout& layout);
std::vector<vxArrayPtr> arraysOf(const Layout& layout, std::uint32_t block);

// Writes one block, or all of them, through the module.
void writeBlock(const Input& file, const Layout& layout, std::uint32_t block);
void writeBlocks(const Input& file, const Layout& layout);

class Scene {
 public:
  // A new file open for writing, with tags set through "setField".
  const OpenedFile& fresh(const Tags& tags = {}, const char* mode = "w");
  // Files of the given directories or entries, opened through the module.
  const OpenedFile& written(const std::vector<Layout>& directories, const char* mode = "r");
  const OpenedFile& raw(const std::vector<RawEntry>& entries, const char* mode = "r");

  const TemporaryFolder& folder() const noexcept { return folder_; }

 private:
  std::filesystem::path nextPath();
  const OpenedFile& open(const std::filesystem::path& path, const char* mode);

  TemporaryFolder folder_;
  std::vector<std::unique_ptr<OpenedFile>> files_;
};

}  // namespace tb::test

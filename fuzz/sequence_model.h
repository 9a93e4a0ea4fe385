// What must hold of a file whatever is done to it through the module: its directories as libtiff
// alone reads them, and what was done to each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "fuzz/finding.h"
#include "host/array.h"

namespace tb::fuzz {

// A directory as libtiff alone reads it. Blocks that it cannot decode, and those of a large image,
// are empty.
struct Page {
  bool readable = false;
  std::vector<std::uint32_t> layout;
  std::string description;
  std::vector<std::vector<std::byte>> blocks;
  std::vector<Page> subPages;

  bool operator==(const Page&) const = default;
};

// The directories of the main chain; nothing when libtiff does not open the file.
std::optional<std::vector<Page>> pagesOf(const std::string& name);

// What is known of a directory.
struct Expected {
  std::optional<Page> before;  // when the file was opened; nothing for a new one
  bool written = false;        // a new one holds an image: a block was written
  bool layoutEdited = false;   // then no more is known than that it is there
  bool described = false;
  std::set<std::uint32_t> touchedBlocks;
  std::set<std::uint32_t> stored;              // blocks that libtiff must be able to decode
  std::map<std::uint32_t, vxArrayPtr> blocks;  // what reading these blocks must return
  std::map<int, std::string> texts;            // and these tags

  // A block is stored, with whatever success.
  void touch(std::uint32_t block) {
    touchedBlocks.insert(block);
    stored.erase(block);
    blocks.erase(block);
  }

  // Forgets what must be read back, but not what was touched.
  void forgetValues() {
    stored.clear();
    blocks.clear();
    texts.clear();
  }
};

// The same class, dimensions and elements.
bool sameArray(const vxArray* a, const vxArray* b);

// Checks a closed file: that libtiff alone still reads what was not edited and decodes what was
// written, and that the module reads what was written.
void checkPages(const std::string& name, const std::vector<Expected>& pages);

}  // namespace tb::fuzz

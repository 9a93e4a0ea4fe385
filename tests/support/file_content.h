// The bytes of a file.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tb::test {

inline std::string contentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace tb::test

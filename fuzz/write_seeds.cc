// Writes the small files of every kind that libtiff can write, for a fuzzer to start from.
//
//   write_seeds FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz/sequence_files.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: write_seeds FOLDER\n");
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  for (const tb::fuzz::StartingFile& start : tb::fuzz::startingFiles()) {
    std::ofstream file(folder / (std::string(start.name) + ".tif"), std::ios::binary);
    file.write(reinterpret_cast<const char*>(start.contents.data()),
               static_cast<std::streamsize>(start.contents.size()));
    if (!file.flush()) return 1;
  }
  return 0;
}

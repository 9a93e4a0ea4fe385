// Writes the small files of every kind that libtiff can write, for a fuzzer to start from: as they
// are, and for each access mode of fuzz_read with a last byte that chooses it.
//
//   write_seeds FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "fuzz/read_modes.h"
#include "fuzz/sequence_files.h"

namespace {

using tb::fuzz::Bytes;

bool write(const std::filesystem::path& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return static_cast<bool>(file.flush());
}

// Objects that are read and edited, with a fault that begins when they are open.
bool writeObjects(const std::filesystem::path& path, Bytes bytes) {
  constexpr unsigned kFaults = 8;
  constexpr unsigned char kFirstFaulty = 20, kObject = 14;
  bytes.insert(bytes.end(), {kFirstFaulty, kObject});
  for (unsigned fault = 0; fault < kFaults; ++fault) {
    bytes.back() = static_cast<unsigned char>(fault << tb::fuzz::kFaultShift | kObject);
    if (!write(path.string() + ".object" + std::to_string(fault), bytes)) return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: write_seeds FOLDER\n");
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  for (const tb::fuzz::StartingFile& start : tb::fuzz::startingFiles()) {
    const std::string name = start.name;
    if (!write(folder / (name + ".tif"), start.contents)) return 1;
    Bytes bytes = start.contents;
    bytes.push_back(0);
    std::set<std::string> modes;
    for (const char* const mode : tb::fuzz::kReadModes) {
      if (modes.insert(mode).second && !write(folder / (name + "." + mode), bytes)) return 1;
      ++bytes.back();
    }
    if (!writeObjects(folder / name, start.contents)) return 1;
  }
  return 0;
}

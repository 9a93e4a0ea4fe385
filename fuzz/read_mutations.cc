// Mutations of TIFF files, from a seed, through the function of fuzz_read: bits that are flipped,
// files that are cut off, fields that are damaged or exchanged; they are read, and edited in the
// modes that allow it.
//
//   read_mutations [COUNT [SEED [KEEP]]]   run COUNT mutations; those that fail go into KEEP
//
// The files are those of the folder that TAGBRIDGE_CORPUS names, up to 1 MiB each, and the small
// ones that sequences start from.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/file_damage.h"
#include "fuzz/seeded_runs.h"
#include "fuzz/sequence_files.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using tb::fuzz::Bytes;

constexpr std::uintmax_t kLargestFile = 1 << 20;
constexpr std::uint64_t kMutations = 20000;
constexpr std::uint64_t kMostChanges = 4;

std::vector<std::filesystem::path> corpusPaths() {
  const char* const folder = std::getenv("TAGBRIDGE_CORPUS");
  std::vector<std::filesystem::path> paths;
  if (folder == nullptr) return paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string ending = entry.path().extension();
    if ((ending == ".tif" || ending == ".tiff") && entry.file_size() <= kLargestFile)
      paths.push_back(entry.path());
  }
  std::ranges::sort(paths);
  return paths;
}

std::vector<Bytes> originals() {
  std::vector<Bytes> files;
  for (const auto& path : corpusPaths()) {
    std::ifstream file(path, std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  for (const tb::fuzz::StartingFile& start : tb::fuzz::startingFiles())
    files.push_back(start.contents);
  return files;
}

// One change or a few, each of any kind, and mostly a byte more, which chooses the access mode.
Bytes mutated(Bytes bytes, std::uint64_t seed, std::uint64_t index) {
  std::mt19937_64 random = tb::fuzz::randomOf(seed, index);
  for (std::uint64_t changes = 1 + random() % kMostChanges; changes > 0; --changes) {
    const bool swaps = random() % 4 == 0;
    (swaps ? tb::fuzz::swapFields : tb::fuzz::damage)(bytes, static_cast<std::uint32_t>(random()));
  }
  if (random() % 4 > 0) bytes.push_back(static_cast<unsigned char>(random()));
  return bytes;
}

void run(const Bytes& bytes) { (void)LLVMFuzzerTestOneInput(bytes.data(), bytes.size()); }

}  // namespace

int main(int argc, char** argv) {
  using namespace tb::fuzz;
  const std::vector<Bytes> files = originals();
  const std::uint64_t count = argumentOr(argc, argv, 1, kMutations);
  const std::uint64_t seed = argumentOr(argc, argv, 2, 1);
  std::printf("%zu files\n", files.size());
  const auto make = [&](std::uint64_t index) {
    return mutated(files[static_cast<std::size_t>(index % files.size())], seed, index);
  };
  return runSeeded({"mutation", seed, make, run}, count, argc > 3 ? argv[3] : "");
}

// Runs a target without a fuzzer.
//
//   fuzz_TARGET FILE|FOLDER...                  once over every file, and over those of a folder
//   fuzz_TARGET --seeded [SEED [COUNT [KEEP]]]  over COUNT random inputs; those that fail go to
//   KEEP
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/seeded_runs.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using tb::fuzz::Bytes;

constexpr std::uint64_t kSeededInputs = 1000;
constexpr std::size_t kLongestInput = 1500;

void run(const Bytes& bytes) { (void)LLVMFuzzerTestOneInput(bytes.data(), bytes.size()); }

Bytes inputOf(std::uint64_t seed, std::uint64_t index) {
  std::mt19937_64 random = tb::fuzz::randomOf(seed, index);
  return tb::fuzz::randomBytes(random, 1 + static_cast<std::size_t>(random() % kLongestInput));
}

void replay(const std::filesystem::path& path) {
  std::printf("%s\n", path.filename().c_str());
  std::ifstream file(path, std::ios::binary);
  run({std::istreambuf_iterator<char>(file), {}});
}

int replayAll(int count, char** paths) {
  int replayed = 0;
  for (int i = 0; i < count; ++i) {
    if (!std::filesystem::is_directory(paths[i])) {
      replay(paths[i]);
      ++replayed;
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(paths[i])) {
      replay(entry.path());
      ++replayed;
    }
  }
  std::printf("%d inputs\n", replayed);
  return replayed > 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tb::fuzz;
  if (argc < 2 || std::strcmp(argv[1], "--seeded") != 0) return replayAll(argc - 1, argv + 1);
  const std::uint64_t seed = argumentOr(argc, argv, 2, 1);
  const auto make = [seed](std::uint64_t index) { return inputOf(seed, index); };
  return runSeeded({"input", seed, make, run}, argumentOr(argc, argv, 3, kSeededInputs),
                   argc > 4 ? argv[4] : "");
}

// Inputs that are made from numbers, without a fuzzer: the same on every machine and with every
// compiler. They run in child processes, many in each, so that a crash or a hang is told with the
// number of its input and does not end the run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace tb::fuzz {

using Bytes = std::vector<unsigned char>;
using Target = std::function<void(const Bytes&)>;

struct SeededInputs {
  std::string name;  // of one, for people
  std::uint64_t seed;
  std::function<Bytes(std::uint64_t index)> make;
  Target run;
};

// Runs the inputs from 0 to `count` - 1 and prints which fail, and how. An input fails that
// crashes, takes more than 10 seconds of the processor or 2 GiB, or after which memory is lost, as
// far as the sanitizers are there to tell. Those that fail go into the folder `keep` with what was
// said of them, or that is printed when it is empty. Returns the status of the process: 0 when none
// did.
int runSeeded(const SeededInputs& inputs, std::uint64_t count, const std::filesystem::path& keep);

// Drops the parts of a file that its failure does not need: pieces of `step` bytes behind the first
// `header`. Returns 0 when it does fail.
int minimize(const std::filesystem::path& path, std::size_t header, std::size_t step,
             const Target& run);

// Numbers of which nothing is said but that they belong to the seed and the input's number.
std::mt19937_64 randomOf(std::uint64_t seed, std::uint64_t index);
Bytes randomBytes(std::mt19937_64& random, std::size_t size);

// A number on a command line, `fallback` when it has fewer arguments.
std::uint64_t argumentOr(int argc, char** argv, int place, std::uint64_t fallback);

}  // namespace tb::fuzz

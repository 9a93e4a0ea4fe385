// Sequences of operations from a seed, without a fuzzer.
//
//   sequence_seeded [SEED [COUNT [KEEP]]]     run COUNT sequences; inputs that fail go into KEEP
//   sequence_seeded --minimize FILE           drop the steps that its failure does not need
#include <cstdint>
#include <cstring>
#include <random>

#include "fuzz/seeded_runs.h"
#include "fuzz/sequence.h"
#include "fuzz/sequence_files.h"

namespace {

tb::fuzz::Bytes sequenceOf(std::uint64_t seed, std::uint64_t index) {
  std::mt19937_64 random = tb::fuzz::randomOf(seed, index);
  const auto steps = static_cast<std::size_t>(3 + random() % 30);
  return tb::fuzz::randomBytes(random, tb::fuzz::kHeaderLength + steps * tb::fuzz::kStepLength);
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tb::fuzz;
  (void)startingFiles();  // before the children, who then share them
  const auto run = [](const Bytes& bytes) { runSequence(bytes); };
  if (argc == 3 && std::strcmp(argv[1], "--minimize") == 0)
    return minimize(argv[2], kHeaderLength, kStepLength, run);
  const std::uint64_t seed = argumentOr(argc, argv, 1, 1);
  const auto make = [seed](std::uint64_t index) { return sequenceOf(seed, index); };
  return runSeeded({"sequence", seed, make, run}, argumentOr(argc, argv, 2, 1500),
                   argc > 3 ? argv[3] : "");
}

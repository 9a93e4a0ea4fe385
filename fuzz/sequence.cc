#include "fuzz/sequence.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <csignal>
#include <string>

#include "fuzz/file_damage.h"
#include "fuzz/file_limit.h"
#include "fuzz/gateway_session.h"
#include "fuzz/sequence_files.h"
#include "fuzz/sequence_session.h"
#include "fuzz/switches.h"
#include "runtime/memory.h"

namespace tb::fuzz {
namespace {

// An array of this size is coded within the time limit under both sanitizers, even as a fax.
constexpr std::size_t kMemoryLimit = std::size_t{16} << 20;

void prepareOnce() {
  static const bool prepared = [] {
    std::signal(SIGXFSZ, SIG_IGN);
    call("getVersion", {});  // sets the memory limit of the other targets first
    runtime::setMemoryLimit(kMemoryLimit);
    return true;
  }();
  (void)prepared;
}

}  // namespace

void runSequence(std::span<const std::uint8_t> bytes) {
  prepareOnce();
  limitFileSize(kLargestFile);
  FuzzedDataProvider header(bytes.data(), std::min(bytes.size(), kHeaderLength));
  const auto files = startingFiles();
  const StartingFile& start =
      files[header.ConsumeIntegralInRange<std::size_t>(0, files.size() - 1)];
  if (isOff(std::string("file:") + start.name)) return;
  Bytes contents = start.contents;
  const auto amount = header.ConsumeIntegralInRange<unsigned>(0, 11);
  const bool whole = start.whole && (amount < 8 || isOff("damage"));
  for (unsigned i = 8; i <= amount && !isOff("damage"); ++i)
    damage(contents, header.ConsumeIntegral<std::uint16_t>());

  Session session(header, start, contents, whole);
  bytes = bytes.subspan(std::min(bytes.size(), kHeaderLength));
  for (std::size_t step = 0; step < kMostSteps && !bytes.empty() && session.isOpen(); ++step) {
    const std::size_t length = std::min(bytes.size(), kStepLength);
    FuzzedDataProvider input(bytes.data(), length);
    session.step(input);
    bytes = bytes.subspan(length);
  }
}

}  // namespace tb::fuzz

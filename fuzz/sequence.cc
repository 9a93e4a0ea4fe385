#include "fuzz/sequence.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <string>

#include "fuzz/file_damage.h"
#include "fuzz/file_limit.h"
#include "fuzz/sequence_files.h"
#include "fuzz/sequence_session.h"
#include "fuzz/switches.h"

namespace tb::fuzz {
namespace {

void takeSteps(Session& session, std::span<const std::uint8_t> bytes) {
  bytes = bytes.subspan(std::min(bytes.size(), kHeaderLength));
  for (std::size_t step = 0; step < kMostSteps && !bytes.empty() && session.isOpen(); ++step) {
    const std::size_t length = std::min(bytes.size(), kStepLength);
    FuzzedDataProvider input(bytes.data(), length);
    session.step(input);
    bytes = bytes.subspan(length);
  }
}

}  // namespace

void runSequence(std::span<const std::uint8_t> bytes) {
  limitWrites();
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
  takeSteps(session, bytes);
}

void runWrites(std::span<const std::uint8_t> bytes) {
  limitWrites();
  FuzzedDataProvider header(bytes.data(), std::min(bytes.size(), kHeaderLength));
  const StartingFile nothing{"nothing", {}, true};
  Session session(header, nothing, {}, true, Repertoire::kWriting);
  takeSteps(session, bytes);
}

}  // namespace tb::fuzz

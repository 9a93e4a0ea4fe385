// What the fuzz targets share: calls through the gateway in which every identified error is an
// ordinary result, and a file in memory.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

#include "host/array.h"

namespace tb::fuzz {

// The memory limit, unless the target sets another: a file can claim any size.
inline constexpr std::size_t kReadMemory = std::size_t{64} << 20;

// What a call came to: its output slots, and the identifier of its error, "bad_alloc" for one
// without, empty when there was none.
struct Outcome {
  std::vector<vxArrayPtr> outputs;
  std::string error;
  bool warned = false;  // whatever came of it, the host was warned
  std::size_t warnings = 0;
};

// Is told when the module is entered and left; null, the default, when nobody is.
using CallObserver = void (*)(bool isInside) noexcept;
void observeCalls(CallObserver observer) noexcept;

// Is told what each call came to, the operation's name the first of its inputs; null, the default,
// when nobody is.
using OutcomeObserver = void (*)(std::span<const vxArray* const> inputs, const Outcome& outcome);
void observeOutcomes(OutcomeObserver observer) noexcept;

// Calls the gateway with these output slots, whatever they hold, and these inputs, the operation's
// name the first of them. An error must be one that the module or the host lists, with arguments
// that fill its text, and be reported just before it is thrown; std::bad_alloc is as good, and
// so is the failure of a file object that is opened. Any other exception is a finding and ends the
// process.
Outcome attemptWith(std::vector<vxArrayPtr> outputs, std::span<const vxArray* const> inputs);

// TagBridgeCleanup, as a host calls it: without outputs.
Outcome attemptCleanup();

// Runs an operation with room for three outputs, which are empty after an error.
Outcome attempt(const std::string& operation, std::initializer_list<const vxArray*> inputs);

// The same where only the outputs matter.
std::vector<vxArrayPtr> call(const std::string& operation,
                             std::initializer_list<const vxArray*> inputs);

vxArrayPtr number(double value);

// The first element of an output, `fallback` when there is none.
double scalarOr(const std::vector<vxArrayPtr>& outputs, double fallback);

// The first element of a tag of the current directory, 0 when it has none.
double tagNumber(const vxArray* file, int tag);

// A file with these contents that exists only in memory, and its name.
class MemoryFile {
 public:
  explicit MemoryFile(std::span<const unsigned char> contents);
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile();
  std::string name() const;

 private:
  int descriptor_;
};

// Visits the directories of the open file and their sub-directories, up to a number: reads
// metadata, every tag, blocks, and the image as RGBA in one piece, by strips and by tiles.
void readEverything(const vxArray* file);

}  // namespace tb::fuzz

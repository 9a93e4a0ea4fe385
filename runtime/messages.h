// libtiff's messages, collected for each thread.
#pragma once

#include <tiffio.h>

#include <memory>
#include <string>
#include <vector>

namespace tb::runtime {

// Makes what libtiff says about a handle that is opened with these options reach the call's error
// stack by a handler of the handle's own. The process's may be replaced at any time, by libraries
// that know nothing of this one.
void collectMessagesOf(TIFFOpenOptions* options) noexcept;

// Says something as libtiff's TIFFError and TIFFWarning do, but to the call's error stack whatever
// the process's handlers are; outside a call to these.
[[gnu::format(printf, 2, 3)]] void sayError(const char* module, const char* format, ...) noexcept;
[[gnu::format(printf, 2, 3)]] void sayWarning(const char* module, const char* format, ...) noexcept;

// Forgets the messages since `start` when they repeat the run of messages just before it. Opening
// is tried several times, and each attempt says the same. `start` is an earlier messageCount().
void dropRepeatedMessages(std::size_t start) noexcept;
std::size_t messageCount() noexcept;

// Leaves the module for as long as the object lives, for what runs inside a call of the module but
// is not part of it: the call's messages are put aside, libtiff's messages go to the process's
// other handlers, and the module may be called.
class OutsideScope {
 public:
  OutsideScope();
  ~OutsideScope();
  OutsideScope(const OutsideScope&) = delete;
  OutsideScope& operator=(const OutsideScope&) = delete;

 private:
  struct Kept;
  std::unique_ptr<Kept> kept_;
};

// A message of libtiff's.
struct Diagnostic {
  bool warning;  // false for an error
  std::string module;
  std::string message;

  bool operator==(const Diagnostic&) const = default;
};

// Marks this thread as being inside the module for as long as the object lives: libtiff's messages
// are collected on the thread's error stack then and forwarded to the process's other handlers
// elsewhere. Module does this itself; code that calls the module's functions directly does it here.
class GatewayScope {
 public:
  GatewayScope() noexcept;
  ~GatewayScope();
  GatewayScope(const GatewayScope&) = delete;
  GatewayScope& operator=(const GatewayScope&) = delete;

 private:
  bool outer_;
};

// What libtiff said on this thread since the error stack was last initialised, also what was
// reported as warnings meanwhile.
std::vector<Diagnostic> collectedDiagnostics();

}  // namespace tb::runtime

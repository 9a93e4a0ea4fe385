// The loaded module and the way into it.
//
// A call gives the interpreter's lock back first, because it may have to wait for its turn on a
// file whose holder needs that lock: of what runs inside a call file objects touch Python, and take
// the interpreter's lock for as long as they need it (withInterpreter). So the interpreter's lock
// may be waited for inside a call, and never the other way round. Python code that runs so may call
// the module again, on this thread: the collector of garbage may close a file.
//
// The module itself has a fork wait for the calls of other threads. In os.fork that would be too
// late, since it holds the interpreter's lock, which such a call may be waiting for; so the calls
// are held before (holdCalls).
#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

#include "host/array.h"
#include "host/errors.h"
#include "runtime/loader.h"

namespace tb::python {

// How a call ended, apart from the output slots.
struct Outcome {
  std::exception_ptr failure;  // what the call threw; null when it returned
  const resource_core::BaseMsgID* error =
      nullptr;  // of `failure`, when that is an identified error
  std::vector<resource_core::BaseMsgID> warnings;
  std::vector<runtime::Diagnostic> diagnostics;  // filled in when the call raised `error`
};

// Loads the plug-in, once for the process, and directs the host's warnings here. Throws
// std::runtime_error with the reason when it cannot be loaded.
void loadModule(const std::filesystem::path& plugin);

// Calls the gateway; inputs[0] is the operation's name. The caller holds the interpreter's lock,
// which is released meanwhile.
Outcome callModule(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs);

// The same; when the call has returned, runs `then`, which does not touch Python. No cleanup comes
// between, but calls of other threads may.
Outcome callModule(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                   const std::function<void()>& then);

// The two halves of callModule, for several calls one after the other: runs `action` without the
// interpreter's lock, which the caller holds, and calls the gateway on a thread that does not hold
// it.
void withoutInterpreter(const std::function<void()>& action) noexcept;
Outcome callReleased(std::span<vxArrayPtr> outputs,
                     std::span<const vxArray* const> inputs) noexcept;

// Runs `action` with the interpreter's lock, from inside a call of the module. Returns false when
// there is no interpreter any more. `action` throws nothing.
bool withInterpreter(const std::function<void()>& action) noexcept;

// Closes the files that are still open, with the closing warnings on standard error whatever
// Python's warning filters say. Does nothing the second time. Waits for the calls of other threads.
void cleanUpModule();

// Waits for the calls of other threads, or for their next pause, and keeps later ones waiting until
// the thread releases them, whose own calls go on.
void holdCalls();
void releaseCalls();

// The same for good. For the very end of the process, when static objects are about to go.
void stopCalls() noexcept;

}  // namespace tb::python

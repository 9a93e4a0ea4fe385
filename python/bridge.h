// The loaded module and the one lock that serialises its calls.
//
// The module takes no lock of its own, so a call holds this one; it gives the interpreter's lock
// back first, because a thread that waited here with it would stop every other thread, the one
// inside the module included. Of what runs inside a call only file objects touch Python: they take
// the interpreter's lock for as long as they need it (withInterpreter). So the interpreter's lock
// may be waited for with this one held, and never the other way round. Python code that runs so may
// call the module again, on this thread: the collector of garbage may close a file. While a call
// waits before it tries something again, others may run. A fork waits until no call runs, so that
// the module can be used on both sides.
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

// The same; when the call has returned and before another can begin, runs `then`, which does not
// touch Python.
Outcome callModule(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                   const std::function<void()>& then);

// Runs `action` with the interpreter's lock, from inside a call of the module. Returns false when
// there is no interpreter any more. `action` throws nothing.
bool withInterpreter(const std::function<void()>& action) noexcept;

// Closes the files that are still open, with the closing warnings on standard error whatever
// Python's warning filters say. Does nothing the second time. Waits for calls that pause.
void cleanUpModule();

// Waits for a call that is still running on another thread, or for its next pause, and keeps every
// later one waiting for good. For the very end of the process, when static objects are about to go.
void stopCalls() noexcept;

}  // namespace tb::python

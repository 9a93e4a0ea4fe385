// Loads the module, a shared library, and calls it.
#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "host/array.h"
#include "runtime/messages.h"

namespace tb::runtime {

// What happens while the module waits before it tries something again. It need only let the time
// pass; one that counts the calls of threads leaves this one out meanwhile. It must not throw.
using Pauser = void (*)(std::chrono::milliseconds duration) noexcept;

// Installs a pauser for the whole process; null, the default, sleeps.
void setPauser(Pauser pauser) noexcept;

// The loaded module. Threads may call it side by side; see docs/embedding.md. An exception that the
// module threw must not outlive it.
class Module {
 public:
  // Opens the plug-in and finds its entries. Throws std::runtime_error with the reason when there
  // is no such library or it has no such entry.
  static Module load(const std::filesystem::path& plugin);

  // Cleans up, unless that is done, and unloads the plug-in.
  ~Module();
  Module(Module&& other) noexcept;
  Module& operator=(Module&& other) noexcept;

  // Calls the gateway: inputs[0] is the operation's name. Results are left in the output slots. An
  // error leaves as the exception that the module throws. Inline, because an exception stops in
  // each function that has something to undo: what is undone here is done where it is caught.
  void call(int outputCount, vxArrayPtr* outputs, int inputCount, const vxArray* const* inputs) {
    const GatewayScope scope;
    // Looked at first: threads that only read it do not take it from each other's caches.
    if (clean_.load(std::memory_order_relaxed)) clean_ = false;
    entry_(outputCount, outputs, inputCount, inputs);
  }

  // What libtiff said during this thread's last call, whether that returned or threw.
  std::vector<Diagnostic> diagnostics() const { return collectedDiagnostics(); }

  // Runs TagBridgeCleanup, which closes the files that are still open; it does nothing when the
  // module was not called since the last time. What libtiff says is reported as warnings.
  void cleanup();

 private:
  using Entry = void(int, vxArrayPtr*, int, const vxArray* const*);
  using Cleanup = void();

  Module() = default;
  void unload() noexcept;

  void* library_ = nullptr;
  Entry* entry_ = nullptr;
  Cleanup* cleanup_ = nullptr;
  std::atomic<bool> clean_ = true;  // nothing was called since the last cleanup
};

}  // namespace tb::runtime

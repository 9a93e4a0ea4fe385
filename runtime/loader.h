// Loads the module, a shared library, and calls it.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "host/array.h"
#include "runtime/messages.h"

namespace tb::runtime {

// Puts the same into `diagnostics`, and the stack is empty afterwards.
void takeDiagnostics(std::vector<Diagnostic>& diagnostics) noexcept;

// What happens while the module waits before it tries something again. It need only let the time
// pass; one that serialises the calls of threads lets others in meanwhile. It must not throw.
using Pauser = void (*)(std::chrono::milliseconds duration) noexcept;

// Installs a pauser for the whole process; null, the default, sleeps.
void setPauser(Pauser pauser) noexcept;

// The loaded module. Calls must follow one another, or come while the one before pauses; they may
// come from different threads. An exception that the module threw must not outlive it.
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
    struct Keep {
      std::vector<Diagnostic>& kept;
      ~Keep() { takeDiagnostics(kept); }
    };
    const GatewayScope scope;
    const Keep keep{diagnostics_};
    clean_ = false;
    entry_(outputCount, outputs, inputCount, inputs);
  }

  // What libtiff said during the last call, whether that returned or threw.
  const std::vector<Diagnostic>& diagnostics() const noexcept { return diagnostics_; }

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
  bool clean_ = true;  // nothing was called since the last cleanup
  std::vector<Diagnostic> diagnostics_;
};

}  // namespace tb::runtime

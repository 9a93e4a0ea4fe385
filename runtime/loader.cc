#include "runtime/loader.h"

#include <dlfcn.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <utility>

#include "host/tiff_utilities.h"

namespace tb::runtime {
namespace {

std::string loaderError() {
  const char* reason = dlerror();
  return reason != nullptr ? reason : "unknown reason";
}

template <class Function>
Function* findFunction(void* library, const char* name) {
  auto* function = reinterpret_cast<Function*>(dlsym(library, name));
  if (function == nullptr) throw std::runtime_error(loaderError());
  return function;
}

constinit std::atomic<Pauser> pauserInUse = nullptr;

}  // namespace

void setPauser(Pauser pauser) noexcept { pauserInUse = pauser; }

Module Module::load(const std::filesystem::path& plugin) {
  Module module;
  // Absolute, since a bare name would be looked for where the system keeps its libraries.
  module.library_ = dlopen(std::filesystem::absolute(plugin).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module.library_ == nullptr) throw std::runtime_error(loaderError());
  module.entry_ = findFunction<Entry>(module.library_, "tagbridge");
  module.cleanup_ = findFunction<Cleanup>(module.library_, "TagBridgeCleanup");
  return module;
}

Module::Module(Module&& other) noexcept
    : library_(std::exchange(other.library_, nullptr)),
      entry_(std::exchange(other.entry_, nullptr)),
      cleanup_(std::exchange(other.cleanup_, nullptr)),
      clean_(other.clean_.exchange(true)) {}

Module& Module::operator=(Module&& other) noexcept {
  if (this == &other) return *this;
  unload();
  library_ = std::exchange(other.library_, nullptr);
  entry_ = std::exchange(other.entry_, nullptr);
  cleanup_ = std::exchange(other.cleanup_, nullptr);
  clean_ = other.clean_.exchange(true);
  return *this;
}

Module::~Module() { unload(); }

void Module::unload() noexcept {
  try {
    cleanup();
  } catch (...) {
    // Nobody is left to tell.
  }
  if (library_ != nullptr) dlclose(std::exchange(library_, nullptr));
}

void Module::cleanup() {
  if (clean_.exchange(true)) return;
  const GatewayScope scope;
  ZQTIFFinitializeErrorStack();
  cleanup_();
  ZQTIFFcheckErrorAsWarning();
}

}  // namespace tb::runtime

void tiffutils::Pause(std::chrono::milliseconds duration) {
  if (const tb::runtime::Pauser pauser = tb::runtime::pauserInUse)
    pauser(duration);
  else
    std::this_thread::sleep_for(duration);
}

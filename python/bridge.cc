#include "python/bridge.h"

#include <Python.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <utility>

#include "runtime/reporting.h"

namespace tb::python {
namespace {

struct Bridge {
  explicit Bridge(runtime::Module loaded) : module(std::move(loaded)) {}

  std::mutex mutex;
  runtime::Module module;                          // guarded by mutex
  std::vector<resource_core::BaseMsgID> warnings;  // of the call that holds mutex
};

Bridge* s_bridge = nullptr;

void collectWarnings() {
  runtime::setWarningSink([](const resource_core::BaseMsgID& warning) {  //
    s_bridge->warnings.push_back(warning);
  });
}

// Everything that a call throws ends up in the outcome: the interpreter's lock has to be taken
// again before anything can be reported.
void callLocked(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                Outcome& outcome) noexcept {
  const std::lock_guard lock(s_bridge->mutex);
  s_bridge->warnings.clear();
  try {
    try {
      s_bridge->module.call(static_cast<int>(outputs.size()), outputs.data(),
                            static_cast<int>(inputs.size()), inputs.data());
    } catch (const foundation::core::except::IMsgIDException& error) {
      outcome.diagnostics = s_bridge->module.diagnostics();
      outcome.failure = std::current_exception();
      outcome.error = &error.message();
    }
  } catch (...) {
    outcome.failure = std::current_exception();
  }
  outcome.warnings.swap(s_bridge->warnings);
}

// Takes the interpreter's lock again. A daemon thread that comes back when the interpreter has gone
// is ended by it, through unwinding: that would run the destructors of everything between here and
// the thread's start without the lock, so the thread stays here until the process is gone.
void restoreThread(PyThreadState* thread) {
  try {
    PyEval_RestoreThread(thread);
  } catch (...) {
    for (;;) pause();
  }
}

}  // namespace

void loadModule(const std::filesystem::path& plugin) {
  if (s_bridge != nullptr) return;
  // Left to the process on purpose: arrays and threads may outlive every static object.
  s_bridge = std::make_unique<Bridge>(runtime::Module::load(plugin)).release();
  collectWarnings();
}

Outcome callModule(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs) {
  Outcome outcome;
  PyThreadState* const thread = PyEval_SaveThread();
  callLocked(outputs, inputs, outcome);
  restoreThread(thread);
  return outcome;
}

void cleanUpModule() {
  PyThreadState* const thread = PyEval_SaveThread();
  {
    const std::lock_guard lock(s_bridge->mutex);
    runtime::setWarningSink({});  // standard error
    s_bridge->module.cleanup();
    collectWarnings();
  }
  restoreThread(thread);
}

void stopCalls() noexcept { s_bridge->mutex.lock(); }

}  // namespace tb::python

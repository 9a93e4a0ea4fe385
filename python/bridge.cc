#include "python/bridge.h"

#include <pybind11/pybind11.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "runtime/reporting.h"

namespace tb::python {
namespace {

struct Bridge {
  explicit Bridge(runtime::Module loaded) : module(std::move(loaded)) {}

  std::recursive_mutex mutex;
  runtime::Module module;                          // guarded by mutex
  std::vector<resource_core::BaseMsgID> warnings;  // of the call that holds mutex
};

Bridge* s_bridge = nullptr;

// Says that a thread stopped for good inside a call, with the lock.
std::atomic<bool> s_callAbandoned = false;

void collectWarnings() {
  runtime::setWarningSink([](const resource_core::BaseMsgID& warning) {  //
    s_bridge->warnings.push_back(warning);
  });
}

// Everything that a call throws ends up in the outcome: the interpreter's lock has to be taken
// again before anything can be reported.
void callLocked(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                const std::function<void()>& then, Outcome& outcome) noexcept {
  const std::lock_guard lock(s_bridge->mutex);
  // Empty unless a file object, called by another call on this thread, has led here.
  std::vector<resource_core::BaseMsgID> outer;
  outer.swap(s_bridge->warnings);
  try {
    try {
      s_bridge->module.call(static_cast<int>(outputs.size()), outputs.data(),
                            static_cast<int>(inputs.size()), inputs.data());
      if (then) then();
    } catch (const foundation::core::except::IMsgIDException& error) {
      outcome.diagnostics = s_bridge->module.diagnostics();
      outcome.failure = std::current_exception();
      outcome.error = &error.message();
    }
  } catch (...) {
    outcome.failure = std::current_exception();
  }
  outcome.warnings.swap(s_bridge->warnings);
  s_bridge->warnings.swap(outer);
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
  return callModule(outputs, inputs, {});
}

Outcome callModule(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                   const std::function<void()>& then) {
  Outcome outcome;
  PyThreadState* const thread = PyEval_SaveThread();
  callLocked(outputs, inputs, then, outcome);
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

bool withInterpreter(const std::function<void()>& action) noexcept {
  if (_Py_IsFinalizing() != 0) return false;
  try {
    const PyGILState_STATE state = PyGILState_Ensure();
    action();
    PyGILState_Release(state);
    return true;
  } catch (...) {
    // The interpreter went meanwhile and ends the thread: see restoreThread. The lock stays taken.
    s_callAbandoned = true;
    for (;;) pause();
  }
}

void stopCalls() noexcept {
  while (!s_bridge->mutex.try_lock() && !s_callAbandoned) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace tb::python

#include "python/bridge.h"

#include <Python.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <new>
#include <thread>
#include <utility>

#include "runtime/reporting.h"

namespace tb::python {
namespace {

// How many calls and closings of the gate this thread is inside of, and how many closings.
[[gnu::tls_model("initial-exec")]] constinit thread_local int s_depth = 0;
[[gnu::tls_model("initial-exec")]] constinit thread_local int s_closedHere = 0;

// Lets calls in and counts the threads that are inside one. Closed, it keeps out calls that begin;
// those inside a call of their thread, and those of a thread that closed it, go on.
class Gate {
 public:
  void enter() noexcept {
    if (s_depth++ == 0) stepIn();
  }
  void leave() noexcept {
    if (--s_depth == 0) stepOut();
  }

  // Between these two nobody waits for this thread, though it is inside a call.
  void stepOut() noexcept {
    --inside_;
    if (closed_ != 0) inside_.notify_all();
  }
  void stepIn() noexcept {
    ++inside_;
    while (closed_ != 0) {
      stepOut();
      for (int closed = closed_; closed != 0; closed = closed_) closed_.wait(closed);
      ++inside_;
    }
  }

  // This thread stays inside its call for good, if it is inside one. Others may be waiting for what
  // it has there, so that from now on nobody waits for anybody.
  void abandon() noexcept {
    if (s_depth == 0) return;
    isAbandoned_ = true;
    stepOut();
  }

  // Waits until no other thread is inside, and keeps all others out until `open`.
  void close() noexcept {
    const int mine = s_depth++ > 0 ? 1 : 0;
    ++closed_;
    ++s_closedHere;
    for (int inside = inside_; inside > mine && !isAbandoned_; inside = inside_) {
      inside_.wait(inside);
    }
  }
  void open() noexcept {
    --s_depth;
    --s_closedHere;
    if (--closed_ == 0) closed_.notify_all();
  }

  // Whether the call that runs is inside another one of this thread.
  bool isNested() const noexcept { return s_depth > 1; }

  // A forked process has this thread only.
  void forgetOthers() noexcept {
    inside_ = s_depth > s_closedHere ? 1 : 0;
    closed_ = s_closedHere;
  }

 private:
  std::atomic<int> inside_ = 0;
  std::atomic<int> closed_ = 0;
  std::atomic<bool> isAbandoned_ = false;
};

struct Bridge {
  explicit Bridge(runtime::Module loaded) : module(std::move(loaded)) {}

  runtime::Module module;
  Gate gate;
};

Bridge* s_bridge = nullptr;

// Where the warnings of this thread's call go; null outside one.
[[gnu::tls_model(
    "initial-exec")]] constinit thread_local std::vector<resource_core::BaseMsgID>* s_warnings =
    nullptr;

void collectWarning(const resource_core::BaseMsgID& warning) {
  if (s_warnings == nullptr) return runtime::writeWarning(warning);
  s_warnings->push_back(warning);
}

// A call that waits keeps nobody from ending the process. Inside another call of this thread it is
// that call's thread too.
void pauseCall(std::chrono::milliseconds duration) noexcept {
  const bool isNested = s_bridge->gate.isNested();
  if (!isNested) s_bridge->gate.stepOut();
  std::this_thread::sleep_for(duration);
  if (!isNested) s_bridge->gate.stepIn();
}

// --- Calls

// Everything that a call throws ends up in the outcome: the interpreter's lock has to be taken
// again before anything can be reported.
void callCounted(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                 const std::function<void()>& then, Outcome& outcome) noexcept {
  s_bridge->gate.enter();
  // Not null when a file object, called by another call on this thread, has led here.
  std::vector<resource_core::BaseMsgID>* const outer = std::exchange(s_warnings, &outcome.warnings);
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
  s_warnings = outer;
  s_bridge->gate.leave();
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
  runtime::setWarningSink(&collectWarning);
  runtime::setPauser(&pauseCall);
  if (pthread_atfork(nullptr, nullptr, [] { s_bridge->gate.forgetOthers(); }) != 0) {
    throw std::bad_alloc();
  }
}

Outcome callModule(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs) {
  return callModule(outputs, inputs, {});
}

Outcome callModule(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                   const std::function<void()>& then) {
  Outcome outcome;
  PyThreadState* const thread = PyEval_SaveThread();
  callCounted(outputs, inputs, then, outcome);
  restoreThread(thread);
  return outcome;
}

void withoutInterpreter(const std::function<void()>& action) noexcept {
  PyThreadState* const thread = PyEval_SaveThread();
  action();
  restoreThread(thread);
}

Outcome callReleased(std::span<vxArrayPtr> outputs,
                     std::span<const vxArray* const> inputs) noexcept {
  Outcome outcome;
  callCounted(outputs, inputs, {}, outcome);
  return outcome;
}

void cleanUpModule() {
  holdCalls();
  PyThreadState* const thread = PyEval_SaveThread();
  s_bridge->module.cleanup();
  restoreThread(thread);
  releaseCalls();
}

void holdCalls() {
  PyThreadState* const thread = PyEval_SaveThread();
  s_bridge->gate.close();
  restoreThread(thread);
}

void releaseCalls() { s_bridge->gate.open(); }

bool withInterpreter(const std::function<void()>& action) noexcept {
  if (_Py_IsFinalizing() != 0) return false;
  try {
    const PyGILState_STATE state = PyGILState_Ensure();
    action();
    PyGILState_Release(state);
    return true;
  } catch (...) {
    // The interpreter went meanwhile and ends the thread: see restoreThread.
    s_bridge->gate.abandon();
    for (;;) pause();
  }
}

void stopCalls() noexcept { s_bridge->gate.close(); }

}  // namespace tb::python

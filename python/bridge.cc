#include "python/bridge.h"

#include <Python.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "runtime/reporting.h"

namespace tb::python {
namespace {

// A lock that the thread which holds it may take again. std::recursive_mutex cannot be released in
// a child process by the thread that took it before the fork.
class CallLock {
 public:
  void lock() {
    if (!isMine()) mutex_.lock();
    take();
  }
  bool try_lock() {
    if (!isMine() && !mutex_.try_lock()) return false;
    take();
    return true;
  }
  void unlock() {
    if (--depth_ > 0) return;
    owner_ = std::thread::id();
    mutex_.unlock();
  }
  // How often the thread that holds the lock has taken it.
  int depth() const noexcept { return depth_; }

 private:
  // Only the owner itself can find its own number there.
  bool isMine() const noexcept { return owner_ == std::this_thread::get_id(); }
  void take() {
    owner_ = std::this_thread::get_id();
    ++depth_;
  }

  std::mutex mutex_;
  std::atomic<std::thread::id> owner_;
  int depth_ = 0;
};

struct Bridge {
  explicit Bridge(runtime::Module loaded) : module(std::move(loaded)) {}

  CallLock mutex;
  // Guarded by mutex, all of them.
  runtime::Module module;
  std::vector<resource_core::BaseMsgID>* warnings = nullptr;  // of the call that holds mutex
  int pausing = 0;                                            // calls that others may overtake
  std::condition_variable_any nonePauses;
  bool lockedForFork = false;
};

Bridge* s_bridge = nullptr;
constinit std::atomic<bool> callsAreStopped = false;

// Says that a thread stopped for good inside a call, with the lock.
std::atomic<bool> s_callAbandoned = false;

void collectWarnings() {
  runtime::setWarningSink([](const resource_core::BaseMsgID& warning) {  //
    s_bridge->warnings->push_back(warning);
  });
}

// Lets other calls in while the one that holds the lock waits.
void pauseCall(std::chrono::milliseconds duration) noexcept {
  // Inside another call of this thread the lock is that call's too.
  if (s_bridge->mutex.depth() > 1) return std::this_thread::sleep_for(duration);
  std::vector<resource_core::BaseMsgID>* const warnings = s_bridge->warnings;
  ++s_bridge->pausing;
  s_bridge->mutex.unlock();
  std::this_thread::sleep_for(duration);
  s_bridge->mutex.lock();
  s_bridge->warnings = warnings;
  if (--s_bridge->pausing == 0) s_bridge->nonePauses.notify_all();
}

// --- Forks. A child must neither find the lock held by a thread that it does not have nor libtiff
// in the middle of something, so a fork waits for the call that runs.

void beforeFork() {
  if (callsAreStopped) return;  // the lock is held for good
  s_bridge->mutex.lock();
  s_bridge->lockedForFork = true;
}

void afterFork() {
  if (!std::exchange(s_bridge->lockedForFork, false)) return;
  s_bridge->mutex.unlock();
}

void afterForkInChild() {
  s_bridge->pausing = 0;  // those threads are the parent's
  afterFork();
}

// --- Calls

// Everything that a call throws ends up in the outcome: the interpreter's lock has to be taken
// again before anything can be reported.
void callLocked(std::span<vxArrayPtr> outputs, std::span<const vxArray* const> inputs,
                const std::function<void()>& then, Outcome& outcome) noexcept {
  const std::lock_guard lock(s_bridge->mutex);
  // Not null when a file object, called by another call on this thread, has led here.
  std::vector<resource_core::BaseMsgID>* const outer =
      std::exchange(s_bridge->warnings, &outcome.warnings);
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
  s_bridge->warnings = outer;
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
  runtime::setPauser(&pauseCall);
  // A fork takes the locks of the run-time after this one, as a call does.
  if (pthread_atfork(&beforeFork, &afterFork, &afterForkInChild) != 0) throw std::bad_alloc();
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
    std::unique_lock lock(s_bridge->mutex);
    s_bridge->nonePauses.wait(lock, [] { return s_bridge->pausing == 0; });
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
  callsAreStopped = true;
  while (!s_bridge->mutex.try_lock() && !s_callAbandoned) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace tb::python

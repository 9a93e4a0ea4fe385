#include "core/turns.h"

#include <pthread.h>

#include <cstdint>
#include <cstring>
#include <mutex>

#include "core/registry.h"
#include "host/tiff_utilities.h"

namespace tb {

constinit ShortLock registryLock;

namespace {

// --- The calls of all threads. Guarded by registryLock.

unsigned runningCalls = 0;  // a call inside another one counts too
unsigned exclusives = 0;    // cleanups and forks that wait or run
Event callsChanged;

// The innermost call of this thread.
[[gnu::tls_model("initial-exec")]] constinit thread_local CallTurn* innermost = nullptr;
// Calls of this thread that are on their way, the cleanup among them.
[[gnu::tls_model("initial-exec")]] constinit thread_local unsigned depth = 0;
// How many of `exclusives` are this thread's.
constinit thread_local unsigned ownExclusives = 0;

// What tells this thread from all others.
const void* thisThread() noexcept { return &depth; }

// libtiff keeps them for the process and has no lock for them: of the module's threads one at a
// time sets them.
void installTiffHandlers() noexcept {
  ZQTIFFsetPreviousHandlers(TIFFSetErrorHandler(ZQTIFFerrHandler),
                            TIFFSetWarningHandler(ZQTIFFwarnHandler));
}

// Every array has so many bytes to read, whatever it is; what is no identifier names no file.
TIFF* handleIn(const vxArray* fileId) noexcept {
  if (fileId == nullptr) return nullptr;
  std::uint64_t address = 0;
  std::memcpy(&address, vxGetData(fileId), sizeof address);
  return reinterpret_cast<TIFF*>(static_cast<std::uintptr_t>(address));
}

RegisteredFile* findRegistered(TIFF* tif) noexcept {
  const auto found = OpenFileRegistry.find(tif);
  return found != OpenFileRegistry.end() ? found->second.get() : nullptr;
}

// Waits until a call on this file may begin. While it waits, files come and go.
RegisteredFile* waitForTurn(TIFF* tif, std::unique_lock<ShortLock>& lock) noexcept {
  for (;;) {
    if (depth == 0 && exclusives > 0) {
      callsChanged.wait(lock);
      continue;
    }
    RegisteredFile* const file = tif != nullptr ? findRegistered(tif) : nullptr;
    if (file == nullptr || file->depth == 0 || file->owner == thisThread()) return file;
    file->freed.wait(lock);
    releaseIfUnused(*file);
  }
}

void beginCall() noexcept {
  ++runningCalls;
  ++depth;
  installTiffHandlers();
}

void endCall() noexcept {
  --depth;
  --runningCalls;
  callsChanged.tell();
}

// Waits until this thread's calls are the only ones.
void beginExclusively(std::unique_lock<ShortLock>& lock) noexcept {
  ++exclusives;
  ++ownExclusives;
  while (runningCalls > depth) callsChanged.wait(lock);
}

void endExclusively() noexcept {
  --exclusives;
  --ownExclusives;
  callsChanged.tell();
}

// --- Forks. A child must find neither the lock held by a thread that it does not have nor libtiff
// in the middle of something.

void beforeFork() noexcept {
  std::unique_lock lock(registryLock);
  beginExclusively(lock);
  (void)lock.release();  // held until afterwards
}

void afterFork() noexcept {
  endExclusively();
  registryLock.unlock();
}

void afterForkInChild() noexcept {
  exclusives = ownExclusives;  // those of other threads are the parent's
  afterFork();
}

// Without memory for the entry a fork is as it was without it.
[[maybe_unused]] const int forksWait = pthread_atfork(&beforeFork, &afterFork, &afterForkInChild);

}  // namespace

bool isAnyCallRunning() noexcept { return runningCalls > 0; }

// --- Turns

// Access to what a turn keeps.
class CallTurns {
 public:
  static OwnTurn ownTurn(TIFF* tif) noexcept {
    const CallTurn* const turn = innermost;
    if (turn == nullptr || turn->tif_ != tif) return {false, nullptr};
    RegisteredFile* const file = turn->file_;
    const bool isThere = file != nullptr && file->isRegistered.load(std::memory_order_relaxed);
    return {true, isThere ? &file->known : nullptr};
  }
};

CallTurn::CallTurn(const vxArray* fileId) noexcept : tif_(handleIn(fileId)), outer_(innermost) {
  std::unique_lock lock(registryLock);
  file_ = waitForTurn(tif_, lock);
  if (file_ != nullptr) {
    file_->owner = thisThread();
    ++file_->depth;
  }
  beginCall();
  innermost = this;
}

CallTurn::~CallTurn() {
  const std::lock_guard lock(registryLock);
  innermost = outer_;
  if (file_ != nullptr && --file_->depth == 0) {
    file_->freed.tell();
    releaseIfUnused(*file_);
  }
  endCall();
}

CleanupTurn::CleanupTurn() noexcept {
  std::unique_lock lock(registryLock);
  beginExclusively(lock);
  ++runningCalls;
  ++depth;
}

CleanupTurn::~CleanupTurn() {
  const std::lock_guard lock(registryLock);
  endCall();
  endExclusively();
}

namespace {

class Paused {
 public:
  Paused() noexcept {
    const std::lock_guard lock(registryLock);
    endCall();
  }
  ~Paused() {
    std::unique_lock lock(registryLock);
    while (depth == 0 && exclusives > 0) callsChanged.wait(lock);
    beginCall();
  }
  Paused(const Paused&) = delete;
  Paused& operator=(const Paused&) = delete;
};

}  // namespace

void pauseCall(std::chrono::milliseconds duration) {
  {
    const Paused paused;
    tiffutils::Pause(duration);
  }
  registerJPEG2000Codecs();
}

OwnTurn ownTurn(TIFF* tif) noexcept { return CallTurns::ownTurn(tif); }

}  // namespace tb

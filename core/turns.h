// Who may run when. Calls on different files run side by side, calls on one file take turns, and
// for the cleanup and for a fork all calls have to end.
//
// A thread may call the module from inside a call, as a host's callbacks do: such a call never
// waits for the one around it.
#pragma once

#include <tiffio.h>

#include <chrono>

#include "host/array.h"

namespace tb {

struct OpenFile;
struct RegisteredFile;

// One call of the module, for as long as it runs.
class CallTurn {
 public:
  // `fileId` is the operation's first input, null when there is none. Waits until no other thread
  // has a turn on the file that it identifies, if it identifies one, and installs the host's
  // libtiff handlers.
  explicit CallTurn(const vxArray* fileId) noexcept;
  ~CallTurn();
  CallTurn(const CallTurn&) = delete;
  CallTurn& operator=(const CallTurn&) = delete;

 private:
  friend class CallTurns;

  TIFF* const tif_;
  CallTurn* const outer_;  // the call that this one runs inside of
  RegisteredFile* file_ = nullptr;
};

// The cleanup's turn: it waits until no other thread is inside a call, and keeps new calls waiting.
class CleanupTurn {
 public:
  CleanupTurn() noexcept;
  ~CleanupTurn();
  CleanupTurn(const CleanupTurn&) = delete;
  CleanupTurn& operator=(const CleanupTurn&) = delete;
};

// Has the host wait for so long. A cleanup and a fork need not wait for the call meanwhile, which
// must not hold anything that a cleanup changes. What a call finds installed is there afterwards.
void pauseCall(std::chrono::milliseconds duration);

// What is known of a file on which the calling thread has its turn: a null pointer in `file` when
// the registry does not have it, `isMine` false when it is not this thread's turn.
struct OwnTurn {
  bool isMine;
  OpenFile* file;
};
OwnTurn ownTurn(TIFF* tif) noexcept;

}  // namespace tb

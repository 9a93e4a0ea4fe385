// The C library's allocations and file operations, which can be made to fail. Linked into a
// program, they stand in for the C library's in all of its libraries.
#pragma once

#include <cstddef>

namespace tb::faults {

// What fails, once counting has come to it. A failed allocation returns null or throws; the others
// are those of the system's functions of files.
enum class Fault {
  kNone,
  kAllocation,       // of the module or the embedded host
  kLargeAllocation,  // of 4 KiB and more, in libtiff and its codecs as well
  kReadError,        // EIO
  kReadInterrupt,    // EINTR, which then passes
  kReadShort,        // one byte less than asked for
  kWriteError,       // EIO
  kWriteInterrupt,
  kWriteShort,
  kDiskFull,       // ENOSPC, from then on
  kRoomForOthers,  // ENOSPC, once
  kOpen,           // EMFILE, from then on
  kClose,          // EIO, though the file is closed
  kStatus,         // fstat(2): EIO
  kTruncate,       // ftruncate(2): EIO
};
inline constexpr std::size_t kFaultKinds = static_cast<std::size_t>(Fault::kTruncate) + 1;

const char* nameOf(Fault fault) noexcept;

// From here to the end of its life the `number`th event of the kind fails, counted from 0, on this
// thread; of two kinds all later ones as well. With kNone nothing fails, and all are counted.
class Armed {
 public:
  Armed(Fault fault, std::size_t number) noexcept;
  Armed(const Armed&) = delete;
  Armed& operator=(const Armed&) = delete;
  ~Armed();
};

// Whether so many events have come since the last Armed was made; an end to its effect; whether it
// has one, and whether that is only to count.
bool hasFailed() noexcept;
void disarm() noexcept;
bool isArmed() noexcept;
bool isUndisturbed() noexcept;

// The events of a kind since an Armed with kNone was made.
std::size_t eventsOf(Fault fault) noexcept;

// Events count only between countEvents(true) and countEvents(false).
void countEvents(bool isOn) noexcept;

// Bytes that malloc and its kin have given out and not got back.
std::size_t liveBytes() noexcept;

// Files that were mapped while events counted, and still are.
std::size_t mappedFiles() noexcept;

}  // namespace tb::faults

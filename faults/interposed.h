// The C library's allocations and file operations, which can be made to fail. Linked into a
// program, they stand in for the C library's in all of its libraries.
#pragma once

#include <cstddef>

namespace tb::faults {

// What fails, once counting has come to it. A failed allocation returns null or throws; the others
// are those of pread(2) and pwrite(2).
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
  kDiskFull,  // ENOSPC, from then on
};

const char* nameOf(Fault fault) noexcept;

// From here to the end of its life the `number`th event of the kind fails, counted from 0, on this
// thread; kDiskFull lets all later ones fail as well.
class Armed {
 public:
  Armed(Fault fault, std::size_t number) noexcept;
  Armed(const Armed&) = delete;
  Armed& operator=(const Armed&) = delete;
  ~Armed();

  // Whether so many events came.
  bool hasFailed() const noexcept;
};

// Events count only between countEvents(true) and countEvents(false).
void countEvents(bool isOn) noexcept;

// Bytes that malloc and its kin have given out and not got back.
std::size_t liveBytes() noexcept;

}  // namespace tb::faults

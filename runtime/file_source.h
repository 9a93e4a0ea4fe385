// Where the bytes of a TIFF file are: what libtiff reads and writes through.
//
// libtiff's own procedures hand the counts of read(2) on as they come. A negative one ends in
// pointer arithmetic below a buffer, a short one in a damaged file, and the position that they use
// belongs to the descriptor, which a forked process shares. A source keeps its own position, goes
// on after an interruption or a short transfer, and reports an error as a lack of bytes.
#pragma once

#include <sys/types.h>
#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "runtime/held_writes.h"

namespace tb::runtime {

// A kind of source says how bytes are transferred at an offset; all else is the same for all kinds.
class FileSource {
 public:
  static constexpr std::uint64_t kNowhere = ~std::uint64_t{0};

  FileSource() = default;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;
  virtual ~FileSource() = default;

  // Fills `buffer` from the position or from `offset`, up to the end of the file or an error, and
  // returns how many bytes that were. `read` moves the position behind them. `readAt` need not go
  // on once it has `enough`.
  std::size_t read(std::span<std::byte> buffer) noexcept;
  std::size_t readAt(std::uint64_t offset, std::span<std::byte> buffer,
                     std::size_t enough = ~std::size_t{0}) noexcept;

  // Writes at the position and moves it; fewer bytes than `data` has were written only after an
  // error, which takeWriteFailure tells of.
  std::size_t write(std::span<const std::byte> data) noexcept;

  // Between beginUpdate and the end of the update, writes to bytes that the file has already are
  // held back, and reads see them. commitUpdate makes them and returns whether no write has failed
  // since; when one has, and after cancelUpdate, the file is as it was.
  void beginUpdate() noexcept;
  bool commitUpdate() noexcept;
  void cancelUpdate() noexcept;

  // While libtiff opens the file, nothing is written once a read has failed: it would take a header
  // that cannot be read for one that is missing, and put a new one in its place.
  void setOpening(bool isOn) noexcept { isOpening_ = isOn; }

  // Whether `read` reverses the bits of each byte; `readAt` never does.
  void reverseBitsRead(bool isOn) noexcept { reversesBits_ = isOn; }

  // The new position, counted as lseek(2) does; kNowhere, and the position stays, when there is
  // none.
  std::uint64_t seek(std::uint64_t offset, int whence) noexcept;

  // The errno of the first read or write that failed since this was last asked; 0 when none did.
  int readFailure() const noexcept { return readFailure_; }
  int takeReadFailure() noexcept { return std::exchange(readFailure_, 0); }
  int takeWriteFailure() noexcept { return std::exchange(writeFailure_, 0); }

  // Bytes in the file; 0 when that cannot be told.
  virtual std::uint64_t size() noexcept = 0;

  // Puts the whole file into memory, unless it is there; false when it cannot be mapped. `mapping`
  // is the map, empty when there is none; reading takes what lies in it from there.
  virtual bool map() noexcept { return false; }
  virtual void unmap() noexcept {}
  std::span<const std::byte> mapping() const noexcept { return mapping_; }

  // The file's descriptor; -1 when it has none.
  virtual int descriptor() const noexcept { return -1; }

  // Ends the use of the file. 0, or the errno of an error that came to light only now.
  virtual int close() noexcept { return 0; }

 protected:
  // Transfer up to so many bytes at `offset`, as pread(2) and pwrite(2) do: a count, which may be
  // less than what was asked for, or -1 with errno set.
  virtual ssize_t readSome(std::uint64_t offset, std::span<std::byte> buffer) noexcept = 0;
  virtual ssize_t writeSome(std::uint64_t offset, std::span<const std::byte> data) noexcept = 0;

  // Gives the file this length, which is none above what it has; false when that fails.
  virtual bool shorten(std::uint64_t size) noexcept = 0;

  std::span<const std::byte> mapping_;

 private:
  bool hold(std::span<const std::byte> data) noexcept;
  std::size_t writeAll(std::uint64_t offset, std::span<const std::byte> data) noexcept;

  std::optional<HeldWrites> update_;
  std::uint64_t position_ = 0;
  int readFailure_ = 0;
  int writeFailure_ = 0;
  bool reversesBits_ = false;
  bool isOpening_ = false;
};

// Opens a source with libtiff; `mode` is libtiff's, and no allocation of libtiff's for the handle
// may exceed `largestAllocation` bytes. The handle owns the source and closes it. Null when libtiff
// refuses, and then the source is closed.
TIFF* openSource(std::unique_ptr<FileSource> source, const std::string& name,
                 const std::string& mode, std::size_t largestAllocation);

// The source of a handle; null when openSource did not open it.
FileSource* sourceOf(TIFF* tif) noexcept;

}  // namespace tb::runtime

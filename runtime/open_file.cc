#include "runtime/open_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <system_error>
#include <utility>

#include "runtime/fork.h"
#include "runtime/messages.h"

namespace tb::runtime {
namespace {

// --- Which files are open here

constinit std::mutex openFilesLock;
const UsableAfterFork<openFilesLock> openFilesLockStaysUsable;

// A file is open here for as long as one of these lives. They are linked to one another, so that
// files can still be closed while static objects go.
class OpenFile {
 public:
  explicit OpenFile(const struct stat& status) noexcept
      : device_(status.st_dev), inode_(status.st_ino) {
    const std::lock_guard guard(openFilesLock);
    for (const OpenFile* other = first_; other != nullptr; other = other->next_)
      isOnly_ = isOnly_ && !isSame(*other);
    next_ = first_;
    if (next_ != nullptr) next_->previous_ = this;
    first_ = this;
  }
  ~OpenFile() {
    const std::lock_guard guard(openFilesLock);
    (previous_ != nullptr ? previous_->next_ : first_) = next_;
    if (next_ != nullptr) next_->previous_ = previous_;
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  // Whether no other handle had the file open when this one came.
  bool isOnly() const noexcept { return isOnly_; }

 private:
  bool isSame(const OpenFile& other) const noexcept {
    return device_ == other.device_ && inode_ == other.inode_;
  }

  static constinit OpenFile* first_;  // the latest; guarded by openFilesLock, as the links are

  dev_t device_;
  ino_t inode_;
  bool isOnly_ = true;
  OpenFile* next_ = nullptr;
  OpenFile* previous_ = nullptr;
};

constinit OpenFile* OpenFile::first_ = nullptr;

// --- Descriptors

class FileDescriptor {
 public:
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&&) = delete;
  ~FileDescriptor() { (void)close(); }
  int get() const noexcept { return number_; }

  // 0 or errno. The descriptor is gone in any case, after an interruption too.
  int close() noexcept {
    const int number = std::exchange(number_, -1);
    return number < 0 || ::close(number) == 0 || errno == EINTR ? 0 : errno;
  }

 private:
  int number_;
};

// The kernel ends a process that writes past this limit by a signal, unless the process ignores it;
// a library must not decide that for the process, so such a write is not made.
bool isAtFileSizeLimit(std::uint64_t offset) noexcept {
  struct rlimit limit;
  return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
         offset >= limit.rlim_cur;
}

class RegularFile final : public FileSource {
 public:
  RegularFile(FileDescriptor descriptor, const struct stat& status)
      : openFile_(status),
        descriptor_(std::move(descriptor)),
        lastKnownSize_(static_cast<std::uint64_t>(status.st_size)) {}
  ~RegularFile() override { unmap(); }

  bool empty() noexcept { return shorten(0); }

  bool isOnlyUser() const noexcept { return openFile_.isOnly(); }

  std::uint64_t size() noexcept override {
    if (!mapping_.empty()) return mapping_.size();
    struct stat status;
    if (fstat(descriptor_.get(), &status) == 0)
      lastKnownSize_ = static_cast<std::uint64_t>(status.st_size);
    return lastKnownSize_;
  }

  bool map() noexcept override {
    if (!mapping_.empty()) return true;
    const std::uint64_t fileSize = size();
    if (fileSize == 0 || !std::in_range<std::size_t>(fileSize)) return false;
    const auto bytes = static_cast<std::size_t>(fileSize);
    void* start = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, descriptor_.get(), 0);
    if (start == MAP_FAILED) return false;
    mapping_ = {static_cast<const std::byte*>(start), bytes};
    return true;
  }

  void unmap() noexcept override {
    const std::span<const std::byte> mapped = std::exchange(mapping_, {});
    if (!mapped.empty()) (void)munmap(const_cast<std::byte*>(mapped.data()), mapped.size());
  }

  int descriptor() const noexcept override { return descriptor_.get(); }

  int close() noexcept override { return descriptor_.close(); }

 private:
  ssize_t readSome(std::uint64_t offset, std::span<std::byte> buffer) noexcept override {
    return pread(descriptor_.get(), buffer.data(), buffer.size(), static_cast<off_t>(offset));
  }

  ssize_t writeSome(std::uint64_t offset, std::span<const std::byte> data) noexcept override {
    if (isAtFileSizeLimit(offset)) {
      errno = EFBIG;
      return -1;
    }
    const ssize_t count =
        pwrite(descriptor_.get(), data.data(), data.size(), static_cast<off_t>(offset));
    if (count > 0)
      lastKnownSize_ = std::max(lastKnownSize_, offset + static_cast<std::uint64_t>(count));
    return count;
  }

  bool shorten(std::uint64_t size) noexcept override {
    if (ftruncate(descriptor_.get(), static_cast<off_t>(size)) != 0) return false;
    lastKnownSize_ = size;
    return true;
  }

  OpenFile openFile_;
  FileDescriptor descriptor_;
  std::uint64_t lastKnownSize_;  // what counts when the system does not tell: 0 would cut it off
};

// Says why, the way libtiff does for its own failures.
std::nullptr_t refuse(const std::string& name, const std::string& reason) {
  sayError("TIFFOpen", "%s: %s", name.c_str(), reason.c_str());
  return nullptr;
}

std::nullptr_t refuse(const std::string& name, int errorNumber) {
  return refuse(name, std::generic_category().message(errorNumber));
}

}  // namespace

// Without O_NONBLOCK the open of a FIFO waits for its other end.
std::unique_ptr<FileSource> openRegularFile(const std::string& name, const OpenMode& mode) {
  constexpr mode_t kReadWriteForAll = 0666;
  FileDescriptor descriptor(
      ::open(name.c_str(), mode.flags | O_NONBLOCK | O_CLOEXEC, kReadWriteForAll));
  struct stat status;
  if (descriptor.get() < 0 || fstat(descriptor.get(), &status) != 0) return refuse(name, errno);
  if (S_ISDIR(status.st_mode)) return refuse(name, EISDIR);
  if (!S_ISREG(status.st_mode)) return refuse(name, "Not a regular file");
  auto file = std::make_unique<RegularFile>(std::move(descriptor), status);
  if (mode.maps) (void)file->map();  // what cannot be mapped is read
  if (!mode.truncates) return file;

  if (!file->isOnlyUser())
    return refuse(name, "The file is open and cannot be written anew before it is closed");
  if (!file->empty()) return refuse(name, errno);
  return file;
}

}  // namespace tb::runtime

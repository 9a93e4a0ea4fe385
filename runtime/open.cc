// Opening files for libtiff.
#include <fcntl.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <boost/locale/encoding_utf.hpp>
#include <cerrno>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "host/tiff_utilities.h"
#include "runtime/file_objects.h"
#include "runtime/memory.h"
#include "runtime/messages.h"
#include "runtime/open_mode.h"
#include "runtime/open_object.h"

namespace tb::runtime {
namespace {

class FileDescriptor {
 public:
  explicit FileDescriptor(int number) noexcept : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&&) = delete;
  ~FileDescriptor() {
    if (number_ >= 0) close(number_);
  }
  int get() const noexcept { return number_; }
  int release() noexcept { return std::exchange(number_, -1); }

 private:
  int number_;
};

struct FileIdentity {
  dev_t device;
  ino_t inode;
  bool operator==(const FileIdentity&) const = default;
};

// --- Which files are open here. libtiff closes descriptors without telling, so an entry is
// believed only when its descriptor still refers to that file and still carries the O_NONBLOCK that
// the open left there, which tells it from another open of the same file that got the number since.

std::mutex openFilesLock;
std::map<int, FileIdentity> openFiles;

FileIdentity identityOf(const struct stat& status) { return {status.st_dev, status.st_ino}; }

bool stillOpen(int descriptor, const FileIdentity& file) {
  struct stat status;
  if (fstat(descriptor, &status) != 0 || !(identityOf(status) == file)) return false;
  const int flags = fcntl(descriptor, F_GETFL);
  return flags >= 0 && (flags & O_NONBLOCK) != 0;
}

// Whether a handle other than the one that `own` is about to become has the file open. An entry
// with the number `own` is of an earlier open, closed since, or the number would not be free.
bool isOpenHere(const FileIdentity& file, int own) {
  const std::lock_guard guard(openFilesLock);
  openFiles.erase(own);
  for (const auto& [descriptor, identity] : openFiles)
    if (identity == file && stillOpen(descriptor, identity)) return true;
  return false;
}

// Replaces what was known of a closed descriptor with the same number.
void rememberOpen(int descriptor) {
  struct stat status;
  if (fstat(descriptor, &status) != 0) return;
  const std::lock_guard guard(openFilesLock);
  openFiles.insert_or_assign(descriptor, identityOf(status));
}

// --- Opening

// Says why, the way libtiff does for its own failures.
std::nullopt_t refuse(const std::string& name, const std::string& reason) {
  TIFFError("TIFFOpen", "%s: %s", name.c_str(), reason.c_str());
  return std::nullopt;
}

std::nullopt_t refuse(const std::string& name, int errorNumber) {
  return refuse(name, std::generic_category().message(errorNumber));
}

// Null when the text is no file name: an unpaired surrogate would be replaced and a NUL would cut
// it, and then another file would be opened than the one asked for.
std::optional<std::string> utf8Name(const std::u16string& name) try {
  std::string utf8 = boost::locale::conv::utf_to_utf<char>(name, boost::locale::conv::stop);
  if (utf8.find('\0') != std::string::npos)
    return refuse(utf8.c_str(), "The file name holds a NUL character");
  return utf8;
} catch (const boost::locale::conv::conversion_error&) {
  return refuse("?", "The file name is not valid UTF-16 text");
}

// Without O_NONBLOCK the open of a FIFO waits for its other end.
std::optional<FileDescriptor> openRegularFile(const std::string& name, const OpenMode& mode) {
  constexpr mode_t kReadWriteForAll = 0666;
  FileDescriptor descriptor(
      ::open(name.c_str(), mode.flags | O_NONBLOCK | O_CLOEXEC, kReadWriteForAll));
  struct stat status;
  if (descriptor.get() < 0 || fstat(descriptor.get(), &status) != 0) return refuse(name, errno);
  if (S_ISDIR(status.st_mode)) return refuse(name, EISDIR);
  if (!S_ISREG(status.st_mode)) return refuse(name, "Not a regular file");
  if (!mode.truncates) return descriptor;

  // A handle that reads this file may have it mapped; access to pages beyond the end is a signal.
  if (isOpenHere(identityOf(status), descriptor.get()))
    return refuse(name, "The file is open and cannot be written anew before it is closed");
  if (ftruncate(descriptor.get(), 0) != 0) return refuse(name, errno);
  return descriptor;
}

struct OptionsDeleter {
  void operator()(TIFFOpenOptions* options) const noexcept { TIFFOpenOptionsFree(options); }
};

using Options = std::unique_ptr<TIFFOpenOptions, OptionsDeleter>;

Options openOptions() {
  Options options(TIFFOpenOptionsAlloc());
  if (options == nullptr) throw std::bad_alloc();
  constexpr auto kLargest = static_cast<std::size_t>(std::numeric_limits<tmsize_t>::max());
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(),
                                      static_cast<tmsize_t>(std::min(memoryLimit(), kLargest)));
  return options;
}

TIFF* openHandle(const FileDescriptor& file, const std::string& name, const OpenMode& mode) {
  const Options options = openOptions();
  return TIFFFdOpenExt(file.get(), name.c_str(), mode.forLibtiff.c_str(), options.get());
}

std::optional<OpenMode> knownMode(const std::string& name, const char* text) {
  std::optional<OpenMode> mode = parseOpenMode(text);
  if (!mode) return refuse(name, std::string("Bad mode \"") + text + "\"");
  return mode;
}

TIFF* openNamedObject(const NamedFileObject& named, const char* modeText) {
  const std::optional<OpenMode> mode = knownMode(named.label, modeText);
  return mode ? openObject(named, *mode, openOptions().get()) : nullptr;
}

TIFF* open(const std::u16string& fileName, const char* modeText) {
  if (const auto named = findFileObject(fileName)) return openNamedObject(*named, modeText);
  const std::optional<std::string> name = utf8Name(fileName);
  if (!name) return nullptr;
  const std::optional<OpenMode> mode = knownMode(*name, modeText);
  if (!mode) return nullptr;
  std::optional<FileDescriptor> file = openRegularFile(*name, *mode);
  if (!file) return nullptr;
  rememberOpen(file->get());
  TIFF* tif = openHandle(*file, *name, *mode);
  if (tif != nullptr) (void)file->release();  // TIFFClose closes it
  return tif;
}

}  // namespace
}  // namespace tb::runtime

TIFF* tiffutils::UOpen(const std::u16string& fileName, const char* mode) {
  const std::size_t before = tb::runtime::messageCount();
  TIFF* tif = tb::runtime::open(fileName, mode);
  if (tif == nullptr) tb::runtime::dropRepeatedMessages(before);
  return tif;
}

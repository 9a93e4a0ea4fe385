#include "faults/interposed.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <new>

#include "core/export.h"

namespace tb::faults {
namespace {

thread_local Fault armed = Fault::kNone;
thread_local bool isInForce = false;
thread_local bool isCounting = false;
thread_local std::size_t remaining = 0;
thread_local bool hasCome = false;
thread_local std::array<std::size_t, kFaultKinds> events;
std::atomic<std::size_t> live = 0;

// Where files are mapped; all are at work on one thread.
std::array<void*, 64> mapped;

bool isLasting(Fault kind) noexcept { return kind == Fault::kDiskFull || kind == Fault::kOpen; }

// Whether this event of the kind is the one that fails.
bool isDue(Fault kind) noexcept {
  if (!isCounting || !isInForce) return false;
  if (armed == Fault::kNone) ++events[static_cast<std::size_t>(kind)];
  if (armed != kind) return false;
  if (hasCome) return isLasting(kind);
  if (remaining-- > 0) return false;
  return hasCome = true;
}

// Whether code at this address is the module's or the embedded host's, or works for them. libtiff
// and its codecs do not survive every small allocation that fails.
bool isOurs(const void* code) noexcept {
  Dl_info library{};
  if (dladdr(code, &library) == 0 || library.dli_fname == nullptr) return true;
  constexpr const char* kOthers[] = {"libtiff",    "libLerc",    "libwebp", "libzstd",
                                     "libjpeg",    "liblzma",    "libz.",   "libjbig",
                                     "libopenjp2", "libdeflate", "libc.so"};
  for (const char* other : kOthers) {
    if (std::strstr(library.dli_fname, other) != nullptr) return false;
  }
  return true;
}

bool isAllocationDue(std::size_t size, const void* caller) noexcept {
  constexpr std::size_t kLarge = 4096;
  if (!isCounting || !isInForce) return false;
  const bool isWanted = armed == Fault::kNone || armed == Fault::kAllocation;
  return (size >= kLarge && isDue(Fault::kLargeAllocation)) ||
         (isWanted && isOurs(caller) && isDue(Fault::kAllocation));
}

void* counted(void* memory) noexcept {
  live += malloc_usable_size(memory);
  return memory;
}

void* noMemory() noexcept {
  errno = ENOMEM;
  return nullptr;
}

ssize_t failed(int error) noexcept {
  errno = error;
  return -1;
}

// The C library's own: how the kernel wants the arguments differs from machine to machine.
template <class Function>
Function* libraryFunction(const char* name) noexcept {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

const char* nameOf(Fault fault) noexcept {
  constexpr const char* kNames[kFaultKinds] = {
      "none",         "allocation",  "large allocation",  "read error",   "interrupted read",
      "short read",   "write error", "interrupted write", "short write",  "full disk",
      "no room once", "failed open", "failed close",      "failed fstat", "failed ftruncate"};
  return kNames[static_cast<std::size_t>(fault)];
}

Armed::Armed(Fault fault, std::size_t number) noexcept {
  armed = fault;
  isInForce = true;
  remaining = number;
  hasCome = false;
  if (fault == Fault::kNone) events = {};
}

Armed::~Armed() { disarm(); }

bool hasFailed() noexcept { return hasCome; }

void disarm() noexcept { isInForce = false; }

bool isArmed() noexcept { return isInForce; }

bool isUndisturbed() noexcept { return isInForce && armed == Fault::kNone; }

std::size_t eventsOf(Fault fault) noexcept { return events[static_cast<std::size_t>(fault)]; }

void countEvents(bool isOn) noexcept { isCounting = isOn; }

std::size_t liveBytes() noexcept { return live; }

std::size_t mappedFiles() noexcept {
  return mapped.size() - static_cast<std::size_t>(std::ranges::count(mapped, nullptr));
}

}  // namespace tb::faults

// --- What stands in for the C library

// NOLINTBEGIN(google-build-using-namespace,bugprone-reserved-identifier): these act on what the
// namespace above holds, and the C library has its own functions under such names
using namespace tb::faults;

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* memory);
}

namespace {

void* aligned(std::size_t alignment, std::size_t size, const void* caller) {
  if (isAllocationDue(size, caller)) return noMemory();
  return counted(__libc_memalign(alignment, size));
}

}  // namespace

extern "C" {

TAGBRIDGE_EXPORT void* malloc(std::size_t size) {
  if (isAllocationDue(size, __builtin_return_address(0))) return noMemory();
  return counted(__libc_malloc(size));
}

TAGBRIDGE_EXPORT void* calloc(std::size_t count, std::size_t size) {
  if (isAllocationDue(count * size, __builtin_return_address(0))) return noMemory();
  return counted(__libc_calloc(count, size));
}

TAGBRIDGE_EXPORT void* realloc(void* memory, std::size_t size) {
  if (isAllocationDue(size, __builtin_return_address(0))) return noMemory();
  const std::size_t before = malloc_usable_size(memory);
  void* const moved = __libc_realloc(memory, size);
  if (moved == nullptr && size > 0) return nullptr;  // `memory` stays
  live -= before;
  return counted(moved);
}

TAGBRIDGE_EXPORT void* memalign(std::size_t alignment, std::size_t size) {
  return aligned(alignment, size, __builtin_return_address(0));
}

TAGBRIDGE_EXPORT void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return aligned(alignment, size, __builtin_return_address(0));
}

TAGBRIDGE_EXPORT int posix_memalign(void** memory, std::size_t alignment, std::size_t size) {
  *memory = aligned(alignment, size, __builtin_return_address(0));
  return *memory == nullptr ? ENOMEM : 0;
}

TAGBRIDGE_EXPORT void free(void* memory) {
  live -= malloc_usable_size(memory);
  __libc_free(memory);
}

// Of anonymous memory only: a file that cannot be mapped is read.
TAGBRIDGE_EXPORT void* mmap64(void* place, std::size_t size, int protection, int flags, int file,
                              off64_t offset) {
  const bool isFile = (flags & MAP_ANONYMOUS) == 0;
  if (!isFile && isAllocationDue(size, __builtin_return_address(0))) {
    noMemory();
    return MAP_FAILED;
  }
  static auto* const real = libraryFunction<decltype(mmap64)>("mmap64");
  void* const memory = real(place, size, protection, flags, file, offset);
  if (isCounting && isFile && memory != MAP_FAILED) *std::ranges::find(mapped, nullptr) = memory;
  return memory;
}

TAGBRIDGE_EXPORT int munmap(void* memory, std::size_t size) {
  if (isCounting) std::ranges::replace(mapped, memory, static_cast<void*>(nullptr));
  static auto* const real = libraryFunction<decltype(munmap)>("munmap");
  return real(memory, size);
}

TAGBRIDGE_EXPORT ssize_t pread64(int file, void* buffer, std::size_t size, off64_t offset) {
  if (isDue(Fault::kReadError)) return failed(EIO);
  if (isDue(Fault::kReadInterrupt)) return failed(EINTR);
  if (size > 1 && isDue(Fault::kReadShort)) --size;
  static auto* const real = libraryFunction<decltype(pread64)>("pread64");
  return real(file, buffer, size, offset);
}

TAGBRIDGE_EXPORT ssize_t pwrite64(int file, const void* data, std::size_t size, off64_t offset) {
  if (isDue(Fault::kWriteError)) return failed(EIO);
  if (isDue(Fault::kWriteInterrupt)) return failed(EINTR);
  if (isDue(Fault::kDiskFull) || isDue(Fault::kRoomForOthers)) return failed(ENOSPC);
  if (size > 1 && isDue(Fault::kWriteShort)) --size;
  static auto* const real = libraryFunction<decltype(pwrite64)>("pwrite64");
  return real(file, data, size, offset);
}

TAGBRIDGE_EXPORT int open64(const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t rights = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  if (isDue(Fault::kOpen)) return static_cast<int>(failed(EMFILE));
  static auto* const real = libraryFunction<decltype(open64)>("open64");
  return real(name, flags, rights);
}

TAGBRIDGE_EXPORT int close(int file) {
  static auto* const real = libraryFunction<decltype(close)>("close");
  const int status = real(file);
  return isDue(Fault::kClose) ? static_cast<int>(failed(EIO)) : status;
}

TAGBRIDGE_EXPORT int fstat64(int file, struct stat64* status) {
  if (isDue(Fault::kStatus)) return static_cast<int>(failed(EIO));
  static auto* const real = libraryFunction<decltype(fstat64)>("fstat64");
  return real(file, status);
}

TAGBRIDGE_EXPORT int ftruncate64(int file, off64_t size) {
  if (isDue(Fault::kTruncate)) return static_cast<int>(failed(EIO));
  static auto* const real = libraryFunction<decltype(ftruncate64)>("ftruncate64");
  return real(file, size);
}

#ifndef __USE_FILE_OFFSET64  // else these are the ones above by other names
TAGBRIDGE_EXPORT void* mmap(void* place, std::size_t size, int protection, int flags, int file,
                            off_t offset) {
  return mmap64(place, size, protection, flags, file, offset);
}

TAGBRIDGE_EXPORT ssize_t pread(int file, void* buffer, std::size_t size, off_t offset) {
  return pread64(file, buffer, size, offset);
}

TAGBRIDGE_EXPORT ssize_t pwrite(int file, const void* data, std::size_t size, off_t offset) {
  return pwrite64(file, data, size, offset);
}

TAGBRIDGE_EXPORT int open(const char* name, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t rights = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return open64(name, flags, rights);
}

TAGBRIDGE_EXPORT int fstat(int file, struct stat* status) {
  static_assert(sizeof(struct stat) == sizeof(struct stat64));
  return fstat64(file, reinterpret_cast<struct stat64*>(status));
}

TAGBRIDGE_EXPORT int ftruncate(int file, off_t size) { return ftruncate64(file, size); }
#endif

}  // extern "C"

namespace {

void* allocated(std::size_t size, std::size_t alignment, const void* caller) {
  void* memory = nullptr;
  if (!isAllocationDue(size, caller)) {
    memory = alignment > 0 ? __libc_memalign(alignment, size) : __libc_malloc(size > 0 ? size : 1);
  }
  if (memory == nullptr) throw std::bad_alloc();
  return counted(memory);
}

}  // namespace

TAGBRIDGE_EXPORT void* operator new(std::size_t size) {
  return allocated(size, 0, __builtin_return_address(0));
}
TAGBRIDGE_EXPORT void* operator new[](std::size_t size) {
  return allocated(size, 0, __builtin_return_address(0));
}
TAGBRIDGE_EXPORT void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocated(size, static_cast<std::size_t>(alignment), __builtin_return_address(0));
}
TAGBRIDGE_EXPORT void operator delete(void* memory) noexcept { free(memory); }
TAGBRIDGE_EXPORT void operator delete[](void* memory) noexcept { free(memory); }
TAGBRIDGE_EXPORT void operator delete(void* memory, std::size_t) noexcept { free(memory); }
TAGBRIDGE_EXPORT void operator delete[](void* memory, std::size_t) noexcept { free(memory); }
TAGBRIDGE_EXPORT void operator delete(void* memory, std::align_val_t) noexcept { free(memory); }
TAGBRIDGE_EXPORT void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  free(memory);
}
// NOLINTEND(google-build-using-namespace,bugprone-reserved-identifier)

#include "faults/interposed.h"

#include <dlfcn.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>

#include "core/export.h"

namespace tb::faults {
namespace {

thread_local Fault armed = Fault::kNone;
thread_local bool isCounting = false;
thread_local std::size_t remaining = 0;
thread_local bool hasCome = false;
std::atomic<std::size_t> live = 0;

// Whether this event of the kind is the one that fails.
bool isDue(Fault kind) noexcept {
  if (!isCounting || armed != kind) return false;
  if (hasCome) return kind == Fault::kDiskFull;
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
  if (!isCounting) return false;
  if (armed == Fault::kLargeAllocation) return size >= kLarge && isDue(Fault::kLargeAllocation);
  return armed == Fault::kAllocation && isOurs(caller) && isDue(Fault::kAllocation);
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
  constexpr const char* kNames[] = {
      "none",       "allocation",  "large allocation",  "read error",  "interrupted read",
      "short read", "write error", "interrupted write", "short write", "full disk"};
  return kNames[static_cast<std::size_t>(fault)];
}

Armed::Armed(Fault fault, std::size_t number) noexcept {
  armed = fault;
  remaining = number;
  hasCome = false;
}

Armed::~Armed() { armed = Fault::kNone; }

bool Armed::hasFailed() const noexcept { return hasCome; }

void countEvents(bool isOn) noexcept { isCounting = isOn; }

std::size_t liveBytes() noexcept { return live; }

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
  if ((flags & MAP_ANONYMOUS) != 0 && isAllocationDue(size, __builtin_return_address(0))) {
    noMemory();
    return MAP_FAILED;
  }
  static auto* const real = libraryFunction<decltype(mmap64)>("mmap64");
  return real(place, size, protection, flags, file, offset);
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
  if (isDue(Fault::kDiskFull)) return failed(ENOSPC);
  if (size > 1 && isDue(Fault::kWriteShort)) --size;
  static auto* const real = libraryFunction<decltype(pwrite64)>("pwrite64");
  return real(file, data, size, offset);
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

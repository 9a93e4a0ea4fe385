#include "runtime/file_source.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <system_error>

#include "host/tiff_utilities.h"
#include "runtime/messages.h"

namespace tb::runtime {

std::size_t FileSource::readAt(std::uint64_t offset, std::span<std::byte> buffer,
                               std::size_t enough) noexcept {
  const std::size_t wanted = std::min(buffer.size(), enough);
  // An offset past the map, which may not fit into memory, is the end of the map.
  const auto start = static_cast<std::size_t>(std::min<std::uint64_t>(offset, mapping_.size()));
  const std::span<const std::byte> mapped = mapping_.subspan(start);
  if (wanted <= mapped.size()) {
    const std::size_t count = std::min(buffer.size(), mapped.size());
    std::ranges::copy(mapped.first(count), buffer.begin());
    return count;
  }
  std::size_t done = 0;
  while (done < wanted) {
    const ssize_t count = readSome(offset + done, buffer.subspan(done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && readFailure_ == 0) readFailure_ = errno;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  if (update_) update_->show(offset, buffer.first(done));
  return done;
}

std::size_t FileSource::read(std::span<std::byte> buffer) noexcept {
  const std::size_t done = readAt(position_, buffer);
  position_ += done;
  if (reversesBits_) {
    TIFFReverseBits(reinterpret_cast<std::uint8_t*>(buffer.data()), static_cast<tmsize_t>(done));
  }
  return done;
}

std::size_t FileSource::writeAll(std::uint64_t offset, std::span<const std::byte> data) noexcept {
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t count = writeSome(offset + done, data.subspan(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      if (writeFailure_ == 0) writeFailure_ = count < 0 ? errno : ENOSPC;
      break;
    }
    done += static_cast<std::size_t>(count);
  }
  return done;
}

bool FileSource::hold(std::span<const std::byte> data) noexcept try {
  update_->add(position_, data);
  return true;
} catch (const std::bad_alloc&) {
  if (writeFailure_ == 0) writeFailure_ = ENOMEM;
  return false;
}

std::size_t FileSource::write(std::span<const std::byte> data) noexcept {
  if (isOpening_ && readFailure_ != 0) return 0;
  std::size_t held = 0;
  if (update_ && position_ < update_->fileSize()) {
    held = static_cast<std::size_t>(
        std::min<std::uint64_t>(data.size(), update_->fileSize() - position_));
    if (!hold(data.first(held))) return 0;
  }
  const std::size_t done = held + writeAll(position_ + held, data.subspan(held));
  position_ += done;
  return done;
}

void FileSource::beginUpdate() noexcept {
  writeFailure_ = 0;
  update_.emplace(size());
}

bool FileSource::commitUpdate() noexcept {
  HeldWrites update = std::move(*update_);
  update_.reset();
  const auto read = [&](std::uint64_t offset, std::span<std::byte> buffer) {
    return readAt(offset, buffer) == buffer.size();
  };
  const auto write = [&](std::uint64_t offset, std::span<const std::byte> data) {
    return writeAll(offset, data) == data.size();
  };
  const HeldWrites::Made made =
      writeFailure_ == 0 ? update.make(read, write) : HeldWrites::Made::kNone;
  // What was appended stays when a link to it may: a file that stays longer than it was is still a
  // good file.
  if (made == HeldWrites::Made::kNone) (void)shorten(update.fileSize());
  return made == HeldWrites::Made::kAll;
}

void FileSource::cancelUpdate() noexcept {
  const std::uint64_t before = update_->fileSize();
  update_.reset();
  if (size() > before) (void)shorten(before);
}

std::uint64_t FileSource::seek(std::uint64_t offset, int whence) noexcept {
  std::uint64_t base = 0;
  if (whence == SEEK_CUR) base = position_;
  if (whence == SEEK_END) base = size();
  // Wraps as a negative offset does.
  const std::uint64_t wanted = base + offset;
  if (wanted > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) return kNowhere;
  position_ = wanted;
  return wanted;
}

// --- libtiff's procedures

namespace {

FileSource& sourceAt(thandle_t handle) noexcept { return *static_cast<FileSource*>(handle); }

// libtiff asks for sizes that it computed, and a negative one is none.
std::span<std::byte> bufferAt(void* data, tmsize_t size) noexcept {
  return {static_cast<std::byte*>(data), static_cast<std::size_t>(std::max(size, tmsize_t{0}))};
}

// libtiff does not always tell of bytes that are missing: it takes a link that it cannot read for
// the end of the chain.
tmsize_t readProcedure(thandle_t handle, void* data, tmsize_t size) noexcept {
  FileSource& source = sourceAt(handle);
  const int before = source.readFailure();
  const std::size_t done = source.read(bufferAt(data, size));
  if (before == 0 && source.readFailure() != 0)
    sayError("TIFFRead", "%s", std::generic_category().message(source.readFailure()).c_str());
  return static_cast<tmsize_t>(done);
}

tmsize_t writeProcedure(thandle_t handle, void* data, tmsize_t size) noexcept {
  return static_cast<tmsize_t>(sourceAt(handle).write(bufferAt(data, size)));
}

toff_t seekProcedure(thandle_t handle, toff_t offset, int whence) noexcept {
  return sourceAt(handle).seek(offset, whence);
}

toff_t sizeProcedure(thandle_t handle) noexcept { return sourceAt(handle).size(); }

int closeProcedure(thandle_t handle) noexcept {
  const std::unique_ptr<FileSource> source(&sourceAt(handle));
  const int failure = source->close();
  if (failure == 0) return 0;
  // Some file systems find out only now that there was no room for what was written.
  sayError("TIFFClose", "%s", std::generic_category().message(failure).c_str());
  return -1;
}

int mapProcedure(thandle_t handle, void** base, toff_t* size) noexcept {
  FileSource& source = sourceAt(handle);
  if (!source.map()) return 0;
  // libtiff has no other type for it; it only reads from there.
  *base = const_cast<std::byte*>(source.mapping().data());
  *size = source.mapping().size();
  return 1;
}

void unmapProcedure(thandle_t handle, void*, toff_t) noexcept { sourceAt(handle).unmap(); }

struct OptionsDeleter {
  void operator()(TIFFOpenOptions* options) const noexcept { TIFFOpenOptionsFree(options); }
};

}  // namespace

TIFF* openSource(std::unique_ptr<FileSource> source, const std::string& name,
                 const std::string& mode, std::size_t largestAllocation) {
  const std::unique_ptr<TIFFOpenOptions, OptionsDeleter> options(TIFFOpenOptionsAlloc());
  if (options == nullptr) throw std::bad_alloc();
  constexpr auto kLargest = static_cast<std::size_t>(std::numeric_limits<tmsize_t>::max());
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(),
                                      static_cast<tmsize_t>(std::min(largestAllocation, kLargest)));
  collectMessagesOf(options.get());
  source->setOpening(true);
  TIFF* tif = TIFFClientOpenExt(name.c_str(), mode.c_str(), source.get(), readProcedure,
                                writeProcedure, seekProcedure, closeProcedure, sizeProcedure,
                                mapProcedure, unmapProcedure, options.get());
  if (tif == nullptr) return nullptr;
  source->setOpening(false);
  (void)TIFFSetFileno(tif, source->descriptor());
  (void)source.release();  // closeProcedure answers for it now
  return tif;
}

FileSource* sourceOf(TIFF* tif) noexcept {
  return TIFFGetReadProc(tif) == readProcedure ? &sourceAt(TIFFClientdata(tif)) : nullptr;
}

}  // namespace tb::runtime

bool ZQTIFFcheckWriteFailure(TIFF* tif) {
  tb::runtime::FileSource* source = tb::runtime::sourceOf(tif);
  return source != nullptr && source->takeWriteFailure() != 0;
}

bool ZQTIFFcheckReadFailure(TIFF* tif) {
  tb::runtime::FileSource* source = tb::runtime::sourceOf(tif);
  return source != nullptr && source->takeReadFailure() != 0;
}

void ZQTIFFreverseBitsRead(TIFF* tif, bool isOn) noexcept {
  if (auto* source = tb::runtime::sourceOf(tif)) source->reverseBitsRead(isOn);
}

std::span<const std::byte> ZQTIFFmapping(TIFF* tif) noexcept {
  const tb::runtime::FileSource* source = tb::runtime::sourceOf(tif);
  return source != nullptr ? source->mapping() : std::span<const std::byte>();
}

bool ZQTIFFbeginUpdate(TIFF* tif) {
  tb::runtime::FileSource* source = tb::runtime::sourceOf(tif);
  if (source != nullptr) source->beginUpdate();
  return source != nullptr;
}

bool ZQTIFFcommitUpdate(TIFF* tif) { return tb::runtime::sourceOf(tif)->commitUpdate(); }

void ZQTIFFcancelUpdate(TIFF* tif) noexcept { tb::runtime::sourceOf(tif)->cancelUpdate(); }

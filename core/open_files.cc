#include "core/open_files.h"

#include <fcntl.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include "core/errors.h"
#include "core/registry.h"
#include "core/turns.h"
#include "core/values.h"

namespace tb {

namespace {

using DepartedFiles = std::multimap<TIFF*, std::unique_ptr<RegisteredFile>>;

// A process may end by exit(3) while threads of it call the module, which go on with what is known
// of their files. So the maps are not destroyed; when the module is unloaded after its cleanup,
// nothing is left in them.
class Records {
 public:
  ~Records() {
    const std::lock_guard lock(registryLock);
    if (isAnyCallRunning()) return;
    std::erase_if(files, [](const auto& entry) { return entry.second->known.closedByCleanup; });
    departed.clear();
  }

  union {
    FileRegistry files{};
  };
  union {
    DepartedFiles departed{};  // taken out while it was somebody's turn on them
  };
};

Records records;
DepartedFiles& departed = records.departed;

TIFF* requireOpen(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  if (file == nullptr || file->closedByCleanup) raise<Tiff::invalidFileId>();
  return tif;
}

}  // namespace

FileRegistry& OpenFileRegistry = records.files;

vxArrayPtr packUpTiffFileId(TIFF* tif) {
  constexpr std::size_t kDimensions[] = {1, 1};
  vxArrayPtr fileId = matrix::detail::do_create_uninitnumeric(vxUINT64, kDimensions);
  const auto address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(tif));
  std::memcpy(vxGetWritableData(fileId.get()), &address, sizeof address);
  return fileId;
}

TIFF* getFileID(const vxArray* fileId) {
  const auto address = firstElement<std::uint64_t>(fileId);
  if (address == 0) raise<Tiff::badFileId>();
  return reinterpret_cast<TIFF*>(static_cast<std::uintptr_t>(address));
}

TIFF* unpackTiffFileId(const vxArray* fileId) { return requireOpen(getFileID(fileId)); }

TIFF* unpackTiffFileId(const vxArray* fileId, s_tagbridge_op* op) {
  TIFF* tif = getFileID(fileId);
  return op->opcode == kCloseOpcode ? tif : requireOpen(tif);
}

void unregister(FileRegistry::iterator place) noexcept {
  RegisteredFile& file = *place->second;
  file.isRegistered.store(false, std::memory_order_relaxed);
  departed.insert(OpenFileRegistry.extract(place));
  file.freed.tell();
  releaseIfUnused(file);
}

void releaseIfUnused(RegisteredFile& file) noexcept {
  if (file.isRegistered || file.depth > 0 || file.freed.isAwaited()) return;
  std::erase_if(departed, [&](const auto& entry) { return entry.second.get() == &file; });
}

void TiffAtExitRegister(TIFF* tif) {
  const std::lock_guard lock(registryLock);
  auto& file = OpenFileRegistry[tif];
  if (file == nullptr) file = std::make_unique<RegisteredFile>();
  if (file->known.closedByCleanup) file->known = {};
}

void registerOpenedFile(TIFF* tif) {
  auto file = std::make_unique<RegisteredFile>();
  file->known.isOpenedHere = true;
  const std::lock_guard lock(registryLock);
  const auto former = OpenFileRegistry.find(tif);
  if (former != OpenFileRegistry.end()) unregister(former);
  OpenFileRegistry.emplace(tif, std::move(file));
}

void TiffAtExitUnregister(TIFF* tif) {
  const std::lock_guard lock(registryLock);
  const auto place = OpenFileRegistry.find(tif);
  if (place != OpenFileRegistry.end()) unregister(place);
}

bool TiffFilePointerIsInvalid(TIFF* tif) {
  const std::lock_guard lock(registryLock);
  return !OpenFileRegistry.contains(tif);
}

void OpenFile::forgetDirectory() noexcept {
  edited = tagsEdited = hasFailed = hasNewPlaces = isSubDirectory = coderUsed = false;
  loaded.reset();
  coder.reset();
  hasStoredPlaces.reset();
  storedDepth.reset();
}

OpenFile* findOpenFile(TIFF* tif) noexcept {
  const OwnTurn turn = ownTurn(tif);
  if (turn.isMine) return turn.file;
  const std::lock_guard lock(registryLock);
  const auto found = OpenFileRegistry.find(tif);
  return found != OpenFileRegistry.end() ? &found->second->known : nullptr;
}

std::vector<TIFF*> registeredFiles() {
  const std::lock_guard lock(registryLock);
  std::vector<TIFF*> files;
  for (const auto& [tif, file] : OpenFileRegistry) files.push_back(tif);
  return files;
}

bool isReadOnly(TIFF* tif) { return TIFFGetMode(tif) == O_RDONLY; }

bool isWithoutDirectory(TIFF* tif) noexcept {
  const OpenFile* file = findOpenFile(tif);
  return file != nullptr && (file->suspendedMode.has_value() || file->isSpoilt);
}

void beginDirectory(TIFF* tif) {
  (void)TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);  // ends the codec
  TIFFFreeDirectory(tif);
  (void)TIFFCreateDirectory(tif);
  if (OpenFile* file = findOpenFile(tif)) file->forgetDirectory();
}

int dropDirectory(TIFF* tif) {
  beginDirectory(tif);
  return TIFFSetMode(tif, O_RDONLY);
}

}  // namespace tb

#include "core/open_files.h"

#include <fcntl.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <utility>

#include "core/errors.h"
#include "core/values.h"

namespace tb {
namespace {

// Owns the records, not the handles. Those that TagBridgeCleanup closed stay, but whoever still
// holds their identifier must not reach freed memory.
std::map<TIFF*, OpenFile> OpenFileRegistry;

TIFF* requireOpen(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  if (file == nullptr || file->closedByCleanup) raise<Tiff::invalidFileId>();
  return tif;
}

}  // namespace

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

void TiffAtExitRegister(TIFF* tif) {
  OpenFile& file = OpenFileRegistry[tif];
  if (file.closedByCleanup) file = {};
}

void registerOpenedFile(TIFF* tif) {
  OpenFile file;
  file.isOpenedHere = true;
  OpenFileRegistry.insert_or_assign(tif, std::move(file));
}

void TiffAtExitUnregister(TIFF* tif) { OpenFileRegistry.erase(tif); }

bool TiffFilePointerIsInvalid(TIFF* tif) { return !OpenFileRegistry.contains(tif); }

void OpenFile::forgetDirectory() noexcept {
  edited = tagsEdited = hasFailed = hasNewPlaces = isSubDirectory = coderUsed = false;
  loaded.reset();
  coder.reset();
  hasStoredPlaces.reset();
  storedDepth.reset();
}

OpenFile* findOpenFile(TIFF* tif) noexcept {
  const auto found = OpenFileRegistry.find(tif);
  return found != OpenFileRegistry.end() ? &found->second : nullptr;
}

std::vector<TIFF*> registeredFiles() {
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

#include "gateway/file_id.h"

#include <fcntl.h>

#include <boost/locale/encoding_utf.hpp>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>

#include "gateway/errors.h"
#include "gateway/file_state.h"
#include "gateway/geo_tags.h"
#include "gateway/values.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

// The handles that the module opened, ascending by address. It does not own them.
std::set<TIFF*> OpenFileRegistry;

// Those of them that TagBridgeCleanup closed. They stay in the registry, but whoever still holds
// their identifier must not reach freed memory.
std::set<TIFF*> closedByCleanup;

TIFF* requireOpen(TIFF* tif) {
  if (!OpenFileRegistry.contains(tif) || closedByCleanup.contains(tif)) {
    raise<Tiff::invalidFileId>();
  }
  return tif;
}

void warnAboutOpenFile(TIFF* tif) noexcept {
  try {
    const char* name = TIFFFileName(tif);
    warn(Warning::closingFileHandle, boost::locale::conv::utf_to_utf<char16_t>(name ? name : ""));
  } catch (...) {
    // A host that turns warnings into exceptions must not keep the other files from being closed,
    // and at unload there is nobody left to tell.
  }
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
  OpenFileRegistry.insert(tif);
  closedByCleanup.erase(tif);
}

void TiffAtExitUnregister(TIFF* tif) {
  OpenFileRegistry.erase(tif);
  closedByCleanup.erase(tif);
}

bool TiffFilePointerIsInvalid(TIFF* tif) { return !OpenFileRegistry.contains(tif); }

void closeRegisteredFile(TIFF* tif) {
  if (TiffFilePointerIsInvalid(tif)) return;
  if (!closedByCleanup.contains(tif)) closeFile(tif);
  TiffAtExitUnregister(tif);
}

bool isReadOnly(TIFF* tif) { return TIFFGetMode(tif) == O_RDONLY; }

namespace {

void closeAllRegisteredFiles() {
  for (TIFF* tif : OpenFileRegistry) {
    if (!closedByCleanup.insert(tif).second) continue;
    warnAboutOpenFile(tif);
    closeFile(tif);
  }
}

}  // namespace
}  // namespace tb

void TagBridgeCleanup() {
  tb::closeAllRegisteredFiles();
  tb::unregisterGeoTags();
  unregisterJPEG2000Codecs();
  ZQTIFFrestorePreviousHandlers();
}

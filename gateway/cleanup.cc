#include "gateway/cleanup.h"

#include <boost/locale/encoding_utf.hpp>

#include "core/directory_writes.h"
#include "core/errors.h"
#include "core/geo_tags.h"
#include "core/open_files.h"
#include "core/turns.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

void warnAboutOpenFile(TIFF* tif) noexcept {
  try {
    const char* name = TIFFFileName(tif);
    warn(Warning::closingFileHandle, boost::locale::conv::utf_to_utf<char16_t>(name ? name : ""));
  } catch (...) {
    // A host that turns warnings into exceptions must not keep the other files from being closed,
    // and at unload there is nobody left to tell.
  }
}

void closeAllRegisteredFiles() {
  for (TIFF* tif : registeredFiles()) {
    OpenFile* file = findOpenFile(tif);
    if (file == nullptr || file->closedByCleanup) continue;
    file->closedByCleanup = true;
    warnAboutOpenFile(tif);
    storeEdits(tif);
    TIFFClose(tif);
  }
}

}  // namespace
}  // namespace tb

void TagBridgeCleanup() {
  const tb::CleanupTurn turn;
  tb::closeAllRegisteredFiles();
  tb::unregisterGeoTags();
  unregisterJPEG2000Codecs();
  ZQTIFFrestorePreviousHandlers();
}

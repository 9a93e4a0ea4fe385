#include <chrono>
#include <memory>
#include <string>

#include "core/directory_writes.h"
#include "core/errors.h"
#include "core/geo_tags.h"
#include "core/open_files.h"
#include "core/turns.h"
#include "handlers/compression.h"
#include "handlers/handlers.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

// Files on network shares and under virus scanners are often busy for a moment.
constexpr int kRetries = 10;
constexpr std::chrono::milliseconds kPause{100};

struct TiffCloser {
  void operator()(TIFF* tif) const noexcept { TIFFClose(tif); }
};

void requireChar(const vxArray* argument, const char* meaning) {
  if (vxGetClassID(argument) != vxCHAR) raise<Tiff::argumentWasNotChar>(meaning);
}

// A cleanup may come during a pause. Nothing that it changes is held over one: the name and the
// mode are copies, and the file is registered when it is open.
TIFF* openWithRetries(const std::u16string& fileName, const std::string& mode) {
  TIFF* tif = tiffutils::UOpen(fileName, mode.c_str());
  for (int retry = 0; !tif && retry < kRetries; ++retry) {
    pauseCall(kPause);
    registerGeoTagsOnce();  // a cleanup may have come between
    tif = tiffutils::UOpen(fileName, mode.c_str());
  }
  if (!tif) raise<Tiff::unableToOpenFile>(fileName);
  return tif;
}

}  // namespace

void TIFFOpen_handler(int outputCount, vxArrayPtr* outputs, int, const vxArray* const* inputs,
                      s_tagbridge_op*) {
  requireChar(inputs[0], "file");
  requireChar(inputs[1], "access mode");
  const std::u16string fileName = matrix::get_ustring(inputs[0]);
  const std::string mode = matrix::get_string(inputs[1]);
  registerGeoTagsOnce();
  std::unique_ptr<TIFF, TiffCloser> file(openWithRetries(fileName, mode));
  validateCompressionScheme(file.get());
  // The identifier is made first: should that fail, the file is closed and nobody has heard of it.
  vxArrayPtr fileId = packUpTiffFileId(file.get());
  registerOpenedFile(file.get());
  (void)file.release();  // the registry answers for it now
  storeOutput(outputCount, outputs, 0, std::move(fileId));
}

void TIFFClose_handler(int, vxArrayPtr*, int, const vxArray* const* inputs, s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  const OpenFile* file = findOpenFile(tif);
  if (file == nullptr) return;
  const bool isOpen = !file->closedByCleanup;
  if (isOpen) storeEdits(tif);
  // First this: another thread's open may be given the address as soon as the handle is gone.
  TiffAtExitUnregister(tif);
  if (isOpen) TIFFClose(tif);
}

}  // namespace tb

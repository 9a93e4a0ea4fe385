#include "core/edits.h"

#include "core/field_guard.h"

namespace tb {
namespace {

// Settings after which the codec has libtiff compute its sizes anew by itself.
bool recomputesSizes(std::uint32_t tag) noexcept {
  return tag == TIFFTAG_JPEGCOLORMODE || tag == TIFFTAG_SGILOGDATAFMT;
}

std::uint16_t compressionOf(TIFF* tif) {
  return fieldOrDefault<std::uint16_t>(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
}

// A directory that is not in the file has no sizes yet: libtiff decodes none of its blocks before
// the first is written, and by then the layout is frozen.
bool isLoaded(TIFF* tif) { return TIFFCurrentDirOffset(tif) != 0; }

// Whether the blocks in the file have other sizes than the tags say by now. The rows of an
// uncompressed strip are counted anew at each read.
bool sizesDiffer(const Layout& before, const Layout& now) {
  return before.isTiled != now.isTiled || before.tileSize != now.tileSize ||
         (now.compression != COMPRESSION_NONE && before.rowSize != now.rowSize);
}

// libtiff goes on calling the decoder of old-style JPEG after each block when the directory has
// another codec by then.
bool leavesOldJpegBehind(const OpenFile& file, const Layout& now) {
  return file.loaded && file.loaded->compression == COMPRESSION_OJPEG &&
         now.compression != COMPRESSION_OJPEG;
}

// Whether the codec was set up by another layout, or is still called though it is another's turn.
bool isCodecUnfit(const OpenFile& file, const Layout& now) {
  return (file.coder && !(*file.coder == now)) || leavesOldJpegBehind(file, now);
}

}  // namespace

EditScope::EditScope(TIFF* tif, std::uint32_t tag)
    : tif_(tif), tag_(tag), file_(findOpenFile(tif)) {
  if (file_ == nullptr || isReadOnly(tif) || !isLoaded(tif)) return;
  if (!file_->loaded) {
    file_->loaded = layoutOf(tif);
    if (file_->coderUsed) file_->coder = file_->loaded;
  }
  if (recomputesSizes(tag)) sizesAreCurrent_ = *file_->loaded == layoutOf(tif);
  if (tag == TIFFTAG_COMPRESSION) compression_ = compressionOf(tif);
}

EditScope::~EditScope() {
  if (file_ == nullptr) return;
  const bool isRefused = std::uncaught_exceptions() > exceptions_;
  if (!isRefused) file_->edited = file_->tagsEdited = true;
  if (sizesAreCurrent_) {
    file_->loaded = layoutOf(tif_);
    if (file_->coder) file_->coder = file_->loaded;
  }
  // libtiff has taken another codec, which is not set up.
  if (tag_ == TIFFTAG_COMPRESSION && compressionOf(tif_) != compression_) {
    file_->coderUsed = false;
    file_->coder.reset();
  }
}

bool mayDecode(TIFF* tif, const char* operation) {
  OpenFile* file = findOpenFile(tif);
  if (file == nullptr) return true;
  if (file->loaded) {
    const Layout now = layoutOf(tif);
    if (sizesDiffer(*file->loaded, now) || isCodecUnfit(*file, now)) {
      TIFFErrorExtR(tif, operation,
                    "The layout of the directory was changed; its blocks cannot be read before it "
                    "is written and read again");
      return false;
    }
    if (!file->coderUsed) file->coder = now;
  }
  file->coderUsed = true;
  return true;
}

bool mayEncode(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  return file == nullptr || !file->loaded || !isCodecUnfit(*file, layoutOf(tif));
}

bool hasNewCoding(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  if (file == nullptr || !file->loaded) return false;
  const Layout now = layoutOf(tif);
  return file->loaded->compression != now.compression ||
         file->loaded->planarConfig != now.planarConfig || file->loaded->isTiled != now.isTiled;
}

void noteBlockWritten(TIFF* tif, bool hasNewPlace) noexcept {
  OpenFile* file = findOpenFile(tif);
  if (file == nullptr) return;
  file->edited = file->coderUsed = true;
  file->hasNewPlaces = file->hasNewPlaces || hasNewPlace;
  file->loaded.reset();
  file->coder.reset();
}

void noteBlockNotWritten(TIFF* tif) noexcept {
  if (OpenFile* file = findOpenFile(tif)) file->hasFailed = true;
}

void noteReadEdit(TIFF* tif, SampleDepth stored) noexcept {
  OpenFile* file = findOpenFile(tif);
  if (file != nullptr && !file->storedDepth) file->storedDepth = stored;
}

}  // namespace tb

#include "core/directory_writes.h"

#include <fcntl.h>

#include <algorithm>
#include <boost/locale/encoding_utf.hpp>
#include <cstdarg>
#include <cstdint>

#include "core/codec_tags.h"
#include "core/directory_chain.h"
#include "core/errors.h"
#include "core/field_guard.h"
#include "core/open_files.h"
#include "core/unheard.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

// --- What libtiff would write wrongly

// libtiff stores a SubIFD tag of no offsets but cannot write it, and the directory would be lost.
void dropEmptySubIfd(TIFF* tif) {
  std::uint16_t count = 0;
  std::uint64_t* offsets = nullptr;
  if (TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets) && count == 0) {
    (void)TIFFUnsetField(tif, TIFFTAG_SUBIFD);  // it was just seen to be set
  }
}

bool isSgiLog(std::uint16_t compression) {
  return compression == COMPRESSION_SGILOG || compression == COMPRESSION_SGILOG24;
}

// The SGILog codec, when it ends, sets SamplesPerPixel and BitsPerSample to those of its stored
// form. Arrays that were stored for others would be read past their ends.
void dropArraysThatSgiLogOutgrows(TIFF* tif) {
  if (!isSgiLog(fieldOrDefault<std::uint16_t>(tif, TIFFTAG_COMPRESSION))) return;
  const bool isLuminance =
      fieldOrDefault<std::uint16_t>(tif, TIFFTAG_PHOTOMETRIC) == PHOTOMETRIC_LOGL;
  if (fieldOrDefault<std::uint16_t>(tif, TIFFTAG_SAMPLESPERPIXEL) != (isLuminance ? 1 : 3)) {
    (void)TIFFUnsetField(tif, TIFFTAG_SMINSAMPLEVALUE);
    (void)TIFFUnsetField(tif, TIFFTAG_SMAXSAMPLEVALUE);
  }
  if (fieldOrDefault<std::uint16_t>(tif, TIFFTAG_BITSPERSAMPLE) != 16) {
    (void)TIFFUnsetField(tif, TIFFTAG_COLORMAP);
    (void)TIFFUnsetField(tif, TIFFTAG_TRANSFERFUNCTION);
  }
}

// Reading LogL and LogLuv as RGBA has libtiff set the depth of what was read.
void restoreStoredDepth(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  if (file != nullptr && file->storedDepth) restoreSampleDepth(tif, *file->storedDepth);
}

// A damaged directory may have lost its tables of places or never had them, which libtiff marks as
// set all the same and would read.
void dropMissingPlaces(TIFF* tif) {
  constexpr std::uint32_t kPlaces[] = {TIFFTAG_STRIPOFFSETS, TIFFTAG_STRIPBYTECOUNTS};
  for (const std::uint32_t tag : kPlaces) {
    const std::uint64_t* values = nullptr;
    if (!TIFFGetField(tif, tag, &values) || values == nullptr) (void)TIFFUnsetField(tif, tag);
  }
}

void makeWritable(TIFF* tif) {
  if (TIFFCurrentDirOffset(tif) != 0) dropMissingPlaces(tif);
  restoreStoredDepth(tif);
  dropEmptySubIfd(tif);
  dropArraysThatSgiLogOutgrows(tif);
}

// Codecs share the marks of which of their tags are set, and the definitions of an earlier codec's
// tags stay with a directory: writing one, libtiff may ask the codec for a tag of another, ignore
// its refusal, and store what happens to lie where the value should be. While one of these lives
// such a tag has the value 0, or no bytes.
class CodecTagGuard {
 public:
  explicit CodecTagGuard(TIFF* tif) : methods_(TIFFAccessTagMethods(tif)) {
    compression_ = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_COMPRESSION);
    codecGetField_ = methods_->vgetfield;
    methods_->vgetfield = getField;
  }
  CodecTagGuard(const CodecTagGuard&) = delete;
  CodecTagGuard& operator=(const CodecTagGuard&) = delete;
  ~CodecTagGuard() {
    // A directory that was written has taken its methods with it.
    if (methods_->vgetfield == getField) methods_->vgetfield = codecGetField_;
  }

 private:
  static int getField(TIFF* tif, std::uint32_t tag, va_list values) {
    return isTagOfAnotherCodec(tag, compression_) ? storeNothing(tag, values)
                                                  : codecGetField_(tif, tag, values);
  }

  static int storeNothing(std::uint32_t tag, va_list values) {
    if (tag == TIFFTAG_PREDICTOR || tag == TIFFTAG_CLEANFAXDATA) {
      const int unset = tag == TIFFTAG_PREDICTOR ? PREDICTOR_NONE : CLEANFAXDATA_CLEAN;
      *va_arg(values, std::uint16_t*) = static_cast<std::uint16_t>(unset);
      return 0;
    }
    *va_arg(values, std::uint32_t*) = 0;
    if (tag == TIFFTAG_JPEGTABLES) *va_arg(values, void**) = nullptr;
    return 0;
  }

  TIFFTagMethods* methods_;
  // libtiff passes nothing else than the handle on.
  static thread_local TIFFVGetMethod codecGetField_;
  static thread_local std::uint16_t compression_;
};

thread_local TIFFVGetMethod CodecTagGuard::codecGetField_ = nullptr;
thread_local std::uint16_t CodecTagGuard::compression_ = 0;

// --- All or nothing

// Leaves the file as it is now, whatever is still asked of the handle.
void spoil(TIFF* tif) {
  (void)dropDirectory(tif);
  if (OpenFile* file = findOpenFile(tif)) file->isSpoilt = true;
}

bool finish(TIFF* tif, bool isWritten) {
  if (isWritten) return ZQTIFFcommitUpdate(tif);
  ZQTIFFcancelUpdate(tif);
  return false;
}

struct SubDirectories {
  std::uint16_t stored = 0;   // are in the file
  std::uint16_t awaited = 0;  // will be appended next
};

SubDirectories subDirectoriesOf(TIFF* tif) {
  std::uint16_t count = 0;
  const std::uint64_t* offsets = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets) || offsets == nullptr) return {};
  const bool isAnyThere =
      std::any_of(offsets, offsets + count, [](std::uint64_t offset) { return offset != 0; });
  return isAnyThere ? SubDirectories{.stored = count} : SubDirectories{.awaited = count};
}

// Having written a SubIFD tag, libtiff makes the next directories the sub-directories, also when
// the tag holds the offsets of those that are in the file already: these would be lost. So as many
// directories are written and forgotten again.
void keepSubDirectories(TIFF* tif, std::uint16_t count) {
  if (count == 0 || !ZQTIFFbeginUpdate(tif)) return;
  const Unheard unheard;
  bool isWritten = true;
  while (isWritten && count-- > 0) isWritten = TIFFWriteDirectory(tif) != 0;
  ZQTIFFcancelUpdate(tif);
  if (!isWritten) spoil(tif);
}

// `write` is a function of libtiff's that writes the current directory and returns its status.
bool writeAsAWhole(TIFF* tif, int (*write)(TIFF*)) {
  const bool isAppended = TIFFCurrentDirOffset(tif) == 0;
  const SubDirectories subDirectories = subDirectoriesOf(tif);
  const bool isUpdate = ZQTIFFbeginUpdate(tif);
  bool isWritten = false;
  {
    const CodecTagGuard guard(tif);
    isWritten = write(tif) != 0;
  }
  if (isUpdate) isWritten = finish(tif, isWritten);
  if (!isWritten) {
    spoil(tif);
    return false;
  }
  OpenFile* file = findOpenFile(tif);
  if (file != nullptr) {
    file->forgetDirectory();
    file->hasAppended = file->hasAppended || isAppended;
  }
  if (TIFFCurrentDirOffset(tif) != 0) return true;  // it still is the current directory
  if (file != nullptr && file->awaitedSubDirectories > 0) {
    --file->awaitedSubDirectories;
  } else if (file != nullptr) {
    file->awaitedSubDirectories = subDirectories.awaited;
  }
  keepSubDirectories(tif, subDirectories.stored);
  return true;
}

bool refuse(TIFF* tif, const char* operation, const char* reason) {
  TIFFErrorExtR(tif, operation, "%s: %s", TIFFFileName(tif), reason);
  return false;
}

// Whether libtiff comes to the end of the chain, where it appends.
bool canAppend(TIFF* tif, const char* operation) {
  const OpenFile* file = findOpenFile(tif);
  if ((file != nullptr && file->hasAppended) || chainEnds(tif)) return true;
  return refuse(tif, operation, "The chain of directories is damaged; none can be appended to it");
}

bool awaitsSubDirectories(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  return file != nullptr && file->awaitedSubDirectories > 0;
}

bool isMovable(TIFF* tif, std::uint64_t offset) {
  return !awaitsSubDirectories(tif) && chainHolds(tif, offset);
}

bool canMove(TIFF* tif, std::uint64_t offset, const char* operation) {
  if (awaitsSubDirectories(tif)) {
    return refuse(tif, operation, "The sub-directories of another directory must be written first");
  }
  if (chainHolds(tif, offset)) return true;
  return refuse(tif, operation, "A sub-directory cannot be moved; its place is in another one");
}

// Of a directory whose tags are as they were, libtiff writes the places of the blocks where they
// stand; a sub-directory can be written in this way only. It fails when there is no new place.
int writePlaces(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  return file == nullptr || !file->hasNewPlaces || TIFFForceStrileArrayWriting(tif);
}

// A table of places that has become short enough to stand in its entry is written there with its
// bytes in the wrong order.
bool canWritePlaces(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  return !TIFFIsByteSwapped(tif) || file == nullptr || file->hasStoredPlaces.value_or(true);
}

// libtiff would write it where it lies and, as it grows, over what lies behind.
bool writeLoadedDirectory(TIFF* tif, std::uint64_t offset, const char* operation) {
  const OpenFile* file = findOpenFile(tif);
  const bool isSubDirectory = !chainHolds(tif, offset);
  const bool hasNewTags = file == nullptr || file->tagsEdited || file->storedDepth;
  if (isSubDirectory && !hasNewTags && canWritePlaces(tif)) {
    // Loading it again ends the writing of blocks, after which no tag could be stored.
    if (!writeAsAWhole(tif, writePlaces) || !TIFFSetSubDirectory(tif, offset)) return false;
    beginDirectory(tif);
    return true;
  }
  if (!canMove(tif, offset, operation)) return false;
  makeWritable(tif);
  return writeAsAWhole(tif, TIFFRewriteDirectory);
}

bool hasDirectory(TIFF* tif, const char* operation) {
  if (!isWithoutDirectory(tif)) return true;
  return refuse(tif, operation, "There is no directory after what failed before");
}

}  // namespace

bool writeDirectory(TIFF* tif) {
  constexpr const char* kOperation = "TIFFWriteDirectory";
  if (!hasDirectory(tif, kOperation)) return false;
  if (isReadOnly(tif)) return true;
  const std::uint64_t offset = TIFFCurrentDirOffset(tif);
  if (offset != 0) return writeLoadedDirectory(tif, offset, kOperation);
  if (!canAppend(tif, kOperation)) return false;
  makeWritable(tif);
  return writeAsAWhole(tif, TIFFWriteDirectory);
}

bool rewriteDirectory(TIFF* tif) {
  constexpr const char* kOperation = "TIFFRewriteDirectory";
  // On a file open for reading libtiff fails, but loses the chain of directories on the way.
  if (!hasDirectory(tif, kOperation) || isReadOnly(tif)) return false;
  const std::uint64_t offset = TIFFCurrentDirOffset(tif);
  if (!(offset == 0 ? canAppend(tif, kOperation) : canMove(tif, offset, kOperation))) return false;
  makeWritable(tif);
  return writeAsAWhole(tif, TIFFRewriteDirectory);
}

// --- Closing

namespace {

bool writeEdits(TIFF* tif, const OpenFile& file) {
  constexpr const char* kOperation = "TIFFClose";
  if (isReadOnly(tif)) return !file.isSpoilt;
  // Of a handle that other code has used libtiff knows whether there is something to write. A block
  // that could not be written is nothing, nor is what reading has changed.
  if (!file.edited) return file.hasFailed || file.storedDepth || writeAsAWhole(tif, TIFFFlush);
  const std::uint64_t offset = TIFFCurrentDirOffset(tif);
  const bool arePlacesEnough = !file.tagsEdited && canWritePlaces(tif);
  if (offset == 0 && !canAppend(tif, kOperation)) return false;
  if (offset != 0 && !arePlacesEnough && !canMove(tif, offset, kOperation)) return false;
  makeWritable(tif);
  if (offset != 0 && !canWritePlaces(tif)) return writeAsAWhole(tif, TIFFRewriteDirectory);
  // Where libtiff cannot write the places alone TIFFFlush moves the directory.
  return writeAsAWhole(tif, offset == 0 || isMovable(tif, offset) ? TIFFFlush : writePlaces);
}

void warnAboutEdits(TIFF* tif) noexcept {
  try {
    const char* name = TIFFFileName(tif);
    warn(Warning::directoryNotWritten,
         boost::locale::conv::utf_to_utf<char16_t>(name != nullptr ? name : ""));
  } catch (...) {
    // The file has to be closed all the same.
  }
}

}  // namespace

void storeEdits(TIFF* tif) noexcept {
  const OpenFile* file = findOpenFile(tif);
  if (file == nullptr || !file->isOpenedHere) return;
  try {
    if (!writeEdits(tif, *file)) warnAboutEdits(tif);
  } catch (...) {
    warnAboutEdits(tif);
  }
  (void)TIFFSetMode(tif, O_RDONLY);  // nothing more is written
}

}  // namespace tb

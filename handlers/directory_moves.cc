// libtiff forgets the current directory before it knows whether the next one can be loaded. Where
// nothing was stored in the directory it is loaded again after a failure; where that would lose
// something, the move is tried on another handle of the file first.
#include "handlers/directory_moves.h"

#include <fcntl.h>

#include <cstdio>
#include <memory>

#include "core/directory_chain.h"
#include "core/open_files.h"
#include "core/unheard.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

struct Place {
  std::uint64_t offset;  // 0 for a directory that is not in the file
  std::uint32_t number;
  bool isSubDirectory;
};

Place placeOf(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  return {TIFFCurrentDirOffset(tif), TIFFCurrentDirectory(tif),
          file != nullptr && file->isSubDirectory};
}

// Loads a directory by a function that returns libtiff's status. libtiff takes what it cannot read
// of one, such as the link to the next, for missing, and a handle that can write could put that
// into the file.
template <class Load>
bool loads(TIFF* tif, const Load& load) {
  const OpenFile* file = findOpenFile(tif);
  const bool canWrite = !isReadOnly(tif) || (file != nullptr && file->suspendedMode);
  (void)ZQTIFFcheckReadFailure(tif);  // of what was read before
  return load() != 0 && !(canWrite && ZQTIFFcheckReadFailure(tif));
}

// --- Trying a move on another handle

int closeNothing(thandle_t) { return 0; }
tmsize_t writeNothing(thandle_t, void*, tmsize_t) { return 0; }

struct Closer {
  void operator()(TIFF* tif) const noexcept {
    (void)TIFFSetMode(tif, O_RDONLY);  // or libtiff would write what it failed to load
    TIFFClose(tif);
  }
};

// Another handle of the same file, without a directory. It shares the bytes with `tif`, and closing
// it leaves them open. Its mode is the same, since libtiff loads directories in another way when
// they can be edited.
std::unique_ptr<TIFF, Closer> anotherHandle(TIFF* tif) {
  (void)TIFFGetSeekProc(tif)(TIFFClientdata(tif), 0, SEEK_SET);  // libtiff reads from where it is
  return std::unique_ptr<TIFF, Closer>(
      TIFFClientOpen(TIFFFileName(tif), isReadOnly(tif) ? "rhm" : "r+hm", TIFFClientdata(tif),
                     TIFFGetReadProc(tif), writeNothing, TIFFGetSeekProc(tif), closeNothing,
                     TIFFGetSizeProc(tif), TIFFGetMapFileProc(tif), TIFFGetUnmapFileProc(tif)));
}

// Goes where the other handle stands. libtiff knows the directories of the chain that it came by,
// and takes one that comes again for a loop.
bool goTo(TIFF* tif, const Place& place) {
  const Unheard unheard;
  if (place.offset == 0) return true;
  if (!place.isSubDirectory && TIFFSetDirectory(tif, place.number) &&
      TIFFCurrentDirOffset(tif) == place.offset) {
    return true;
  }
  return TIFFSetSubDirectory(tif, place.offset) != 0;
}

// Whether `move` succeeds on another handle; `from` is where it starts.
template <class Move>
bool succeedsElsewhere(TIFF* tif, const Place& from, const Move& move) {
  const std::size_t before = ZQTIFFmessageCount();
  const auto other = anotherHandle(tif);
  if (other == nullptr) return false;
  if (!goTo(other.get(), from)) return false;
  if (!loads(other.get(), [&] { return move(other.get()); })) return false;
  ZQTIFFforgetMessages(before);  // the handle itself says them again
  return true;
}

// --- The way back

bool loadAgain(TIFF* tif, const Place& place) {
  const Unheard unheard;
  if (place.offset == 0) return false;
  return loads(tif, [&] {
    return TIFFSetSubDirectory(tif, place.offset) != 0 &&
           (TIFFCurrentDirectory(tif) == place.number ||
            (TIFFSetDirectory(tif, place.number) && TIFFCurrentDirOffset(tif) == place.offset));
  });
}

void giveUp(TIFF* tif, OpenFile* file) {
  const int mode = dropDirectory(tif);
  if (file != nullptr && !file->suspendedMode) file->suspendedMode = mode;
}

// Whether a directory could not be loaded again as it is.
bool isWorthATrial(const OpenFile* file, const Place& place) {
  // libtiff counts the directories of a chain of sub-directories from where it was entered.
  return place.offset == 0 || (place.isSubDirectory && place.number > 0) ||
         (file != nullptr && (file->edited || file->storedDepth));
}

// `move` takes a handle and returns libtiff's status; `target` is where the directory lies, 0 when
// libtiff will find none.
template <class Move>
bool moveOrStay(TIFF* tif, std::uint64_t target, const Move& move) {
  OpenFile* file = findOpenFile(tif);
  if (file != nullptr && file->isSpoilt) {
    TIFFErrorExtR(tif, "TIFFReadDirectory",
                  "%s: A directory could not be written; the file must be opened again",
                  TIFFFileName(tif));
    return false;
  }
  if (target != 0 && !ZQTIFFdirectoryFits(tif, target)) return false;
  const Place before = placeOf(tif);
  if (isWorthATrial(file, before) && !succeedsElsewhere(tif, before, move)) return false;
  if (!loads(tif, [&] { return move(tif); })) {
    if (!loadAgain(tif, before)) giveUp(tif, file);
    return false;
  }
  if (file == nullptr) return true;
  file->forgetDirectory();
  if (file->suspendedMode) (void)TIFFSetMode(tif, *file->suspendedMode);
  file->suspendedMode.reset();
  return true;
}

}  // namespace

bool moveToNextDirectory(TIFF* tif) {
  const OpenFile* file = findOpenFile(tif);
  const bool isSubDirectory = file != nullptr && file->isSubDirectory;
  if (!moveOrStay(tif, offsetAfter(tif, TIFFCurrentDirOffset(tif)), TIFFReadDirectory))
    return false;
  if (OpenFile* moved = findOpenFile(tif)) moved->isSubDirectory = isSubDirectory;
  return true;
}

bool moveToDirectory(TIFF* tif, std::uint32_t number) {
  return moveOrStay(tif, offsetOfDirectory(tif, number),
                    [=](TIFF* handle) { return TIFFSetDirectory(handle, number); });
}

bool moveToSubDirectory(TIFF* tif, std::uint64_t offset) {
  if (!moveOrStay(tif, offset, [=](TIFF* handle) { return TIFFSetSubDirectory(handle, offset); }))
    return false;
  if (OpenFile* file = findOpenFile(tif)) file->isSubDirectory = true;
  return true;
}

}  // namespace tb

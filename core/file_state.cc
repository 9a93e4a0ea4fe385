#include "core/file_state.h"

#include <cstdint>
#include <map>

namespace tb {
namespace {

struct FileState {
  bool edited = false;
  bool layoutEdited = false;
};

// Only files with something to remember have an entry.
std::map<TIFF*, FileState> fileStates;

}  // namespace

void prepareToNoteEdits(TIFF* tif) { fileStates.try_emplace(tif); }

void noteEdit(TIFF* tif) { fileStates[tif].edited = true; }

void noteLayoutEdit(TIFF* tif) { fileStates[tif].layoutEdited = true; }

bool isLayoutEdited(TIFF* tif) {
  const auto found = fileStates.find(tif);
  return found != fileStates.end() && found->second.layoutEdited;
}

void noteBlockWritten(TIFF* tif) { fileStates[tif] = {.edited = true, .layoutEdited = false}; }

void forgetEdits(TIFF* tif) { fileStates.erase(tif); }

void dropEmptySubIfd(TIFF* tif) {
  std::uint16_t count = 0;
  std::uint64_t* offsets = nullptr;
  if (TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets) && count == 0) {
    (void)TIFFUnsetField(tif, TIFFTAG_SUBIFD);  // it was just seen to be set
  }
}

void closeFile(TIFF* tif) {
  const auto found = fileStates.find(tif);
  if (found != fileStates.end() && found->second.edited) dropEmptySubIfd(tif);
  forgetEdits(tif);
  TIFFClose(tif);
}

}  // namespace tb

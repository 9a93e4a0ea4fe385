#include "tags/field_guard.h"

namespace tb {
namespace {

// True when libtiff's list of custom values has an entry for the tag, with values or without.
bool isListed(TIFF* tif, std::uint32_t tag) noexcept {
  for (int entry = 0; entry < TIFFGetTagListCount(tif); ++entry)
    if (TIFFGetTagListEntry(tif, entry) == tag) return true;
  return false;
}

}  // namespace

bool fieldTakes(TIFF* tif, std::uint32_t tag, CountWidth count) noexcept {
  const TIFFField* field = TIFFFindField(tif, tag, TIFF_ANY);
  if (field == nullptr) return true;
  return !TIFFFieldIsAnonymous(field) &&
         (TIFFFieldPassCount(field) != 0) == (count != CountWidth::none) &&
         TIFFFieldSetGetCountSize(field) == static_cast<int>(count);
}

void unsetIfEmptied(TIFF* tif, std::uint32_t tag, CountWidth count) noexcept {
  std::uint16_t shortCount = 0;
  std::uint32_t longCount = 0;
  const void* values = nullptr;
  const int isSet = count == CountWidth::bits16
                        ? fetchField<CountWidth::bits16>(tif, tag, &shortCount, &values)
                        : fetchField<CountWidth::bits32>(tif, tag, &longCount, &values);
  // A store that was refused before anything was released, as for a tag that is frozen once data
  // are written, has left the old value in place, and that stays.
  if (isSet != 0 && values != nullptr) return;
  // Asking the list first keeps a directory without the tag from being marked as changed.
  if (isListed(tif, tag)) TIFFUnsetField(tif, tag);
}

}  // namespace tb

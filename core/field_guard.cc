#include "core/field_guard.h"

namespace tb {

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
  if (isSet == 0 || values == nullptr) TIFFUnsetField(tif, tag);
}

void sayNotStored(TIFF* tif, std::uint32_t tag, const char* reason) {
  TIFFErrorExtR(tif, "TIFFSetField", "%s: Tag %u: %s", TIFFFileName(tif), tag, reason);
}

bool canStoreArray(TIFF* tif, std::uint32_t tag, std::size_t size, CountWidth count) {
  const char* reason = nullptr;
  if (size == 0) reason = "An array of no values cannot be stored";
  if (size > largestCount(count)) reason = "There are more values than can be stored";
  if (!fieldTakes(tif, tag, count)) reason = "libtiff knows the tag in another form";
  if (reason != nullptr) sayNotStored(tif, tag, reason);
  return reason == nullptr;
}

}  // namespace tb

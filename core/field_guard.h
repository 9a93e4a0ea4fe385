// The one way of the tag operations to TIFFGetField and TIFFSetField.
//
// Both are variadic: the definition that libtiff holds for a tag says which arguments it takes off
// the list, and a definition other than the expected one makes it read or write through whatever
// lies there. Definitions do differ: a tag that neither libtiff nor a codec in use knows gets an
// anonymous definition from the file it is found in (Predictor in an uncompressed file, the GeoTIFF
// tags while their registration is not in force), which takes a 32-bit count and values of the
// file's type; and other code in the process may register a tag in its own way. So the definition
// is looked at first, and a call that does not fit it counts as one that libtiff refused.
#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace tb {

// The count that a call passes before the values, in bytes.
enum class CountWidth { none = 0, bits16 = 2, bits32 = 4 };

// True when libtiff's definition of `tag` takes such a count, and when libtiff does not know the
// tag at all: it refuses that by itself and says why.
bool fieldTakes(TIFF* tif, std::uint32_t tag, CountWidth count) noexcept;

// What may go through a variadic call unharmed: libtiff takes small integers as int, floats as
// double, and counts in at most 32 bits.
template <class T>
inline constexpr bool kFieldArgument = std::is_pointer_v<T> || std::is_floating_point_v<T> ||
                                       (std::is_integral_v<T> && sizeof(T) <= 4);

// TIFFGetField behind the check. Returns its status, 0 when the tag is absent; what the pointers
// point to is then unchanged.
template <CountWidth Count = CountWidth::none, class... T>
int fetchField(TIFF* tif, std::uint32_t tag, T*... values) {
  return fieldTakes(tif, tag, Count) ? TIFFGetField(tif, tag, values...) : 0;
}

// TIFFGetFieldDefaulted for the tags of the base codec, whose definitions are always libtiff's own.
// What has neither a value nor a default, as in a directory that is not made yet, stays as it is.
template <class... T>
void fetchDefaulted(TIFF* tif, std::uint32_t tag, T&... values) {
  (void)TIFFGetFieldDefaulted(tif, tag, &values...);
}
template <class T>
T fieldOrDefault(TIFF* tif, std::uint32_t tag, T otherwise = T{}) {
  fetchDefaulted(tif, tag, otherwise);
  return otherwise;
}

// Tells libtiff's error handlers why a tag is not stored.
void sayNotStored(TIFF* tif, std::uint32_t tag, const char* reason);

// TIFFSetField behind the check. Returns its status, 0 when libtiff refuses the value.
template <CountWidth Count = CountWidth::none, class... T>
int storeField(TIFF* tif, std::uint32_t tag, T... values) {
  static_assert((kFieldArgument<T> && ...));
  if (fieldTakes(tif, tag, Count)) return TIFFSetField(tif, tag, values...);
  sayNotStored(tif, tag, "libtiff knows the tag in another form");
  return 0;
}

// The largest number of values that goes through a count of this width. libtiff would keep the low
// 16 bits of a larger one, and takes counts of 32 bits as signed in places.
constexpr std::size_t largestCount(CountWidth count) noexcept {
  return count == CountWidth::bits16 ? 0xFFFF : 0x7FFFFFFF;
}

// Drops a custom tag that a failed store has left behind with a count but without values; see
// storeArray.
void unsetIfEmptied(TIFF* tif, std::uint32_t tag, CountWidth count) noexcept;

// Whether libtiff may be given an array of so many values. It would release the old one before it
// refuses none, and keep the low 16 bits of too large a count. libtiff's error handlers hear why
// not.
bool canStoreArray(TIFF* tif, std::uint32_t tag, std::size_t size, CountWidth count);

// Stores an array, which libtiff copies, for one of the tags that libtiff keeps in its list of
// custom values. Returns the status; an array that cannot be stored is refused without a call.
// When libtiff fails to store such an array for want of memory it has released the old one already
// and keeps {count, null} in the list, which counts as set as soon as any other tag of the list is;
// so it is dropped.
template <CountWidth Count, class T>
int storeArray(TIFF* tif, std::uint32_t tag, std::span<const T> values) {
  if (!canStoreArray(tif, tag, values.size(), Count)) return 0;
  const int status =
      TIFFSetField(tif, tag, static_cast<std::uint32_t>(values.size()), values.data());
  if (status == 0) unsetIfEmptied(tif, tag, Count);
  return status;
}

}  // namespace tb

// Ways to provoke the errors of the catalog, and what they have in common.
#pragma once

#include <tiffio.h>

#include <ostream>
#include <vector>

#include "core/errors.h"
#include "tests/support/scene.h"

namespace tb::test {

// One identifier with a way to provoke it.
struct Provocation {
  ErrorClass expected;
  Arguments arguments;
  void (*act)(Scene&);
};
inline void PrintTo(const Provocation& value, std::ostream* out) {
  *out << value.expected.identifier;
}

template <class Id>
Provocation provoke(const Arguments& arguments, void (*act)(Scene&)) {
  return {errorClass<Id>(), arguments, act};
}

// --- Images and tags that the rows share

inline vxArrayPtr bytes(const Dimensions& dimensions = {16, 16}) {
  return zeros(vxUINT8, dimensions);
}

inline Tags grayTags() { return stripTags(PHOTOMETRIC_MINISBLACK, 8, 1); }
inline Tags rgbTags() { return stripTags(PHOTOMETRIC_RGB, 8, 3); }
inline Tags paletteTags() { return stripTags(PHOTOMETRIC_PALETTE, 8, 1); }
inline Tags separatedTags() { return stripTags(PHOTOMETRIC_SEPARATED, 8, 4); }
inline Tags logLuvTags() {
  return also(stripTags(PHOTOMETRIC_LOGLUV, 0, 0), {{TIFFTAG_COMPRESSION, COMPRESSION_SGILOG}});
}

inline std::vector<RawEntry> withEntry(const RawEntry& entry) {
  std::vector<RawEntry> entries = rawGray(16, 16);
  replaceEntry(entries, entry);
  return entries;
}

inline void set(Scene& scene, const Tags& tags, double tag, const Input& value) {
  call("setField", scene.fresh(tags), tag, value);
}
inline const Layout kTiled{.tileWidth = 16, .tileLength = 16};

}  // namespace tb::test

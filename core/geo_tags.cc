#include "core/geo_tags.h"

#include <mutex>
#include <optional>

#include "host/tiff_utilities.h"

namespace tb {
namespace {

// Replaced by a fresh one at cleanup: a host that goes on using the module after it needs the tags
// again, since without them libtiff hands out such tags with the file's own types and counts.
std::optional<std::once_flag>& geoTagsOnce() {
  static std::optional<std::once_flag> once(std::in_place);
  return once;
}

}  // namespace

void registerGeoTagsOnce() { std::call_once(*geoTagsOnce(), registerCustomGeoTags); }

void unregisterGeoTags() {
  unregisterCustomGeoTags();
  geoTagsOnce().emplace();
}

}  // namespace tb

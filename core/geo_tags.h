#pragma once

namespace tb {

// Makes the host's GeoTIFF and RPC tags known to libtiff, once, before the first file is opened.
void registerGeoTagsOnce();

// Undoes it, so that the next registerGeoTagsOnce registers again.
void unregisterGeoTags();

}  // namespace tb

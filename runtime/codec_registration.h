// Makes the JPEG 2000 codec known to libtiff, and forgets it, for registerJPEG2000Codecs and
// unregisterJPEG2000Codecs of host/tiff_utilities.h.
#pragma once

#include <optional>

#include "runtime/codec_hooks.h"

namespace tb::runtime {

// What registerJPEG2000Codecs does when nothing is registered, with the places that `find` finds;
// where it finds none, nothing is registered and nothing is tried again before the codecs are
// unregistered.
void registerJpeg2000Codecs(std::optional<CodecHookPlaces> (*find)());

}  // namespace tb::runtime

// The codec that libtiff gets for JPEG 2000. It decodes only; registerJPEG2000Codecs and
// unregisterJPEG2000Codecs of host/tiff_utilities.h make it known and forget it.
#pragma once

#include <tiffio.h>

#include <optional>

#include "runtime/codec_hooks.h"

namespace tb::runtime {

// Sets the codec's hooks in a handle, whose directory has one of its compressions; libtiff calls it
// with its result 1. `places` is where setJpeg2000Places has said.
int initialiseJpeg2000(TIFF* tif, int scheme) noexcept;

// Says where libtiff's hooks are. Before the codec is registered.
void setJpeg2000Places(const CodecHookPlaces& places) noexcept;

// What registerJPEG2000Codecs does when nothing is registered, with the places that `find` finds;
// where it finds none, nothing is registered and nothing is tried again before the codecs are
// unregistered.
void registerJpeg2000Codecs(std::optional<CodecHookPlaces> (*find)());

}  // namespace tb::runtime

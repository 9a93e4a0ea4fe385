// The codec that libtiff gets for JPEG 2000. It decodes only.
#pragma once

#include <tiffio.h>

#include "runtime/codec_hooks.h"

namespace tb::runtime {

// Sets the codec's hooks in a handle, whose directory has one of its compressions; libtiff calls it
// with its result 1. `places` is where setJpeg2000Places has said.
int initialiseJpeg2000(TIFF* tif, int scheme) noexcept;

// Says where libtiff's hooks are. Before the codec is registered.
void setJpeg2000Places(const CodecHookPlaces& places) noexcept;

}  // namespace tb::runtime

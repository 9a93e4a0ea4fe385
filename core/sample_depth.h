// Changing BitsPerSample on a handle without leaving libtiff with maps of the wrong length.
#pragma once

#include <tiffio.h>

#include <cstdint>

namespace tb {

// BitsPerSample as libtiff uses it: 1 while it is not set.
std::uint16_t effectiveBitsPerSample(TIFF* tif);

// BitsPerSample and SampleFormat of the current directory, and back to them. The maps follow.
struct SampleDepth {
  std::uint16_t bits = 1;
  std::uint16_t format = SAMPLEFORMAT_UINT;

  bool operator==(const SampleDepth&) const = default;
};
SampleDepth sampleDepth(TIFF* tif);
void restoreSampleDepth(TIFF* tif, SampleDepth depth);

// Stores BitsPerSample, whose Photometric must be set, and fits the maps to it. Returns libtiff's
// status; the value that is already there is not stored again.
int storeBitsPerSample(TIFF* tif, std::uint16_t bits);

// Brings ColorMap and TransferFunction to the current BitsPerSample after it was `bitsBefore`:
// their entries stay, those that are added are 0. From 17 bits up both are dropped.
//
// libtiff allocates 2^BitsPerSample entries when a map is stored, remembers no length, and later
// reads as many as the depth then says.
void fitMapsToDepth(TIFF* tif, std::uint16_t bitsBefore);

}  // namespace tb

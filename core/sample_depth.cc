#include "core/sample_depth.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "core/field_guard.h"
#include "core/unheard.h"

namespace tb {
namespace {

// No map is kept above this depth: it would have more than 65536 entries, which no reader expects.
constexpr std::uint16_t kDeepestMap = 16;
// Above this depth libtiff itself reads no map from a file.
constexpr std::uint16_t kDeepestMapInFile = 24;

using Curve = const std::uint16_t*;

std::vector<std::uint16_t> resized(Curve curve, std::uint16_t bitsBefore, std::uint16_t bits) {
  const std::size_t length = std::size_t{1} << bits;
  std::vector<std::uint16_t> entries(length);
  std::copy_n(curve, std::min(length, std::size_t{1} << bitsBefore), entries.begin());
  return entries;
}

void warnAboutMap(TIFF* tif, std::uint32_t tag, const char* whatHappened) {
  const TIFFField* field = TIFFFindField(tif, tag, TIFF_ANY);
  TIFFWarningExtR(tif, "TIFFSetField", "%s was %s to fit BitsPerSample", TIFFFieldName(field),
                  whatHappened);
}

// `tag` is ColorMap or TransferFunction; a TransferFunction may have one curve only.
void fitMap(TIFF* tif, std::uint32_t tag, std::uint16_t bitsBefore, std::uint16_t bits) {
  Curve curves[3] = {};
  if (!fetchField(tif, tag, &curves[0], &curves[1], &curves[2])) return;
  if (bits > kDeepestMap || bitsBefore > kDeepestMapInFile || curves[0] == nullptr) {
    TIFFUnsetField(tif, tag);
    warnAboutMap(tif, tag, "dropped");
    return;
  }
  std::vector<std::uint16_t> entries[3];
  for (int k = 0; k < 3; ++k)
    entries[k] = resized(curves[k] != nullptr ? curves[k] : curves[0], bitsBefore, bits);
  if (!storeField(tif, tag, entries[0].data(), entries[1].data(), entries[2].data()))
    TIFFUnsetField(tif, tag);
  warnAboutMap(tif, tag, "resized");
}

// libtiff has no question for "has writing begun?", after which the layout is frozen; storing
// Photometric as it is asks that and changes nothing.
bool isLayoutFrozen(TIFF* tif) {
  const Unheard unheard;
  std::uint16_t photometric = 0;
  return fetchField(tif, TIFFTAG_PHOTOMETRIC, &photometric) &&
         !storeField(tif, TIFFTAG_PHOTOMETRIC, photometric);
}

}  // namespace

std::uint16_t effectiveBitsPerSample(TIFF* tif) {
  return fieldOrDefault<std::uint16_t>(tif, TIFFTAG_BITSPERSAMPLE, 1);
}

SampleDepth sampleDepth(TIFF* tif) {
  SampleDepth depth{.bits = effectiveBitsPerSample(tif)};
  fetchDefaulted(tif, TIFFTAG_SAMPLEFORMAT, depth.format);
  return depth;
}

void restoreSampleDepth(TIFF* tif, SampleDepth depth) {
  const std::uint16_t bitsBefore = effectiveBitsPerSample(tif);
  (void)storeField(tif, TIFFTAG_BITSPERSAMPLE, depth.bits);
  (void)storeField(tif, TIFFTAG_SAMPLEFORMAT, depth.format);
  fitMapsToDepth(tif, bitsBefore);
}

int storeBitsPerSample(TIFF* tif, std::uint16_t bits) {
  // Storing BitsPerSample makes libtiff choose its byte swapping by the new depth alone. Once more
  // for the same depth, that would swap the samples of a predictor or of a codec that has turned it
  // off because it swaps by itself.
  std::uint16_t current = 0;
  if (fetchField(tif, TIFFTAG_BITSPERSAMPLE, &current) && current == bits && !isLayoutFrozen(tif))
    return 1;

  // For a depth of 1 libtiff leaves the choice as it was: swapping of wider samples would go on,
  // and end the process on a strip with an odd number of bytes. A depth of 8 turns it off.
  const std::uint16_t bitsBefore = effectiveBitsPerSample(tif);
  if (bits == 1 && TIFFIsByteSwapped(tif) && !storeField(tif, TIFFTAG_BITSPERSAMPLE, 8)) return 0;
  const int status = storeField(tif, TIFFTAG_BITSPERSAMPLE, bits);
  fitMapsToDepth(tif, bitsBefore);
  return status;
}

void fitMapsToDepth(TIFF* tif, std::uint16_t bitsBefore) {
  const std::uint16_t bits = effectiveBitsPerSample(tif);
  if (bits == bitsBefore) return;
  fitMap(tif, TIFFTAG_COLORMAP, bitsBefore, bits);
  fitMap(tif, TIFFTAG_TRANSFERFUNCTION, bitsBefore, bits);
}

}  // namespace tb

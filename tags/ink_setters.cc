#include "tags/ink_setters.h"

#include "core/field_guard.h"
#include "tags/converters.h"
#include "tags/photometric_checks.h"

namespace tb {
namespace {

std::uint16_t extraSampleCount(TIFF* tif) {
  std::uint16_t count = 0;
  const std::uint16_t* kinds = nullptr;
  return fetchField<CountWidth::bits16>(tif, TIFFTAG_EXTRASAMPLES, &count, &kinds)
             ? count
             : std::uint16_t{0};
}

// The texts of the cells, each with a NUL at its end.
std::string joinedNames(const vxArray* cell) {
  std::string names;
  for (std::size_t ink = 0; ink < vxGetNumberOfElements(cell); ++ink) {
    const HostString name = hostString(vxGetCell(cell, ink));
    if (name == nullptr) raise<Tiff::notCellString>("InkNames");
    names.append(name.get()).push_back('\0');
  }
  return names;
}

}  // namespace

int setNumberOfInks(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                    const vxArray* value) {
  checkForSeparatedPhotometricInterpretation(tif, tag, tagName);
  const auto inks = unpackTagScalar<std::uint16_t>(value, tag, tagName);
  const std::uint16_t samples =
      requiredBeforeWrite(tif, TIFFTAG_SAMPLESPERPIXEL, "SamplesPerPixel", "NumberOfInks");
  const std::uint16_t extra = extraSampleCount(tif);
  if (inks < samples - extra || inks > samples)
    raise<Tiff::invalidNumberOfInksValue>(inks, samples, extra);
  return storeField(tif, tag, inks);
}

int setInkNames(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  checkForSeparatedPhotometricInterpretation(tif, tag, tagName);
  if (vxGetClassID(value) != vxCELL) raise<Tiff::notCellString>("InkNames");
  const auto inks = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_NUMBEROFINKS);
  if (vxGetNumberOfElements(value) != inks) raise<Tiff::badNumberOfInkNames>(inks);
  const std::string names = joinedNames(value);
  if (names.size() > largestCount(CountWidth::bits16)) return 0;
  return storeField<CountWidth::bits16>(tif, tag, static_cast<std::uint32_t>(names.size()),
                                        names.data());
}

}  // namespace tb

// What the host adds to libtiff: tag definitions, and the names of its codecs.
#include <tiffio.h>

#include <array>
#include <atomic>

#include "host/tiff_utilities.h"

namespace tb::runtime {
namespace {

// libtiff takes the names as writable text.
char modelPixelScale[] = "ModelPixelScaleTag";
char modelTiepoint[] = "ModelTiepointTag";
char modelTransformation[] = "ModelTransformationTag";
char geoKeyDirectory[] = "GeoKeyDirectoryTag";
char geoDoubleParams[] = "GeoDoubleParamsTag";
char geoAsciiParams[] = "GeoASCIIParamsTag";
char rpcCoefficient[] = "RPCCoefficientTag";

constexpr short kAny = TIFF_VARIABLE;
constexpr unsigned char kSettableLater = 1;
constexpr unsigned char kPassCount = 1;

// Tag, values read and written, type, kind of storage, settable after writing began, count is
// passed, name.
const std::array<TIFFFieldInfo, 7> kTags = {{
    {33550, kAny, kAny, TIFF_DOUBLE, FIELD_CUSTOM, kSettableLater, kPassCount, modelPixelScale},
    {33922, kAny, kAny, TIFF_DOUBLE, FIELD_CUSTOM, kSettableLater, kPassCount, modelTiepoint},
    {34264, kAny, kAny, TIFF_DOUBLE, FIELD_CUSTOM, kSettableLater, kPassCount, modelTransformation},
    {34735, kAny, kAny, TIFF_SHORT, FIELD_CUSTOM, kSettableLater, kPassCount, geoKeyDirectory},
    {34736, kAny, kAny, TIFF_DOUBLE, FIELD_CUSTOM, kSettableLater, kPassCount, geoDoubleParams},
    {34737, kAny, kAny, TIFF_ASCII, FIELD_CUSTOM, kSettableLater, 0, geoAsciiParams},
    {50844, kAny, kAny, TIFF_DOUBLE, FIELD_CUSTOM, kSettableLater, kPassCount, rpcCoefficient},
}};

// libtiff calls the extender on any thread that opens a file.
constinit std::atomic<bool> registered = false;
constinit std::atomic<TIFFExtendProc> parentExtender = nullptr;
constinit thread_local bool extending = false;

// libtiff calls this for every file that the process opens.
void addTags(TIFF* tif) {
  // Another library may have stored this extender as its parent and now be ours.
  if (extending) return;
  extending = true;
  if (registered) (void)TIFFMergeFieldInfo(tif, kTags.data(), kTags.size());
  if (const TIFFExtendProc parent = parentExtender) parent(tif);
  extending = false;
}

}  // namespace
}  // namespace tb::runtime

// NOLINTBEGIN(google-build-using-namespace): these two act on what the unnamed namespace holds
void registerCustomGeoTags() {
  using namespace tb::runtime;
  if (registered.exchange(true)) return;
  const TIFFExtendProc previous = TIFFSetTagExtender(addTags);
  if (previous != addTags) parentExtender = previous;
}

void unregisterCustomGeoTags() {
  using namespace tb::runtime;
  if (!registered.exchange(false)) return;
  const TIFFExtendProc current = TIFFSetTagExtender(parentExtender);
  // Somebody who extended libtiff after us stays; our part of the chain does nothing by now.
  if (current != addTags) TIFFSetTagExtender(current);
}
// NOLINTEND(google-build-using-namespace)

std::string getCompressionScheme(std::uint16_t compression) {
  if (TIFFIsCODECConfigured(compression) == 0) return {};
  const TIFFCodec* codec = TIFFFindCODEC(compression);
  return codec != nullptr ? codec->name : "";
}

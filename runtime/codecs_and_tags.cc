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

constexpr unsigned char kSettableLater = 1;
constexpr unsigned char kPassCount = 1;

// A tag of any number of values.
constexpr TIFFFieldInfo field(std::uint32_t tag, TIFFDataType type, unsigned char passCount,
                              char* name) {
  return {tag, TIFF_VARIABLE, TIFF_VARIABLE, type, FIELD_CUSTOM, kSettableLater, passCount, name};
}

const std::array<TIFFFieldInfo, 7> kTags = {{
    field(tiffutils::kModelPixelScaleTag, TIFF_DOUBLE, kPassCount, modelPixelScale),
    field(tiffutils::kModelTiepointTag, TIFF_DOUBLE, kPassCount, modelTiepoint),
    field(tiffutils::kModelTransformationTag, TIFF_DOUBLE, kPassCount, modelTransformation),
    field(tiffutils::kGeoKeyDirectoryTag, TIFF_SHORT, kPassCount, geoKeyDirectory),
    field(tiffutils::kGeoDoubleParamsTag, TIFF_DOUBLE, kPassCount, geoDoubleParams),
    field(tiffutils::kGeoAsciiParamsTag, TIFF_ASCII, 0, geoAsciiParams),
    field(tiffutils::kRpcCoefficientTag, TIFF_DOUBLE, kPassCount, rpcCoefficient),
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

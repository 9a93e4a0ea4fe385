#include "tags/colour_setters.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "core/field_guard.h"
#include "core/sample_depth.h"
#include "tags/converters.h"
#include "tags/photometric_checks.h"

namespace tb {
namespace {

// libtiff computes the length of a map in 32 bits: from this depth on it would keep fewer entries
// than it later reads.
constexpr std::uint16_t kTooDeepForMaps = 32;

std::vector<std::uint16_t> colorTable(std::span<const double> column) {
  std::vector<std::uint16_t> table(column.size());
  std::ranges::transform(column, table.begin(), [](double element) {
    return convertNumber<std::uint16_t>(element * 65535.0 + 0.5);
  });
  return table;
}

// 2^bits, 0 when that exceeds 64 bits.
std::uint64_t curveLength(std::uint16_t bits) noexcept {
  return bits < 64 ? std::uint64_t{1} << bits : 0;
}

bool hasCurveShape(const vxArray* value, std::uint16_t samples, std::uint64_t length) {
  if (length == 0) return false;  // not a length but the sign of one beyond 64 bits
  const std::size_t* dimensions = vxGetDimensions(value);
  if (samples == 3) return dimensions[1] == 3 && dimensions[0] == length;
  return (dimensions[0] == 1 || dimensions[1] == 1) && vxGetNumberOfElements(value) == length;
}

bool takesTransferFunction(std::uint16_t photometric) noexcept {
  return photometric <= PHOTOMETRIC_PALETTE || photometric == PHOTOMETRIC_YCBCR;
}

bool takesWhitePoint(std::uint16_t photometric) noexcept {
  return photometric == PHOTOMETRIC_RGB || photometric == PHOTOMETRIC_PALETTE ||
         photometric == PHOTOMETRIC_YCBCR ||
         (photometric >= PHOTOMETRIC_CIELAB && photometric <= PHOTOMETRIC_ITULAB);
}

int storeFloats(TIFF* tif, std::uint32_t tag, const std::vector<float>& values) {
  return storeField(tif, tag, values.data());
}

// libtiff counts maps as set for which it had no memory, and would copy from nowhere when it writes
// them. Returns `status`, or 0 when the tag, of 1 or 3 maps, had to be unset.
int unlessWithoutMemory(TIFF* tif, std::uint32_t tag, std::uint16_t maps, int status) {
  static const std::uint16_t nothing = 0;
  const std::uint16_t *first = &nothing, *second = &nothing, *third = &nothing;
  if (status == 0 || !TIFFGetField(tif, tag, &first, &second, &third)) return status;
  if (first != nullptr && (maps == 1 || (second != nullptr && third != nullptr))) return status;
  (void)TIFFUnsetField(tif, tag);  // it was just seen to be set
  return 0;
}

// Fills the three tables of a ColorMap, or raises as setColorMap and leaves them unchanged.
void unpack_colormap(TIFF* tif, const vxArray* value, std::vector<std::uint16_t>& red,
                     std::vector<std::uint16_t>& green, std::vector<std::uint16_t>& blue) {
  const std::uint16_t bits =
      requiredBeforeWrite(tif, TIFFTAG_BITSPERSAMPLE, "BitsPerSample", "ColorMap");
  const auto length = convertNumber<std::uint64_t>(std::ldexp(1.0, bits));
  if (vxGetClassID(value) != vxDOUBLE || vxIsEmpty(value)) raise<Tiff::badColorMap>(length, bits);
  if (!isDoubleMatrix(value, 3) || vxGetDimensions(value)[0] != length)
    raise<Tiff::badColorMap>(length, bits);

  const std::span<const double> elements = elementsOf<double>(value);
  if (std::ranges::any_of(elements, [](double e) { return e > 1.0 || e < 0.0; }))
    raise<Tiff::colorMapValuesNotNormalized>();
  const std::size_t rows = vxGetDimensions(value)[0];
  red = colorTable(elements.subspan(0, rows));
  green = colorTable(elements.subspan(rows, rows));
  blue = colorTable(elements.subspan(2 * rows, rows));
}

}  // namespace

int setColorMap(TIFF* tif, std::uint32_t tag, const std::string&, const vxArray* value) {
  std::vector<std::uint16_t> red, green, blue;
  unpack_colormap(tif, value, red, green, blue);
  return unlessWithoutMemory(tif, tag, 3,
                             storeField(tif, tag, red.data(), green.data(), blue.data()));
}

int setTransferFunction(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                        const vxArray* value) {
  if (!takesTransferFunction(photometricBeforeWrite(tif, "TransferFunction")))
    raise<Tiff::badTagUsedWithPhotometric>("TransferFunction",
                                           "MinIsWhite, MinIsBlack, RGB, Palette, YCbCr");
  const std::uint16_t bits = effectiveBitsPerSample(tif);
  const auto samples = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
  const std::uint64_t length = curveLength(bits);

  if (vxGetNumberOfDimensions(value) > 2)
    raise<Tiff::badTransferFunctionSize>(bits, samples, length, samples);
  if (samples != 1 && samples != 3) raise<Tiff::badTransferFunctionSppCombination>(samples);
  if (!hasCurveShape(value, samples, length))
    raise<Tiff::badTransferFunctionSize>(bits, samples, length, samples);

  const auto curves = unpackTagArray<std::uint16_t>(value, tag, tagName);
  if (bits >= kTooDeepForMaps) return 0;
  const std::uint16_t* first = curves.data();
  const int status = samples == 1 ? storeField(tif, tag, first)
                                  : storeField(tif, tag, first, first + length, first + 2 * length);
  return unlessWithoutMemory(tif, tag, samples, status);
}

int setPrimaryChromaticities(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                             const vxArray* value) {
  (void)checkForRgbColorimetryPhotometricInterpretation(tif, tag, tagName);
  return storeFloats(tif, tag,
                     unpackTagValues<float>(value, tag, tagName, 6, "PrimaryChromaticities"));
}

int setReferenceBlackWhite(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                           const vxArray* value) {
  const std::uint16_t photometric =
      checkForRgbColorimetryPhotometricInterpretation(tif, tag, tagName);
  if (photometric == PHOTOMETRIC_PALETTE)
    raise<Tiff::badTagUsedWithPhotometric>("ReferenceBlackWhite", "RGB, YCbCr");
  return storeFloats(tif, tag,
                     unpackTagValues<float>(value, tag, tagName, 6, "ReferenceBlackWhite"));
}

int setWhitePoint(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  // ITULab passes although the message does not list it: the host's text names what it always has.
  if (!takesWhitePoint(photometricBeforeWrite(tif, "WhitePoint")))
    raise<Tiff::badTagUsedWithPhotometric>("WhitePoint", "RGB, YCbCr, Palette, CIELab, ICCLab");
  return storeFloats(tif, tag, unpackTagValues<float>(value, tag, tagName, 2, tagName));
}

}  // namespace tb

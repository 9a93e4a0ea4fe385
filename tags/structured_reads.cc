#include "tags/structured_reads.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <span>
#include <string_view>

#include "core/errors.h"
#include "core/field_guard.h"
#include "core/values.h"

namespace tb {
namespace {

using Curve = const std::uint16_t*;

// 2^bitsPerSample by way of a double, so that 64 bits and more overflow instead of wrapping.
std::size_t curveLength(std::uint16_t bitsPerSample) {
  return countInMemory(convertNumber<std::uint64_t>(std::ldexp(1.0, bitsPerSample)));
}

// A rows-by-columns.size() double matrix that holds the curves divided by `divisor`; columns whose
// curve is null stay 0.
vxArrayPtr matrixOfCurves(std::size_t rows, std::span<const Curve> curves, double divisor) {
  const std::size_t dimensions[] = {rows, curves.size()};
  vxArrayPtr matrix = matrix::detail::do_create_numeric(vxDOUBLE, dimensions);
  double* column = writableElementsOf<double>(matrix.get()).data();
  for (const Curve curve : curves) {
    if (curve != nullptr)
      std::transform(curve, curve + rows, column,
                     [divisor](std::uint16_t entry) { return entry / divisor; });
    column += rows;
  }
  return matrix;
}

// Raises when the image has the other kind of blocks; returns the number of them. libtiff counts
// those of every plane already, so that there is nothing to multiply.
std::uint32_t countBlocks(TIFF* tif, BlockKind kind) {
  if (kind == BlockKind::strip) {
    if (TIFFIsTiled(tif)) raise<Tiff::strippedOperationOnTiledImage>();
    return TIFFNumberOfStrips(tif);
  }
  if (!TIFFIsTiled(tif)) raise<Tiff::tiledOperationOnStrippedImage>();
  return TIFFNumberOfTiles(tif);
}

}  // namespace

vxArrayPtr retrieveColorMap(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const std::uint16_t bitsPerSample = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_BITSPERSAMPLE);
  Curve colors[3] = {};
  if (!fetchField(tif, tag, &colors[0], &colors[1], &colors[2]))
    raise<Tiff::tagRetrievalFailed>(tagName);
  return matrixOfCurves(curveLength(bitsPerSample), colors, 65535.0);
}

vxArrayPtr retrieveTransferFunction(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const std::uint16_t bitsPerSample = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_BITSPERSAMPLE);
  const std::uint16_t samplesPerPixel = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_SAMPLESPERPIXEL);
  if (samplesPerPixel != 1 && samplesPerPixel != 3)
    raise<Tiff::badTransferFunctionSppCombination>(samplesPerPixel);

  Curve curves[3] = {};
  if (!fetchField(tif, tag, &curves[0], &curves[1], &curves[2]))
    raise<Tiff::tagRetrievalFailed>(tagName);
  const std::size_t length = curveLength(bitsPerSample);
  if (samplesPerPixel == 3) return matrixOfCurves(length, curves, 1.0);
  // A single curve is a row where three are columns: callers tell the two by the shape.
  return doubleRow(std::span(curves[0], curves[0] != nullptr ? length : 0));
}

vxArrayPtr retrievePerTilePerStrip(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                                   BlockKind kind, BlockNumber* numberOf) {
  const std::uint32_t count = countBlocks(tif, kind);
  const std::uint64_t* values = nullptr;
  check_field_status(fetchField(tif, tag, &values), tagName);

  // libtiff's array can be shorter than the count, since ImageLength and RowsPerStrip may have
  // changed after it was made; libtiff's functions for one block know its length.
  const std::size_t dimensions[] = {1, count};
  vxArrayPtr row = matrix::detail::do_create_numeric(vxUINT64, dimensions);
  const std::span elements = writableElementsOf<std::uint64_t>(row.get());
  for (std::uint32_t block = 0; block < count; ++block) {
    int failed = 0;
    const std::uint64_t value = numberOf(tif, block, &failed);
    if (failed) break;
    elements[block] = value;
  }
  return row;
}

vxArrayPtr retrieveInkNames(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const std::uint16_t count = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_NUMBEROFINKS);
  const std::size_t dimensions[] = {1, count};
  vxArrayPtr cell = matrix::detail::do_create_cell(dimensions);
  // InkNames is the one tag with a count to store but none to fetch; that makes NumberOfInks, which
  // libtiff keeps equal to the number of names, the only bound of the walk.
  const char* names = nullptr;
  if (!fetchField<CountWidth::bits16>(tif, tag, &names)) raise<Tiff::tagRetrievalFailed>(tagName);
  for (std::size_t ink = 0; names != nullptr && ink < count; ++ink) {
    const std::string_view name(names);
    vxSetCell(cell.get(), ink, matrix::create(name).release());
    names += name.size() + 1;
  }
  return cell;
}

vxArrayPtr retrievePlanarConfiguration(TIFF* tif, std::uint32_t tag, const std::string&) {
  return doubleScalar(fieldOrDefault<std::uint16_t>(tif, tag));
}

}  // namespace tb

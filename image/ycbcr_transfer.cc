#include "image/ycbcr_transfer.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "core/errors.h"
#include "core/values.h"
#include "image/unsigned_arithmetic.h"
#include "kernels/ycbcr_units.h"

namespace tb {
namespace {

// How the units of a block lie in it and how many it holds, all counted in 64 bits: the factors
// are 16-bit numbers from the file.
struct UnitLayout {
  std::size_t horizontal;
  std::size_t vertical;
  std::size_t unitSize;
  std::size_t unitsPerRow;
  std::size_t unitCount;
};

UnitLayout unitLayout(std::span<const std::byte> block, const TiffImageMetaData_& record) {
  const std::size_t h = record.ycbcrSubsampling[0];
  const std::size_t v = record.ycbcrSubsampling[1];
  const std::size_t unitSize = h * v + 2;
  return {.horizontal = h,
          .vertical = v,
          .unitSize = unitSize,
          .unitsPerRow = quotientUp(record.blockWidth, h),
          .unitCount = block.size() / unitSize};
}

struct Planes {
  vxArrayPtr y, cb, cr;
  BlockExtent extent;  // of Y
  std::size_t chromaRows;
  std::size_t chromaColumns;
};

bool coversPlanes(const Planes& planes, const UnitLayout& layout) {
  return layout.unitsPerRow >= planes.chromaColumns &&
         layout.unitCount >= layout.unitsPerRow * planes.chromaRows;
}

vxArrayPtr createPlane(vxClassID classId, std::size_t rows, std::size_t columns, bool covered) {
  const std::size_t dimensions[] = {rows, columns};
  return covered ? matrix::detail::do_create_uninitnumeric(classId, dimensions)
                 : matrix::detail::do_create_numeric(classId, dimensions);
}

Planes createPlanes(BlockExtent extent, const UnitLayout& layout, vxClassID classId,
                    std::size_t bitsPerSample) {
  Planes planes{.y = nullptr,
                .cb = nullptr,
                .cr = nullptr,
                .extent = extent,
                .chromaRows = quotientUp(extent.rows, layout.vertical),
                .chromaColumns = quotientUp(extent.columns, layout.horizontal)};
  // The units fill all bytes of 1-byte classes only.
  const bool covered = bitsPerSample <= 8 && coversPlanes(planes, layout);
  planes.y = createPlane(classId, extent.rows, extent.columns, covered);
  planes.cb = createPlane(classId, planes.chromaRows, planes.chromaColumns, covered);
  planes.cr = createPlane(classId, planes.chromaRows, planes.chromaColumns, covered);
  return planes;
}

// Splits `unitRows` rows of `unitColumns` units each, from unit row `firstUnitRow` on.
void splitUnitRows(std::span<const std::byte> block, const Planes& planes, const UnitLayout& layout,
                   std::size_t firstUnitRow, std::size_t unitRows, std::size_t unitColumns) {
  if (unitRows == 0 || unitColumns == 0) return;
  const std::size_t firstLumaRow = firstUnitRow * layout.vertical;
  const std::byte* units = block.data() + firstUnitRow * layout.unitsPerRow * layout.unitSize;
  splitYCbCrUnits(units, writableDataOf(planes.y.get()) + firstLumaRow,
                  writableDataOf(planes.cb.get()) + firstUnitRow,
                  writableDataOf(planes.cr.get()) + firstUnitRow,
                  {.unitRows = unitRows,
                   .unitColumns = std::min(unitColumns, planes.chromaColumns),
                   .unitStride = layout.unitsPerRow,
                   .horizontal = layout.horizontal,
                   .vertical = layout.vertical,
                   .lumaRows = planes.extent.rows - firstLumaRow,
                   .lumaColumns = planes.extent.columns,
                   .lumaColumnStride = planes.extent.rows,
                   .chromaColumnStride = planes.chromaRows});
}

// Units outside the planes are skipped, and the last unit row of a short block may be incomplete.
void splitUnits(std::span<const std::byte> block, const Planes& planes, const UnitLayout& layout) {
  if (layout.unitsPerRow == 0) return;
  const std::size_t completeRows = layout.unitCount / layout.unitsPerRow;
  const std::size_t unitRows = std::min(completeRows, planes.chromaRows);
  splitUnitRows(block, planes, layout, 0, unitRows, layout.unitsPerRow);
  if (completeRows < planes.chromaRows) {
    splitUnitRows(block, planes, layout, completeRows, 1, layout.unitCount % layout.unitsPerRow);
  }
}

// A logical element is 0 or 1, the units hold any byte.
void makeLogical(const vxArrayPtr& array) {
  const std::span<std::byte> elements(writableDataOf(array.get()),
                                      vxGetNumberOfElements(array.get()));
  std::ranges::transform(elements, elements.begin(),
                         [](std::byte value) { return std::byte{value != std::byte{0}}; });
}

}  // namespace

void transferYCbCrContigBlockToVx(std::span<const std::byte> block, BlockExtent extent,
                                  OutputSlots outputs, const TiffImageMetaData_& record) {
  const vxClassID classId = determineClassId(record);
  // A file can say 0 samples to a chroma sample, and then there is no unit.
  if (record.ycbcrSubsampling[0] == 0 || record.ycbcrSubsampling[1] == 0) {
    raise<Tiff::unsupportedYCbCrConfiguration>();
  }
  if (record.samplesPerPixel >= 4) raise<Tiff::unsupportedYCbCrConfiguration>();
  const UnitLayout layout = unitLayout(block, record);
  Planes planes = createPlanes(extent, layout, classId, record.bitsPerSample);
  splitUnits(block, planes, layout);
  vxArrayPtr* const arrays[] = {&planes.y, &planes.cb, &planes.cr};
  for (int slot = 0; slot < 3; ++slot) {
    if (classId == vxLOGICAL) makeLogical(*arrays[slot]);
    storeOutput(outputs.count, outputs.slots, slot, std::move(*arrays[slot]));
  }
}

}  // namespace tb

// Units are taken apart in two steps: a panel of unit bytes is transposed, so that byte k of all
// units below one another becomes a line, and the lines of one luma column are then woven into
// each other, one element of each in turn. Chroma lines are finished columns.

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/ycbcr_units.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/split_ycbcr_units_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "kernels/transpose-inl.h"
#include "kernels/ycbcr_panel-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Writes element i of line k to woven[i*lineCount + k]; the lines are lineStride bytes apart.
HWY_INLINE void WeaveLines(const std::uint8_t* HWY_RESTRICT lines, std::size_t lineStride,
                           std::size_t lineCount, std::uint8_t* HWY_RESTRICT woven) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  for (std::size_t row = 0; row < kPanelLines; row += hn::Lanes(d)) {
    const std::uint8_t* line = lines + row;
    if (lineCount == 1)
      hn::StoreU(hn::LoadU(d, line), d, woven + row);
    else if (lineCount == 2)
      hn::StoreInterleaved2(hn::LoadU(d, line), hn::LoadU(d, line + lineStride), d,
                            woven + 2 * row);
    else
      hn::StoreInterleaved4(hn::LoadU(d, line), hn::LoadU(d, line + lineStride),
                            hn::LoadU(d, line + 2 * lineStride),
                            hn::LoadU(d, line + 3 * lineStride), d, woven + 4 * row);
  }
}

void SplitPanel(const std::uint8_t* units, std::uint8_t* y, std::uint8_t* cb, std::uint8_t* cr,
                const YCbCrShape& shape, const UnitPanel& panel) {
  const std::size_t unitBytes = shape.horizontal * shape.vertical + 2;
  const std::size_t chroma = panel.firstRow + panel.firstUnit * shape.chromaColumnStride;
  const std::size_t lumaRow = panel.firstRow * shape.vertical;
  const std::size_t lumaCount =
      std::min(panel.rows * shape.vertical, shape.lumaRows - std::min(lumaRow, shape.lumaRows));
  UnitLines panelLines;
  alignas(64) std::uint8_t woven[kMaxSubsampling * kPanelLines];
  TransposeLines<std::uint8_t>(UnitRows(units, shape, panel), panel.rows,
                               StridedLines<std::uint8_t>{panelLines.lines[0], kPanelLines},
                               panel.units * unitBytes);
  for (std::size_t unit = 0; unit < panel.units; ++unit) {
    const auto* line = panelLines.lines + unit * unitBytes;
    for (std::size_t column = 0; column < shape.horizontal; ++column) {
      const std::size_t lumaColumn = (panel.firstUnit + unit) * shape.horizontal + column;
      if (lumaColumn >= shape.lumaColumns) break;
      WeaveLines(line[column], shape.horizontal * kPanelLines, shape.vertical, woven);
      std::memcpy(y + lumaRow + lumaColumn * shape.lumaColumnStride, woven, lumaCount);
    }
    std::memcpy(cb + chroma + unit * shape.chromaColumnStride, line[unitBytes - 2], panel.rows);
    std::memcpy(cr + chroma + unit * shape.chromaColumnStride, line[unitBytes - 1], panel.rows);
  }
}

void SplitOtherUnits(const std::uint8_t* units, std::uint8_t* y, std::uint8_t* cb, std::uint8_t* cr,
                     const YCbCrShape& shape) {
  const std::size_t lumaBytes = shape.horizontal * shape.vertical;
  for (std::size_t unitRow = 0; unitRow < shape.unitRows; ++unitRow)
    for (std::size_t unitColumn = 0; unitColumn < shape.unitColumns; ++unitColumn) {
      const std::uint8_t* unit =
          units + (unitRow * shape.unitStride + unitColumn) * (lumaBytes + 2);
      for (std::size_t k = 0; k < lumaBytes; ++k) {
        const std::size_t row = unitRow * shape.vertical + k / shape.horizontal;
        const std::size_t column = unitColumn * shape.horizontal + k % shape.horizontal;
        if (row < shape.lumaRows && column < shape.lumaColumns)
          y[row + column * shape.lumaColumnStride] = unit[k];
      }
      cb[unitRow + unitColumn * shape.chromaColumnStride] = unit[lumaBytes];
      cr[unitRow + unitColumn * shape.chromaColumnStride] = unit[lumaBytes + 1];
    }
}

void SplitYCbCrUnits(const std::uint8_t* units, std::uint8_t* y, std::uint8_t* cb, std::uint8_t* cr,
                     const YCbCrShape& shape) {
  if (!IsTiffSubsampling(shape.horizontal) || !IsTiffSubsampling(shape.vertical))
    return SplitOtherUnits(units, y, cb, cr, shape);
  UnitPanel panel;
  for (panel.firstRow = 0; panel.firstRow < shape.unitRows; panel.firstRow += panel.rows) {
    panel.rows = std::min(kPanelLines, shape.unitRows - panel.firstRow);
    for (panel.firstUnit = 0; panel.firstUnit < shape.unitColumns; panel.firstUnit += panel.units) {
      panel.units = std::min(kPanelUnits, shape.unitColumns - panel.firstUnit);
      SplitPanel(units, y, cb, cr, shape, panel);
    }
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tb {
HWY_EXPORT(SplitYCbCrUnits);
void splitYCbCrUnits(const std::byte* units, std::byte* y, std::byte* cb, std::byte* cr,
                     const YCbCrShape& shape) {
  HWY_DYNAMIC_DISPATCH(SplitYCbCrUnits)
  (reinterpret_cast<const std::uint8_t*>(units), reinterpret_cast<std::uint8_t*>(y),
   reinterpret_cast<std::uint8_t*>(cb), reinterpret_cast<std::uint8_t*>(cr), shape);
}
}  // namespace tb
#endif

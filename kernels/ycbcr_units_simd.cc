// Units are taken apart in two steps: a panel of unit bytes is transposed, so that byte k of all
// units below one another becomes a line, and the lines of one luma column are then woven into
// each other, one element of each in turn. Chroma lines are finished columns. They are put together
// by the reverse: every luma column is unravelled into a line for each luma row of a unit, and a
// panel of such lines, with the chroma columns between them, is transposed into rows of unit bytes.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/ycbcr_units.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/ycbcr_units_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "kernels/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Subsampling factors that TIFF knows. A file may claim others; they take a plain path.
constexpr std::size_t kMaxSubsampling = 4;
inline bool IsTiffSubsampling(std::size_t factor) {
  return factor == 1 || factor == 2 || factor == kMaxSubsampling;
}

// A panel holds up to kPanelLines rows of up to kPanelUnits units.
constexpr std::size_t kPanelUnits = 16;
struct UnitPanel {
  std::size_t firstRow, rows, firstUnit, units;
};

// Works on panels of at most `rows` rows of units, row by row.
template <class Work>
HWY_INLINE void ForEachPanel(const YCbCrShape& shape, std::size_t rows, const Work& work) {
  UnitPanel panel;
  for (panel.firstRow = 0; panel.firstRow < shape.unitRows; panel.firstRow += panel.rows) {
    panel.rows = std::min(rows, shape.unitRows - panel.firstRow);
    for (panel.firstUnit = 0; panel.firstUnit < shape.unitColumns; panel.firstUnit += panel.units) {
      panel.units = std::min(kPanelUnits, shape.unitColumns - panel.firstUnit);
      work(panel);
    }
  }
}

// Line unit*unitBytes + k holds byte k of that unit of every row.
constexpr std::size_t kMaxUnitBytes = kMaxSubsampling * kMaxSubsampling + 2;
struct UnitLines {
  alignas(64) std::uint8_t lines[kPanelUnits * kMaxUnitBytes][kPanelLines];
};

// The rows of unit bytes of a panel.
template <class Byte>
StridedLines<Byte> UnitRows(Byte* units, const YCbCrShape& shape, const UnitPanel& panel) {
  const std::size_t unitBytes = shape.horizontal * shape.vertical + 2;
  return {units + (panel.firstRow * shape.unitStride + panel.firstUnit) * unitBytes,
          shape.unitStride * unitBytes};
}

// --- Taking units apart

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
      if (lumaColumn >= shape.lumaColumns || lumaCount == 0) break;
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
  ForEachPanel(shape, kPanelLines, [&](const UnitPanel& panel) HWY_ATTR {
    SplitPanel(units, y, cb, cr, shape, panel);
  });
}

// --- Putting units together

// Writes element i*lineCount + k of a column to element i of line k; the lines are lineStride bytes
// apart.
HWY_INLINE void UnravelColumn(const std::uint8_t* HWY_RESTRICT woven, std::size_t lineStride,
                              std::size_t lineCount, std::uint8_t* HWY_RESTRICT lines) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  for (std::size_t row = 0; row < kPanelLines; row += hn::Lanes(d)) {
    std::uint8_t* line = lines + row;
    hn::Vec<decltype(d)> line0, line1, line2, line3;
    if (lineCount == 1) {
      hn::StoreU(hn::LoadU(d, woven + row), d, line);
    } else if (lineCount == 2) {
      hn::LoadInterleaved2(d, woven + 2 * row, line0, line1);
      hn::StoreU(line0, d, line);
      hn::StoreU(line1, d, line + lineStride);
    } else {
      hn::LoadInterleaved4(d, woven + 4 * row, line0, line1, line2, line3);
      hn::StoreU(line0, d, line);
      hn::StoreU(line1, d, line + lineStride);
      hn::StoreU(line2, d, line + 2 * lineStride);
      hn::StoreU(line3, d, line + 3 * lineStride);
    }
  }
}

void JoinPanel(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
               std::uint8_t* units, const YCbCrShape& shape, const UnitPanel& panel) {
  const std::size_t unitBytes = shape.horizontal * shape.vertical + 2;
  const std::size_t chroma = panel.firstRow + panel.firstUnit * shape.chromaColumnStride;
  UnitLines panelLines;
  alignas(64) std::uint8_t woven[kMaxSubsampling * kPanelLines] = {};
  for (std::size_t unit = 0; unit < panel.units; ++unit) {
    auto* line = panelLines.lines + unit * unitBytes;
    for (std::size_t column = 0; column < shape.horizontal; ++column) {
      const std::size_t lumaColumn = (panel.firstUnit + unit) * shape.horizontal + column;
      std::memcpy(woven, y + panel.firstRow * shape.vertical + lumaColumn * shape.lumaColumnStride,
                  panel.rows * shape.vertical);
      UnravelColumn(woven, shape.horizontal * kPanelLines, shape.vertical, line[column]);
    }
    std::memcpy(line[unitBytes - 2], cb + chroma + unit * shape.chromaColumnStride, panel.rows);
    std::memcpy(line[unitBytes - 1], cr + chroma + unit * shape.chromaColumnStride, panel.rows);
  }
  TransposeLines<std::uint8_t>(StridedLines<const std::uint8_t>{panelLines.lines[0], kPanelLines},
                               panel.units * unitBytes, UnitRows(units, shape, panel), panel.rows);
}

void JoinOtherUnits(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                    std::uint8_t* units, const YCbCrShape& shape) {
  const std::size_t lumaBytes = shape.horizontal * shape.vertical;
  for (std::size_t unitRow = 0; unitRow < shape.unitRows; ++unitRow)
    for (std::size_t unitColumn = 0; unitColumn < shape.unitColumns; ++unitColumn) {
      std::uint8_t* unit = units + (unitRow * shape.unitStride + unitColumn) * (lumaBytes + 2);
      for (std::size_t k = 0; k < lumaBytes; ++k)
        unit[k] =
            y[unitRow * shape.vertical + k / shape.horizontal +
              (unitColumn * shape.horizontal + k % shape.horizontal) * shape.lumaColumnStride];
      unit[lumaBytes] = cb[unitRow + unitColumn * shape.chromaColumnStride];
      unit[lumaBytes + 1] = cr[unitRow + unitColumn * shape.chromaColumnStride];
    }
}

void JoinYCbCrUnits(const std::uint8_t* y, const std::uint8_t* cb, const std::uint8_t* cr,
                    std::uint8_t* units, const YCbCrShape& shape) {
  if (!IsTiffSubsampling(shape.horizontal) || !IsTiffSubsampling(shape.vertical))
    return JoinOtherUnits(y, cb, cr, units, shape);
  // Where rows of units overlap, one row must be complete before the next one begins.
  const std::size_t panelRows = shape.unitStride < shape.unitColumns ? 1 : kPanelLines;
  ForEachPanel(shape, panelRows,
               [&](const UnitPanel& panel) HWY_ATTR { JoinPanel(y, cb, cr, units, shape, panel); });
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

HWY_EXPORT(JoinYCbCrUnits);
void joinYCbCrUnits(const std::byte* y, const std::byte* cb, const std::byte* cr, std::byte* units,
                    const YCbCrShape& shape) {
  HWY_DYNAMIC_DISPATCH(JoinYCbCrUnits)
  (reinterpret_cast<const std::uint8_t*>(y), reinterpret_cast<const std::uint8_t*>(cb),
   reinterpret_cast<const std::uint8_t*>(cr), reinterpret_cast<std::uint8_t*>(units), shape);
}

}  // namespace tb
#endif

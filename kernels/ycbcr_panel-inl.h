// The panels of YCbCr units that the kernels taking units apart and putting them together share,
// compiled once per instruction set.

#if defined(TAGBRIDGE_KERNELS_YCBCR_PANEL_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_KERNELS_YCBCR_PANEL_INL_H_
#undef TAGBRIDGE_KERNELS_YCBCR_PANEL_INL_H_
#else
#define TAGBRIDGE_KERNELS_YCBCR_PANEL_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "kernels/transpose-inl.h"
#include "kernels/ycbcr_units.h"

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

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

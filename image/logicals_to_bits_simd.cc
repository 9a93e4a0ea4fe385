// Bytes become bits in two steps: eight columns are gathered into the bits of one line of bytes,
// and those lines are transposed into the rows of the block. The transposition then moves an
// eighth of the data only.

#include <algorithm>
#include <cstdint>

#include "image/logicals_to_bits.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/logicals_to_bits_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "image/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Writes `count` bytes whose bits, from the most significant, tell which elements of up to eight
// columns are not zero.
template <class D>
HWY_INLINE void GatherBits(D d, const std::uint8_t* HWY_RESTRICT columns, std::size_t columnStride,
                           std::size_t columnCount, std::size_t count,
                           std::uint8_t* HWY_RESTRICT packed) {
  const std::size_t lanes = hn::Lanes(d);
  if constexpr (hn::MaxLanes(D()) > 1)
    if (count < lanes)
      return GatherBits(hn::Half<D>(), columns, columnStride, columnCount, count, packed);
  const auto zero = hn::Zero(d);
  for (std::size_t next = 0; next < count; next += lanes) {
    const std::size_t row = std::min(next, count - lanes);
    auto bits = zero;
    for (std::size_t bit = 0; bit < columnCount; ++bit) {
      const auto logicals = hn::LoadU(d, columns + bit * columnStride + row);
      const auto mask = hn::Set(d, static_cast<std::uint8_t>(0x80u >> bit));
      bits = hn::Or(bits, hn::IfThenZeroElse(hn::Eq(logicals, zero), mask));
    }
    hn::StoreU(bits, d, packed + row);
  }
}

void PackLogicalsToBits(const std::uint8_t* columns, std::uint8_t* block, const BlockShape& shape) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  HWY_ALIGN std::uint8_t packed[kPanelLines][kPanelLines];
  for (std::size_t firstRow = 0; firstRow < shape.rows; firstRow += kPanelLines) {
    const std::size_t rows = std::min(kPanelLines, shape.rows - firstRow);
    for (std::size_t first = 0; first < shape.columns; first += 8 * kPanelLines) {
      const std::size_t count = std::min(8 * kPanelLines, shape.columns - first);
      for (std::size_t column = 0; column < count; column += 8)
        GatherBits(d, columns + (first + column) * shape.columnStride + firstRow,
                   shape.columnStride, std::min<std::size_t>(8, count - column), rows,
                   packed[column / 8]);
      const StridedLines<std::uint8_t> out{block + firstRow * shape.blockStride + first / 8,
                                           shape.blockStride};
      TransposeLines<std::uint8_t>(StridedLines<const std::uint8_t>{packed[0], kPanelLines},
                                   (count + 7) / 8, out, rows);
    }
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tb {
HWY_EXPORT(PackLogicalsToBits);
void packLogicalsToBits(const std::byte* columns, std::byte* block, const BlockShape& shape) {
  HWY_DYNAMIC_DISPATCH(PackLogicalsToBits)
  (reinterpret_cast<const std::uint8_t*>(columns), reinterpret_cast<std::uint8_t*>(block), shape);
}
}  // namespace tb
#endif

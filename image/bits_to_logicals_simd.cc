// Bits become bytes in two steps: the bytes of the block are transposed, so that the bits of one
// column lie in consecutive bytes, and each of those bytes' eight bits is masked out into a column
// of its own. The transposition then moves an eighth of the data only.

#include <algorithm>
#include <cstdint>

#include "image/bits_to_logicals.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "image/bits_to_logicals_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "image/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Writes bit `bit`, counted from the most significant, of `count` bytes.
template <class D>
HWY_INLINE void SpreadBit(D d, const std::uint8_t* HWY_RESTRICT packed, std::size_t count,
                          std::size_t bit, std::uint8_t* HWY_RESTRICT logicals) {
  const std::size_t lanes = hn::Lanes(d);
  if constexpr (hn::MaxLanes(D()) > 1)
    if (count < lanes) return SpreadBit(hn::Half<D>(), packed, count, bit, logicals);
  const auto mask = hn::Set(d, static_cast<std::uint8_t>(0x80u >> bit));
  const auto one = hn::Set(d, std::uint8_t{1});
  for (std::size_t next = 0; next < count; next += lanes) {
    const std::size_t row = std::min(next, count - lanes);
    const auto isSet = hn::TestBit(hn::LoadU(d, packed + row), mask);
    hn::StoreU(hn::IfThenElseZero(isSet, one), d, logicals + row);
  }
}

void UnpackBitsToLogicals(const std::uint8_t* block, std::uint8_t* columns,
                          const BlockShape& shape) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  const std::size_t bits = shape.columns * shape.samples;
  const PlaneColumns<std::uint8_t> column{columns, shape.samples, shape.columnStride,
                                          shape.planeStride};
  HWY_ALIGN std::uint8_t packed[kPanelLines][kPanelLines];
  for (std::size_t firstRow = 0; firstRow < shape.rows; firstRow += kPanelLines) {
    const std::size_t rows = std::min(kPanelLines, shape.rows - firstRow);
    for (std::size_t firstBit = 0; firstBit < bits; firstBit += 8 * kPanelLines) {
      const std::size_t panelBits = std::min(8 * kPanelLines, bits - firstBit);
      const BlockRows<const std::uint8_t> in{block + firstRow * shape.blockStride + firstBit / 8,
                                             shape.blockStride};
      TransposeLines<std::uint8_t>(in, rows, BlockRows<std::uint8_t>{packed[0], kPanelLines},
                                   (panelBits + 7) / 8);
      for (std::size_t bit = 0; bit < panelBits; ++bit)
        SpreadBit(d, packed[bit / 8], rows, bit % 8, column(firstBit + bit) + firstRow);
    }
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tb {
HWY_EXPORT(UnpackBitsToLogicals);
void unpackBitsToLogicals(const std::byte* block, std::byte* columns, const BlockShape& shape) {
  HWY_DYNAMIC_DISPATCH(UnpackBitsToLogicals)
  (reinterpret_cast<const std::uint8_t*>(block), reinterpret_cast<std::uint8_t*>(columns), shape);
}
}  // namespace tb
#endif

// Bytes become bits in two steps: eight columns are gathered into the bits of one line of bytes,
// and those lines are transposed into the rows of the block. The transposition then moves an
// eighth of the data only. A column of 1, 2, 4 or 8 rows is shorter than a vector; if such columns
// lie behind one another, each is an element, and elements of every eighth column are brought
// together first.

#include <algorithm>
#include <cstdint>

#include "kernels/logicals_to_bits.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/logicals_to_bits_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "kernels/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Rows of a panel at most, and how many packed bytes it holds.
constexpr std::size_t kPanelRows = 256;
constexpr std::size_t kPanelBytes = 8192;

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

// Gathers the bits of joined columns of sizeof(T) rows each, so that a column is an element: every
// eighth column goes to the same line, and of those lines whole vectors are gathered.
template <class T>
void GatherJoinedColumns(const std::uint8_t* columns, std::size_t byteCount,
                         std::uint8_t* HWY_RESTRICT packed) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  constexpr std::size_t kLineBytes = 1024;
  alignas(kCacheLine) std::uint8_t lines[8][kLineBytes];
  for (std::size_t first = 0; first < byteCount; first += kLineBytes / sizeof(T)) {
    const std::size_t count = std::min(kLineBytes / sizeof(T), byteCount - first);
    const StridedLines<const std::uint8_t> in{columns + first * 8 * sizeof(T), 8 * sizeof(T)};
    TransposeLines<T>(in, count, StridedLines<std::uint8_t>{lines[0], kLineBytes}, 8);
    GatherBits(d, lines[0], kLineBytes, 8, count * sizeof(T), packed + first * sizeof(T));
  }
}

// Gathers as many bytes of every row as `panel` has whole ones.
void GatherWholeBytes(const std::uint8_t* columns, const BlockShape& panel,
                      std::uint8_t* HWY_RESTRICT packed) {
  const std::size_t count = panel.columns / 8;
  const std::size_t joinedRows = panel.columnStride == panel.rows ? panel.rows : 0;
  if (joinedRows == 1) return GatherJoinedColumns<std::uint8_t>(columns, count, packed);
  if (joinedRows == 2) return GatherJoinedColumns<std::uint16_t>(columns, count, packed);
  if (joinedRows == 4) return GatherJoinedColumns<std::uint32_t>(columns, count, packed);
  if (joinedRows == 8) return GatherJoinedColumns<std::uint64_t>(columns, count, packed);
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  for (std::size_t i = 0; i < count; ++i)
    GatherBits(d, columns + 8 * i * panel.columnStride, panel.columnStride, 8, panel.rows,
               packed + i * panel.rows);
}

// Packs rows of a panel, which may have so many columns that their bytes fill it.
void PackPanel(const std::uint8_t* columns, std::uint8_t* block, const BlockShape& panel) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  alignas(kCacheLine) std::uint8_t packed[kPanelBytes];
  GatherWholeBytes(columns, panel, packed);
  const std::size_t whole = panel.columns / 8, rest = panel.columns % 8;
  if (rest > 0)
    GatherBits(d, columns + 8 * whole * panel.columnStride, panel.columnStride, rest, panel.rows,
               packed + whole * panel.rows);
  TransposeLines<std::uint8_t>(StridedLines<const std::uint8_t>{packed, panel.rows},
                               (panel.columns + 7) / 8,
                               StridedLines<std::uint8_t>{block, panel.blockStride}, panel.rows);
}

void PackLogicalsToBits(const std::uint8_t* columns, std::uint8_t* block, const BlockShape& shape) {
  BlockShape panel = shape;
  for (std::size_t row = 0; row < shape.rows; row += kPanelRows) {
    panel.rows = std::min(kPanelRows, shape.rows - row);
    const std::size_t mostColumns = 8 * (kPanelBytes / panel.rows);
    for (std::size_t column = 0; column < shape.columns; column += mostColumns) {
      panel.columns = std::min(mostColumns, shape.columns - column);
      PackPanel(columns + row + column * shape.columnStride,
                block + row * shape.blockStride + column / 8, panel);
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

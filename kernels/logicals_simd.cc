// Bits become bytes in two steps: the bytes of the block are transposed, so that the bits of one
// column lie in consecutive bytes, and each of those bytes' eight bits is masked out into a column
// of its own. Columns of up to 16 rows that lie behind one another are shorter than a vector; there
// a shuffle brings the right byte to every logical of several columns.
//
// Bytes become bits by the reverse: eight columns are gathered into the bits of one line of bytes,
// and those lines are transposed into the rows of the block. A column of 1, 2, 4 or 8 rows is
// shorter than a vector; if such columns lie behind one another, each is an element, and elements
// of every eighth column are brought together first. Either way the transposition moves an eighth
// of the data.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/logicals.h"
#include "kernels/spread_patterns.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/logicals_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "kernels/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Rows of a panel of bits at most, and the bytes of each when there are so many.
constexpr std::size_t kBitPanelRows = 256;
constexpr std::size_t kBitPanelRowBytes = 32;
constexpr std::size_t kBitPanelBytes = kBitPanelRows * kBitPanelRowBytes;

// --- Bits to logicals

// Spreads `count` bytes: bit b, counted from the most significant, goes to columns[b].
template <class D>
HWY_INLINE void SpreadBytes(D d, const std::uint8_t* HWY_RESTRICT packed, std::size_t count,
                            std::uint8_t* const* HWY_RESTRICT columns) {
  const std::size_t lanes = hn::Lanes(d);
  if constexpr (hn::MaxLanes(D()) > 1)
    if (count < lanes) return SpreadBytes(hn::Half<D>(), packed, count, columns);
  const auto one = hn::Set(d, std::uint8_t{1});
  for (std::size_t next = 0; next < count; next += lanes) {
    const std::size_t row = std::min(next, count - lanes);
    const auto bytes = hn::LoadU(d, packed + row);
    for (std::size_t bit = 0; bit < 8; ++bit) {
      const auto mask = hn::Set(d, static_cast<std::uint8_t>(0x80u >> bit));
      hn::StoreU(hn::IfThenElseZero(hn::TestBit(bytes, mask), one), d, columns[bit] + row);
    }
  }
}

void UnpackTallBits(const std::uint8_t* block, std::uint8_t* columns, const BlockShape& shape) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  const std::size_t bits = shape.columns * shape.samples;
  const PlaneColumns<std::uint8_t> lines{columns, shape.samples, shape.columnStride,
                                         shape.planeStride};
  alignas(kCacheLine) std::uint8_t packed[kBitPanelRowBytes][kBitPanelRows];
  alignas(kCacheLine) std::uint8_t unused[kBitPanelRows];
  std::uint8_t* table[8];
  for (std::size_t firstRow = 0; firstRow < shape.rows; firstRow += kBitPanelRows) {
    const std::size_t rows = std::min(kBitPanelRows, shape.rows - firstRow);
    for (std::size_t first = 0; first < bits; first += 8 * kBitPanelRowBytes) {
      const std::size_t panelBits = std::min(8 * kBitPanelRowBytes, bits - first);
      const StridedLines<const std::uint8_t> in{block + firstRow * shape.blockStride + first / 8,
                                                shape.blockStride};
      TransposeLines<std::uint8_t>(in, rows, StridedLines<std::uint8_t>{packed[0], kBitPanelRows},
                                   (panelBits + 7) / 8);
      for (std::size_t bit = 0; bit < panelBits; bit += 8) {
        std::fill_n(table, 8, &unused[0]);
        lines.fill(first + bit, std::min<std::size_t>(8, panelBits - bit), firstRow, table);
        SpreadBytes(d, packed[bit / 8], rows, table);
      }
    }
  }
}

#if HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE

bool HasSpreadPattern(const BlockShape& /*shape*/) { return false; }
void UnpackThinBits(const std::uint8_t*, std::uint8_t*, const BlockShape&) {}

#else

// Whether the rows are so few that the bits of several columns share a vector, and the columns lie
// behind one another.
bool HasSpreadPattern(const BlockShape& shape) {
  return shape.rows >= 1 && shape.rows <= kMostSpreadRows && shape.samples == 1 &&
         shape.columnStride == shape.rows;
}

// Writes 128 logicals of the sixteen packed bytes.
HWY_INLINE void SpreadSixteen(const std::uint8_t* HWY_RESTRICT packed, const SpreadPattern& pattern,
                              std::uint8_t* HWY_RESTRICT logicals) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  const auto one = hn::Set(d, std::uint8_t{1});
  const auto bytes = hn::LoadDup128(d, packed);
  for (std::size_t i = 0; i < pattern.source.size(); i += hn::Lanes(d)) {
    const auto spread = hn::TableLookupBytes(bytes, hn::Load(d, &pattern.source[i]));
    const auto bits = hn::TestBit(spread, hn::Load(d, &pattern.mask[i]));
    hn::StoreU(hn::IfThenElseZero(bits, one), d, logicals + i);
  }
}

// What the last pattern writes too much is overwritten by the next one, or stays in local memory.
void SpreadJoinedBytes(const std::uint8_t* packed, std::size_t rows, std::uint8_t* logicals,
                       std::size_t count) {
  const SpreadPattern& pattern = kSpreadPatterns[rows - 1];
  const std::size_t step = kSpreadBytes / rows * rows;
  for (; count >= 8 * kSpreadBytes; count -= 8 * step, packed += step, logicals += 8 * step)
    SpreadSixteen(packed, pattern, logicals);
  std::uint8_t last[8 * kSpreadBytes];
  while (count > 0) {
    const std::size_t part = std::min(count, 8 * step);
    SpreadSixteen(packed, pattern, last);
    std::memcpy(logicals, last, part);
    count -= part, packed += step, logicals += part;
  }
}

void UnpackThinBits(const std::uint8_t* block, std::uint8_t* columns, const BlockShape& shape) {
  constexpr std::size_t kMostBytes = 128;
  alignas(kCacheLine) std::uint8_t packed[kMostBytes * kMostSpreadRows + kSpreadBytes];
  for (std::size_t first = 0; first < shape.columns; first += 8 * kMostBytes) {
    const std::size_t count = std::min(8 * kMostBytes, shape.columns - first);
    const StridedLines<const std::uint8_t> in{block + first / 8, shape.blockStride};
    TransposeLines<std::uint8_t>(in, shape.rows, StridedLines<std::uint8_t>{packed, shape.rows},
                                 (count + 7) / 8);
    SpreadJoinedBytes(packed, shape.rows, columns + first * shape.rows, count * shape.rows);
  }
}

#endif

void UnpackBitsToLogicals(const std::uint8_t* block, std::uint8_t* columns,
                          const BlockShape& shape) {
  if (HasSpreadPattern(shape)) return UnpackThinBits(block, columns, shape);
  UnpackTallBits(block, columns, shape);
}

// --- Logicals to bits

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
  alignas(kCacheLine) std::uint8_t packed[kBitPanelBytes];
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
  for (std::size_t row = 0; row < shape.rows; row += kBitPanelRows) {
    panel.rows = std::min(kBitPanelRows, shape.rows - row);
    const std::size_t mostColumns = 8 * (kBitPanelBytes / panel.rows);
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

HWY_EXPORT(UnpackBitsToLogicals);
void unpackBitsToLogicals(const std::byte* block, std::byte* columns, const BlockShape& shape) {
  HWY_DYNAMIC_DISPATCH(UnpackBitsToLogicals)
  (reinterpret_cast<const std::uint8_t*>(block), reinterpret_cast<std::uint8_t*>(columns), shape);
}

HWY_EXPORT(PackLogicalsToBits);
void packLogicalsToBits(const std::byte* columns, std::byte* block, const BlockShape& shape) {
  HWY_DYNAMIC_DISPATCH(PackLogicalsToBits)
  (reinterpret_cast<const std::uint8_t*>(columns), reinterpret_cast<std::uint8_t*>(block), shape);
}

}  // namespace tb
#endif

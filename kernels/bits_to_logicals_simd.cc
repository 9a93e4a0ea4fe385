// Bits become bytes in two steps: the bytes of the block are transposed, so that the bits of one
// column lie in consecutive bytes, and each of those bytes' eight bits is masked out into a column
// of its own. The transposition then moves an eighth of the data only. Columns of up to 16 rows
// that lie behind one another are shorter than a vector; there a shuffle brings the right byte to
// every logical of several columns.

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/bits_to_logicals.h"
#include "kernels/spread_patterns.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/bits_to_logicals_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "kernels/transpose-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Rows of a panel of bits, and the bytes of each.
constexpr std::size_t kPanelRows = 256;
constexpr std::size_t kPanelBytes = 32;

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
  alignas(kCacheLine) std::uint8_t packed[kPanelBytes][kPanelRows];
  alignas(kCacheLine) std::uint8_t unused[kPanelRows];
  std::uint8_t* table[8];
  for (std::size_t firstRow = 0; firstRow < shape.rows; firstRow += kPanelRows) {
    const std::size_t rows = std::min(kPanelRows, shape.rows - firstRow);
    for (std::size_t first = 0; first < bits; first += 8 * kPanelBytes) {
      const std::size_t panelBits = std::min(8 * kPanelBytes, bits - first);
      const StridedLines<const std::uint8_t> in{block + firstRow * shape.blockStride + first / 8,
                                                shape.blockStride};
      TransposeLines<std::uint8_t>(in, rows, StridedLines<std::uint8_t>{packed[0], kPanelRows},
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

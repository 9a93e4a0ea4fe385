// Transposes lines of elements in registers, compiled once per instruction set.
//
// Both sides are tables of line pointers: in[i][j] goes to out[j][i]. Blocks and planes differ
// only in how their tables are filled, so one routine serves reading and writing, and several
// samples are nothing but another address per line.
//
// A tile of kLines input lines by one 16-byte vector of elements is loaded and interleaved
// log2(kLines) times; as many elements then lie behind one another in every output line. Lines
// that do not fill a tile are not treated one by one: the last tile is moved back until it ends
// with the last line, and the elements that two tiles share are stored twice.

#if defined(TAGBRIDGE_IMAGE_TRANSPOSE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_IMAGE_TRANSPOSE_INL_H_
#undef TAGBRIDGE_IMAGE_TRANSPOSE_INL_H_
#else
#define TAGBRIDGE_IMAGE_TRANSPOSE_INL_H_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Lines of a panel: its tables and the cache lines it touches fit the first-level cache.
constexpr std::size_t kPanelLines = 64;

#if HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE
// Without vectors of a size known to the compiler a tile is one element.
template <class T>
constexpr std::size_t kTileElements = 1;
template <class T>
constexpr std::size_t kMaxTileLines = 1;
#else
// Elements of a tile's input line.
template <class T>
constexpr std::size_t kTileElements = 16 / sizeof(T);
// Input lines of the largest tile: an output line gets one vector of up to 32 bytes.
template <class T>
constexpr std::size_t kMaxTileLines = HWY_MIN(HWY_MAX_BYTES, 32) / sizeof(T);

// Interleaves the vectors until kLines elements of each input line are adjacent.
template <std::size_t kLines, class D, std::size_t kVectors>
HWY_INLINE void InterleaveLines(D d, hn::Vec<D> (&lines)[kVectors]) {
  for (std::size_t done = 1; done < kLines; done *= 2) {
    hn::Vec<D> mixed[kVectors];
    for (std::size_t i = 0; i < kVectors / 2; ++i) {
      mixed[2 * i] = hn::InterleaveLower(d, lines[i], lines[i + kVectors / 2]);
      mixed[2 * i + 1] = hn::InterleaveUpper(d, lines[i], lines[i + kVectors / 2]);
    }
    for (std::size_t i = 0; i < kVectors; ++i) lines[i] = mixed[i];
  }
}

template <class T>
HWY_INLINE hn::Vec<hn::FixedTag<T, kTileElements<T> > > LoadElements(const std::uint8_t* from) {
  constexpr hn::FixedTag<T, kTileElements<T> > d;
  return hn::BitCast(d, hn::LoadU(hn::FixedTag<std::uint8_t, 16>(), from));
}

// Moves elements `column` and on of kLines input lines to elements `line` and on of the output.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeTile(const std::uint8_t* const* HWY_RESTRICT in,
                              std::uint8_t* const* HWY_RESTRICT out, std::size_t line,
                              std::size_t column) {
  constexpr std::size_t kElements = kTileElements<T>;
  in += line;
  out += column;
  const std::size_t inOffset = column * sizeof(T), outOffset = line * sizeof(T);
  if constexpr (kLines > kElements) {
    constexpr hn::FixedTag<T, kLines> d;
    constexpr hn::FixedTag<std::uint8_t, kLines * sizeof(T)> dBytes;
    hn::Vec<decltype(d)> lines[kElements];
    for (std::size_t i = 0; i < kElements; ++i)
      lines[i] = hn::Combine(d, LoadElements<T>(in[kElements + i] + inOffset),
                             LoadElements<T>(in[i] + inOffset));
    InterleaveLines<kElements>(d, lines);
    for (std::size_t j = 0; j < kElements; ++j)
      hn::StoreU(hn::BitCast(dBytes, lines[j]), dBytes, out[j] + outOffset);
  } else {
    constexpr hn::FixedTag<T, kElements> d;
    hn::Vec<decltype(d)> lines[kLines];
    for (std::size_t i = 0; i < kLines; ++i) lines[i] = LoadElements<T>(in[i] + inOffset);
    InterleaveLines<kLines>(d, lines);
    alignas(16) T pieces[kElements][kLines];
    for (std::size_t i = 0; i < kLines; ++i) hn::Store(lines[i], d, &pieces[0][0] + i * kElements);
    for (std::size_t j = 0; j < kElements; ++j)
      std::memcpy(out[j] + outOffset, pieces[j], sizeof(pieces[j]));
  }
}
#endif

// Transposes lineCount by elementCount elements in tiles of kLines lines, or of the next power of
// two that is not above lineCount. elementCount is at least kTileElements<T>.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeTiles(const std::uint8_t* const* HWY_RESTRICT in,
                               std::uint8_t* const* HWY_RESTRICT out, std::size_t lineCount,
                               std::size_t elementCount) {
  if constexpr (kLines == 1) {
    for (std::size_t i = 0; i < lineCount; ++i)
      for (std::size_t j = 0; j < elementCount; ++j)
        std::memcpy(out[j] + i * sizeof(T), in[i] + j * sizeof(T), sizeof(T));
  } else if (lineCount < kLines) {
    TransposeTiles<kLines / 2, T>(in, out, lineCount, elementCount);
  } else {
    constexpr std::size_t kElements = kTileElements<T>;
    for (std::size_t column = 0; column < elementCount; column += kElements)
      for (std::size_t line = 0; line < lineCount; line += kLines)
        TransposeTile<kLines, T>(in, out, std::min(line, lineCount - kLines),
                                 std::min(column, elementCount - kElements));
  }
}

// As TransposeTiles for lines shorter than a tile: they are padded on both sides.
template <class T>
HWY_NOINLINE void TransposeNarrow(const std::uint8_t* const* in, std::uint8_t* const* out,
                                  std::size_t lineCount, std::size_t elementCount) {
  constexpr std::size_t kElements = kTileElements<T>;
  T padded[kPanelLines][kElements] = {};
  T unused[kPanelLines];
  const std::uint8_t* paddedIn[kPanelLines];
  std::uint8_t* paddedOut[kElements];
  for (std::size_t i = 0; i < lineCount; ++i) {
    std::memcpy(padded[i], in[i], elementCount * sizeof(T));
    paddedIn[i] = reinterpret_cast<const std::uint8_t*>(padded[i]);
  }
  for (std::size_t j = 0; j < kElements; ++j)
    paddedOut[j] = j < elementCount ? out[j] : reinterpret_cast<std::uint8_t*>(unused);
  TransposeTiles<kMaxTileLines<T>, T>(paddedIn, paddedOut, lineCount, kElements);
}

// Start of a panel within `count` lines: a last one of fewer than `least` lines begins earlier.
inline std::size_t PanelStart(std::size_t start, std::size_t count, std::size_t least) {
  return count < least ? 0 : std::min(start, count - least);
}

// The lines of a row-major block: its rows.
template <class Byte>
struct BlockRows {
  Byte* block;
  std::size_t stride;  // bytes

  Byte* operator()(std::size_t row) const { return block + row * stride; }
};

// The lines of column-major planes in the order of interleaved samples: columns of all planes.
template <class Byte>
struct PlaneColumns {
  Byte* planes;
  std::size_t samples;
  std::size_t columnStride, planeStride;  // bytes

  Byte* operator()(std::size_t index) const {
    if (samples == 1) return planes + index * columnStride;
    return planes + index / samples * columnStride + index % samples * planeStride;
  }
};

// Transposes any number of lines. inLine(i) and outLine(j) return the first byte of a line.
template <class T, class InLine, class OutLine>
HWY_INLINE void TransposeLines(const InLine& inLine, std::size_t inCount, const OutLine& outLine,
                               std::size_t outCount) {
  const std::uint8_t* in[kPanelLines];
  std::uint8_t* out[kPanelLines];
  for (std::size_t nextOut = 0; nextOut < outCount; nextOut += kPanelLines) {
    const std::size_t firstOut = PanelStart(nextOut, outCount, kTileElements<T>);
    const std::size_t outLines = std::min(kPanelLines, outCount - firstOut);
    for (std::size_t nextIn = 0; nextIn < inCount; nextIn += kPanelLines) {
      const std::size_t firstIn = PanelStart(nextIn, inCount, kMaxTileLines<T>);
      const std::size_t inLines = std::min(kPanelLines, inCount - firstIn);
      for (std::size_t i = 0; i < inLines; ++i) in[i] = inLine(firstIn + i) + firstOut * sizeof(T);
      for (std::size_t j = 0; j < outLines; ++j)
        out[j] = outLine(firstOut + j) + firstIn * sizeof(T);
      if (outLines < kTileElements<T>)
        TransposeNarrow<T>(in, out, inLines, outLines);
      else
        TransposeTiles<kMaxTileLines<T>, T>(in, out, inLines, outLines);
    }
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

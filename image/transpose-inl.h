// Transposes lines of elements in registers, compiled once per instruction set.
//
// Both sides are tables of line pointers: in[i][j] goes to out[j][i]. Blocks and planes differ
// only in how their tables are filled, so one routine serves reading and writing, and several
// samples are nothing but another address per line.
//
// A tile of input lines by one 16-byte vector of elements is loaded and interleaved until the
// elements of an output line lie behind one another. Lines that do not fill a tile are not treated
// one by one: the last tile is moved back until it ends with the last line, and the elements that
// two tiles share are stored twice.

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
#include "image/line_tables.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE

// Without vectors of a size known to the compiler elements move one by one.
template <class T>
constexpr std::size_t kTileElements = 1;
template <class T>
constexpr std::size_t kTileLines = 1;

template <class T>
void TransposePanel(const Panel& panel) {
  for (std::size_t j = 0; j < panel.elements; ++j)
    for (std::size_t i = 0; i < panel.lines; ++i)
      std::memcpy(panel.out[j] + i * sizeof(T), panel.in[i] + j * sizeof(T), sizeof(T));
}

#else

// Elements of a tile's input lines, and the number of those lines in the largest tile, whose
// output lines take one vector of up to 32 bytes.
template <class T>
constexpr std::size_t kTileElements = 16 / sizeof(T);
template <class T>
constexpr std::size_t kTileLines = HWY_MIN(HWY_MAX_BYTES, 32) / sizeof(T);

// Lines and elements of a square whose lines fill a cache line on both sides.
template <class T>
constexpr std::size_t kSquare = kCacheLine / sizeof(T);

// Whether fewer lines than a square has can be too many for a set of the cache by far.
template <class T>
constexpr bool kThinConflicts = kSquare<T> > 2 * kCacheWays;

// Seen as one sequence, index = vector * lanes + lane, the elements are permuted by rotating
// log2(kFactor) bits of the index: kFactor rows become kFactor columns.
template <std::size_t kFactor, class D, std::size_t kVectors>
HWY_INLINE void InterleaveVectors(D /*tag*/, hn::Vec<D> (&vectors)[kVectors]) {
  for (std::size_t done = 1; done < kFactor; done *= 2) {
    hn::Vec<D> mixed[kVectors];
    for (std::size_t i = 0; i < kVectors / 2; ++i) {
      mixed[2 * i] = hn::InterleaveLower(D(), vectors[i], vectors[i + kVectors / 2]);
      mixed[2 * i + 1] = hn::InterleaveUpper(D(), vectors[i], vectors[i + kVectors / 2]);
    }
    for (std::size_t i = 0; i < kVectors; ++i) vectors[i] = mixed[i];
  }
}

template <class T>
using Elements = hn::FixedTag<T, kTileElements<T> >;

template <class T>
HWY_INLINE hn::Vec<Elements<T> > LoadElements(const std::uint8_t* from) {
  return hn::BitCast(Elements<T>(), hn::LoadU(hn::FixedTag<std::uint8_t, 16>(), from));
}

template <class D>
HWY_INLINE void StoreElements(D /*tag*/, hn::Vec<D> elements, std::uint8_t* to) {
  const hn::Repartition<std::uint8_t, D> dBytes;
  hn::StoreU(hn::BitCast(dBytes, elements), dBytes, to);
}

// Moves elements `element` and on of kLines input lines to elements `line` and on of the output.
// Two groups of input lines share wide vectors, one in each half.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeTile(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out, std::size_t line,
                              std::size_t element) {
  constexpr std::size_t kElements = kTileElements<T>;
  constexpr hn::FixedTag<T, kLines> d;
  const std::size_t inOffset = element * sizeof(T), outOffset = line * sizeof(T);
  in += line;
  out += element;
  hn::Vec<decltype(d)> vectors[kElements];
  for (std::size_t i = 0; i < kElements; ++i) {
    if constexpr (kLines > kElements)
      vectors[i] = hn::Combine(d, LoadElements<T>(in[kElements + i] + inOffset),
                               LoadElements<T>(in[i] + inOffset));
    else
      vectors[i] = LoadElements<T>(in[i] + inOffset);
  }
  InterleaveVectors<kElements>(d, vectors);
  for (std::size_t j = 0; j < kElements; ++j) StoreElements(d, vectors[j], out[j] + outOffset);
}

// Transposes part of a panel that is at least a tile.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeTiles(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out, Range lines,
                               Range elements) {
  constexpr std::size_t kElements = kTileElements<T>;
  for (std::size_t element = elements.begin; element < elements.end; element += kElements)
    for (std::size_t line = lines.begin; line < lines.end; line += kLines)
      TransposeTile<kLines, T>(in, out, std::min(line, lines.end - kLines),
                               std::min(element, elements.end - kElements));
}

HWY_INLINE void CopyCacheLine(const std::uint8_t* HWY_RESTRICT from,
                              std::uint8_t* HWY_RESTRICT to) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  for (std::size_t byte = 0; byte < kCacheLine; byte += hn::Lanes(d))
    hn::StoreU(hn::LoadU(d, from + byte), d, to + byte);
}

// Transposes a square whose lines push each other out of the cache: each of them is touched once,
// to copy it into or out of local memory.
template <class T>
HWY_INLINE void TransposeStaged(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out,
                                std::size_t line, std::size_t element) {
  alignas(kCacheLine) std::uint8_t staged[2][kSquare<T>][kCacheLine];
  const std::uint8_t* stagedIn[kSquare<T>];
  std::uint8_t* stagedOut[kSquare<T>];
  for (std::size_t i = 0; i < kSquare<T>; ++i) {
    CopyCacheLine(in[line + i] + element * sizeof(T), staged[0][i]);
    stagedIn[i] = staged[0][i];
    stagedOut[i] = staged[1][i];
  }
  TransposeTiles<kTileLines<T>, T>(stagedIn, stagedOut, {0, kSquare<T>}, {0, kSquare<T>});
  for (std::size_t j = 0; j < kSquare<T>; ++j)
    CopyCacheLine(staged[1][j], out[element + j] + line * sizeof(T));
}

// The same for fewer lines than a square has; only the input is worth a copy then.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeStagedIn(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out, Range lines,
                                  std::size_t element) {
  alignas(kCacheLine) std::uint8_t staged[kSquare<T>][kCacheLine];
  const std::uint8_t* stagedIn[kPanelLines];
  for (std::size_t i = lines.begin; i < lines.end; ++i) {
    CopyCacheLine(in[i] + element * sizeof(T), staged[i - lines.begin]);
    stagedIn[i] = staged[i - lines.begin];
  }
  TransposeTiles<kLines, T>(stagedIn, out + element, lines, {0, kSquare<T>});
}

// Copies `count` elements, more than kMost/2 and at most kMost.
template <std::size_t kMost, class T>
HWY_INLINE void CopyPiece(const std::uint8_t* HWY_RESTRICT from, std::uint8_t* HWY_RESTRICT to,
                          std::size_t count) {
  constexpr std::size_t kBytes = kMost * sizeof(T);
  if (count == kMost) {
    std::memcpy(to, from, kBytes);
  } else {
    const std::size_t second = count * sizeof(T) - kBytes / 2;
    std::memcpy(to, from, kBytes / 2);
    std::memcpy(to + second, from + second, kBytes / 2);
  }
}

// Transposes fewer lines than a tile has, more than kLines/2 and at most kLines.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeFewLines(const Panel& panel) {
  constexpr std::size_t kElements = kTileElements<T>;
  constexpr Elements<T> d;
  const bool joined = panel.outJoined && panel.lines == kLines;
  for (std::size_t next = 0; next < panel.elements; next += kElements) {
    const std::size_t element = std::min(next, panel.elements - kElements);
    hn::Vec<decltype(d)> vectors[kLines];
    for (std::size_t i = 0; i < kLines; ++i)
      vectors[i] = LoadElements<T>(panel.in[std::min(i, panel.lines - 1)] + element * sizeof(T));
    InterleaveVectors<kLines>(d, vectors);
    alignas(16) std::uint8_t pieces[kElements * kLines * sizeof(T)];
    std::uint8_t* const to = joined ? panel.out[element] : pieces;
    for (std::size_t i = 0; i < kLines; ++i) StoreElements(d, vectors[i], to + 16 * i);
    if (joined) continue;
    for (std::size_t j = 0; j < kElements; ++j)
      CopyPiece<kLines, T>(pieces + j * kLines * sizeof(T), panel.out[element + j], panel.lines);
  }
}

// Transposes lines of fewer elements than a tile has, more than kElements/2 and at most kElements.
template <std::size_t kElements, class T>
HWY_INLINE void TransposeFewElements(const Panel& panel) {
  constexpr std::size_t kLines = kTileElements<T>;
  constexpr Elements<T> d;
  const bool joined = panel.inJoined && panel.elements == kElements;
  for (std::size_t next = 0; next < panel.lines; next += kLines) {
    const std::size_t line = std::min(next, panel.lines - kLines);
    alignas(16) std::uint8_t pieces[kElements * kLines * sizeof(T)];
    if (!joined)
      for (std::size_t i = 0; i < kLines; ++i)
        CopyPiece<kElements, T>(panel.in[line + i], pieces + i * kElements * sizeof(T),
                                panel.elements);
    const std::uint8_t* const from = joined ? panel.in[line] : pieces;
    hn::Vec<decltype(d)> vectors[kElements];
    for (std::size_t j = 0; j < kElements; ++j) vectors[j] = LoadElements<T>(from + 16 * j);
    InterleaveVectors<kLines>(d, vectors);
    // What stands behind the last element goes to its line first and is then overwritten.
    for (std::size_t j = kElements; j-- > 0;)
      StoreElements(d, vectors[j], panel.out[std::min(j, panel.elements - 1)] + line * sizeof(T));
  }
}

// Transposes a panel of at least a tile of so many lines, square by square.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeSquares(const Panel& panel) {
  constexpr std::size_t kElements = kTileElements<T>;
  for (std::size_t element = 0; element < panel.elements; element += kSquare<T>)
    for (std::size_t line = 0; line < panel.lines; line += kSquare<T>) {
      const std::size_t endLine = line + kSquare<T>, endElement = element + kSquare<T>;
      const Range lines{std::min(line, panel.lines - kLines), std::min(endLine, panel.lines)};
      const bool staged = panel.conflicting && endElement <= panel.elements;
      if (staged && endLine <= panel.lines)
        TransposeStaged<T>(panel.in, panel.out, line, element);
      else if (staged && kThinConflicts<T> && lines.end - lines.begin > kCacheWays)
        TransposeStagedIn<kLines, T>(panel.in, panel.out, lines, element);
      else
        TransposeTiles<kLines, T>(
            panel.in, panel.out, lines,
            {std::min(element, panel.elements - kElements), std::min(endElement, panel.elements)});
    }
}

// Calls the routine for few lines or few elements of the smallest power of two that holds them.
template <std::size_t kCount, class T>
HWY_INLINE void TransposeFew(const Panel& panel) {
  if constexpr (kCount == 1) {
    for (std::size_t i = 0; i < panel.lines; ++i)
      for (std::size_t j = 0; j < panel.elements; ++j)
        std::memcpy(panel.out[j] + i * sizeof(T), panel.in[i] + j * sizeof(T), sizeof(T));
  } else {
    const std::size_t count = std::min(panel.lines, panel.elements);
    if (count <= kCount / 2) return TransposeFew<kCount / 2, T>(panel);
    if (panel.elements >= kTileElements<T>) return TransposeFewLines<kCount, T>(panel);
    if (panel.lines >= kTileElements<T>) return TransposeFewElements<kCount, T>(panel);
    TransposeFew<1, T>(panel);
  }
}

template <class T>
void TransposePanel(const Panel& panel) {
  constexpr std::size_t kElements = kTileElements<T>;
  if (panel.lines < kElements || panel.elements < kElements)
    TransposeFew<kElements, T>(panel);
  else if (panel.lines >= kTileLines<T>)
    TransposeSquares<kTileLines<T>, T>(panel);
  else if (kThinConflicts<T> && panel.conflicting && panel.lines > kCacheWays)
    TransposeSquares<kElements, T>(panel);
  else
    TransposeTiles<kElements, T>(panel.in, panel.out, {0, panel.lines}, {0, panel.elements});
}

#endif

// Transposes any number of lines; see image/line_tables.h for what In and Out are.
template <class T, class In, class Out>
HWY_INLINE void TransposeLines(const In& in, std::size_t inCount, const Out& out,
                               std::size_t outCount) {
  if (inCount == 0 || outCount == 0) return;
  const std::uint8_t* inLines[kPanelLines];
  std::uint8_t* outLines[kPanelLines];
  if ((inCount == 1 && out.isJoined(sizeof(T))) || (outCount == 1 && in.isJoined(sizeof(T)))) {
    in.fill(0, 1, 0, inLines);
    out.fill(0, 1, 0, outLines);
    std::memcpy(outLines[0], inLines[0], inCount * outCount * sizeof(T));
    return;
  }
  Panel panel{inLines, outLines};
  panel.inJoined = in.isJoined(outCount * sizeof(T));
  panel.outJoined = out.isJoined(inCount * sizeof(T));
  // Elements of 8 bytes have so few lines in a square that staging pays in any case.
  panel.conflicting = sizeof(T) == 8 || in.isConflicting(sizeof(T)) || out.isConflicting(sizeof(T));
  for (std::size_t nextOut = 0; nextOut < outCount; nextOut += kPanelLines) {
    const std::size_t firstOut = panelStart(nextOut, outCount, kTileElements<T>);
    panel.elements = std::min(kPanelLines, outCount - firstOut);
    for (std::size_t nextIn = 0; nextIn < inCount; nextIn += kPanelLines) {
      const std::size_t firstIn = panelStart(nextIn, inCount, kTileLines<T>);
      panel.lines = std::min(kPanelLines, inCount - firstIn);
      in.fill(firstIn, panel.lines, firstOut * sizeof(T), inLines);
      out.fill(firstOut, panel.elements, firstIn * sizeof(T), outLines);
      TransposePanel<T>(panel);
    }
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

// Transposes lines of elements, compiled once per instruction set.
//
// Both sides are tables of line pointers: in[i][j] goes to out[j][i]. Blocks and planes differ
// only in how their tables are filled, so one routine serves reading and writing, and several
// samples are nothing but another address per line.

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
#include <utility>

#include "hwy/highway.h"
#include "image/few_lines-inl.h"
#include "image/joined_lines-inl.h"
#include "image/line_tables.h"
#include "image/tile-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE

template <class T>
void TransposePanel(const Panel& panel) {
  for (std::size_t j = 0; j < panel.elements; ++j)
    for (std::size_t i = 0; i < panel.lines; ++i)
      std::memcpy(panel.out[j] + i * sizeof(T), panel.in[i] + j * sizeof(T), sizeof(T));
}

#else

HWY_INLINE void CopyCacheLine(const std::uint8_t* HWY_RESTRICT from,
                              std::uint8_t* HWY_RESTRICT to) {
  constexpr hn::CappedTag<std::uint8_t, 32> d;
  for (std::size_t byte = 0; byte < kCacheLine; byte += hn::Lanes(d))
    hn::StoreU(hn::LoadU(d, from + byte), d, to + byte);
}

// Transposes a square of elements so wide that it has few lines: whole lines are copied into and
// out of local memory.
template <class T>
HWY_INLINE void TransposeWideSquare(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out,
                                    std::size_t line, std::size_t element) {
  alignas(kCacheLine) std::uint8_t staged[2][kSquare<T>][kCacheLine];
  const std::uint8_t* stagedIn[kSquare<T>];
  std::uint8_t* stagedOut[kSquare<T>];
  for (std::size_t i = 0; i < kSquare<T>; ++i) {
    CopyCacheLine(in[line + i] + element * sizeof(T), staged[0][i]);
    stagedIn[i] = staged[0][i];
    stagedOut[i] = staged[1][i];
  }
  TransposeSquare<T>(stagedIn, stagedOut, 0, 0);
  for (std::size_t j = 0; j < kSquare<T>; ++j)
    CopyCacheLine(staged[1][j], out[element + j] + line * sizeof(T));
}

// Transposes a panel of at least a tile, square by square.
template <class T>
HWY_INLINE void TransposeSquares(const Panel& panel) {
  constexpr std::size_t kElements = kTileElements<T>, kLines = kTileLines<T>;
  for (std::size_t element = 0; element < panel.elements; element += kSquare<T>)
    for (std::size_t line = 0; line < panel.lines; line += kSquare<T>) {
      const std::size_t endLine = line + kSquare<T>, endElement = element + kSquare<T>;
      if (endLine <= panel.lines && endElement <= panel.elements) {
        if constexpr (sizeof(T) == 8)
          TransposeWideSquare<T>(panel.in, panel.out, line, element);
        else
          TransposeSquare<T>(panel.in, panel.out, line, element);
      } else {
        TransposeTiles<kLines, T>(
            panel.in, panel.out,
            {std::min(line, panel.lines - kLines), std::min(endLine, panel.lines)},
            {std::min(element, panel.elements - kElements), std::min(endElement, panel.elements)});
      }
    }
}

template <class T>
void TransposePanel(const Panel& panel) {
  constexpr std::size_t kElements = kTileElements<T>;
  if (panel.lines < kElements || panel.elements < kElements)
    TransposeFew<kElements, T>(panel);
  else if (panel.lines >= kTileLines<T>)
    TransposeSquares<T>(panel);
  else
    TransposeTiles<kElements, T>(panel.in, panel.out, {0, panel.lines}, {0, panel.elements});
}

#endif

// Transposes a panel whose input lines push each other out of the cache: each of them is touched
// once, from end to end, to copy it into local memory.
template <class T>
HWY_INLINE void TransposeFromStaged(Panel panel) {
  StagedLines staged;
  const std::uint8_t* in[kPanelLines];
  for (std::size_t i = 0; i < panel.lines; ++i) {
    std::memcpy(staged.lines[i], panel.in[i], panel.elements * sizeof(T));
    in[i] = staged.lines[i];
  }
  panel.in = in;
  TransposePanel<T>(panel);
}

// The same for output lines.
template <class T>
HWY_INLINE void TransposeToStaged(Panel panel) {
  StagedLines staged;
  std::uint8_t* out[kPanelLines];
  for (std::size_t j = 0; j < panel.elements; ++j) out[j] = staged.lines[j];
  const OutLines lines = std::exchange(panel.out, out);
  TransposePanel<T>(panel);
  for (std::size_t j = 0; j < panel.elements; ++j)
    std::memcpy(lines[j], staged.lines[j], panel.lines * sizeof(T));
}

// Transposes any number of lines; see image/line_tables.h for what In and Out are.
template <class T, class In, class Out>
HWY_INLINE void TransposeLines(const In& in, std::size_t inCount, const Out& out,
                               std::size_t outCount) {
  if (inCount == 0 || outCount == 0) return;
  const std::uint8_t* inLines[kStagedLineBytes];
  std::uint8_t* outLines[kStagedLineBytes];
  if ((inCount == 1 && out.isJoined(sizeof(T))) || (outCount == 1 && in.isJoined(sizeof(T)))) {
    in.fill(0, 1, 0, inLines);
    out.fill(0, 1, 0, outLines);
    std::memcpy(outLines[0], inLines[0], inCount * outCount * sizeof(T));
    return;
  }
  if (out.isJoined(inCount * sizeof(T)) && IsInterleaved<T>(inCount, outCount)) {
    in.fill(0, inCount, 0, inLines);
    out.fill(0, 1, 0, outLines);
    return InterleaveLines<T>(inLines, inCount, outLines[0], outCount);
  }
  if (in.isJoined(outCount * sizeof(T)) && IsInterleaved<T>(outCount, inCount)) {
    in.fill(0, 1, 0, inLines);
    out.fill(0, outCount, 0, outLines);
    return SeparateLines<T>(inLines[0], outLines, outCount, inCount);
  }
  Panel panel{inLines, outLines};
  // To stage one side is enough; output lines of wide elements are too few to conflict.
  constexpr std::size_t kSquareLines = kCacheLine / sizeof(T);
  const bool stagedIn = in.isConflicting(std::min(inCount, kSquareLines));
  const bool stagedOut =
      !stagedIn && sizeof(T) <= 2 && out.isConflicting(std::min(outCount, kSquareLines));
  const std::size_t mostLines = stagedOut ? kStagedLineBytes / sizeof(T) : kPanelLines;
  const std::size_t mostElements = stagedIn ? kStagedLineBytes / sizeof(T) : kPanelLines;
  for (std::size_t nextOut = 0; nextOut < outCount; nextOut += mostElements) {
    const std::size_t firstOut = panelStart(nextOut, outCount, kTileElements<T>);
    panel.elements = std::min(mostElements, outCount - firstOut);
    for (std::size_t nextIn = 0; nextIn < inCount; nextIn += mostLines) {
      const std::size_t firstIn = panelStart(nextIn, inCount, kTileLines<T>);
      panel.lines = std::min(mostLines, inCount - firstIn);
      in.fill(firstIn, panel.lines, firstOut * sizeof(T), inLines);
      out.fill(firstOut, panel.elements, firstIn * sizeof(T), outLines);
      if (stagedIn)
        TransposeFromStaged<T>(panel);
      else if (stagedOut)
        TransposeToStaged<T>(panel);
      else
        TransposePanel<T>(panel);
    }
  }
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

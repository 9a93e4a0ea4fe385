// Transposes lines of elements, compiled once per instruction set.
//
// Both sides are tables of line pointers: in[i][j] goes to out[j][i]. Blocks and planes differ
// only in how their tables are filled, so one routine serves reading and writing, and several
// samples are nothing but another address per line.

#if defined(TAGBRIDGE_KERNELS_TRANSPOSE_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_KERNELS_TRANSPOSE_INL_H_
#undef TAGBRIDGE_KERNELS_TRANSPOSE_INL_H_
#else
#define TAGBRIDGE_KERNELS_TRANSPOSE_INL_H_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "hwy/highway.h"
#include "kernels/lines.h"
#include "kernels/panels-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

// Calls move(panel) for panels of up to kLines input and kElements output lines.
template <class T, std::size_t kLines, std::size_t kElements, class In, class Out, class Move>
HWY_INLINE void ForEachPanel(const In& in, std::size_t inCount, const Out& out,
                             std::size_t outCount, const Move& move) {
  const std::uint8_t* inLines[kLines];
  std::uint8_t* outLines[kElements];
  Panel panel{inLines, outLines};
  for (std::size_t nextOut = 0; nextOut < outCount; nextOut += kElements) {
    const std::size_t firstOut = panelStart(nextOut, outCount, kPatchElements<T>);
    panel.elements = std::min(kElements, outCount - firstOut);
    for (std::size_t nextIn = 0; nextIn < inCount; nextIn += kLines) {
      const std::size_t firstIn = panelStart(nextIn, inCount, kPatchLines<T>);
      panel.lines = std::min(kLines, inCount - firstIn);
      in.fill(firstIn, panel.lines, firstOut * sizeof(T), inLines);
      out.fill(firstOut, panel.elements, firstIn * sizeof(T), outLines);
      move(panel);
    }
  }
}

// Transposes lines of which those of the input push each other out of the cache: each of them is
// touched once, from end to end, to copy it into local memory. A function of its own, as the one
// below, so that only those calls take that much of the stack.
template <class T, class In, class Out>
HWY_NOINLINE void TransposeFromStaged(const In& in, std::size_t inCount, const Out& out,
                                      std::size_t outCount) {
  constexpr std::size_t kElements = kStagedLineBytes / sizeof(T);
  StagedLines staged;
  const std::uint8_t* lines[kPanelLines];
  for (std::size_t i = 0; i < kPanelLines; ++i) lines[i] = staged.lines[i];
  ForEachPanel<T, kPanelLines, kElements>(in, inCount, out, outCount, [&](Panel panel) {
    for (std::size_t i = 0; i < panel.lines; ++i)
      std::memcpy(staged.lines[i], panel.in[i], panel.elements * sizeof(T));
    panel.in = lines;
    TransposePanel<T>(panel);
  });
}

// The same for the output.
template <class T, class In, class Out>
HWY_NOINLINE void TransposeToStaged(const In& in, std::size_t inCount, const Out& out,
                                    std::size_t outCount) {
  constexpr std::size_t kLines = kStagedLineBytes / sizeof(T);
  StagedLines staged;
  std::uint8_t* lines[kPanelLines];
  for (std::size_t j = 0; j < kPanelLines; ++j) lines[j] = staged.lines[j];
  ForEachPanel<T, kLines, kPanelLines>(in, inCount, out, outCount, [&](Panel panel) {
    const OutLines target = std::exchange(panel.out, lines);
    TransposePanel<T>(panel);
    for (std::size_t j = 0; j < panel.elements; ++j)
      std::memcpy(target[j], staged.lines[j], panel.lines * sizeof(T));
  });
}

// Transposes few joined lines on either side. Returns false when there are none.
template <class T, class In, class Out>
HWY_INLINE bool TransposeJoined(const In& in, std::size_t inCount, const Out& out,
                                std::size_t outCount) {
  const std::uint8_t* inLines[kPanelLines];
  std::uint8_t* outLines[kPanelLines];
  if ((inCount == 1 && out.isJoined(sizeof(T))) || (outCount == 1 && in.isJoined(sizeof(T)))) {
    in.fill(0, 1, 0, inLines);
    out.fill(0, 1, 0, outLines);
    std::memcpy(outLines[0], inLines[0], inCount * outCount * sizeof(T));
    return true;
  }
  if (out.isJoined(inCount * sizeof(T)) && IsInterleaved<T>(inCount, outCount)) {
    in.fill(0, inCount, 0, inLines);
    out.fill(0, 1, 0, outLines);
    InterleaveLines<T>(inLines, inCount, outLines[0], outCount);
    return true;
  }
  if (in.isJoined(outCount * sizeof(T)) && IsInterleaved<T>(outCount, inCount)) {
    in.fill(0, 1, 0, inLines);
    out.fill(0, outCount, 0, outLines);
    SeparateLines<T>(inLines[0], outLines, outCount, inCount);
    return true;
  }
  return false;
}

// Transposes any number of lines; see kernels/lines.h for what In and Out are.
template <class T, class In, class Out>
HWY_INLINE void TransposeLines(const In& in, std::size_t inCount, const Out& out,
                               std::size_t outCount) {
  if (inCount == 0 || outCount == 0) return;
  if (TransposeJoined<T>(in, inCount, out, outCount)) return;
  // To stage one side is enough; output lines of wide elements are too few to conflict.
  if (in.isConflicting(std::min(inCount, kLineElements<T>)))
    return TransposeFromStaged<T>(in, inCount, out, outCount);
  if (sizeof(T) <= 2 && out.isConflicting(std::min(outCount, kLineElements<T>)))
    return TransposeToStaged<T>(in, inCount, out, outCount);
  ForEachPanel<T, kPanelLines, kPanelLines>(in, inCount, out, outCount, TransposePanel<T>);
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

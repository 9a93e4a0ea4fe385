#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/panels_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"
#include "kernels/few_lines-inl.h"
#include "kernels/joined_lines-inl.h"
#include "kernels/lines.h"
#include "kernels/panels-inl.h"
#include "kernels/patch-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {

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

// Transposes a panel of at least a patch, square by square.
template <class T>
HWY_INLINE void TransposeSquares(const Panel& panel) {
  constexpr std::size_t kElements = kPatchElements<T>, kLines = kPatchLines<T>;
  for (std::size_t element = 0; element < panel.elements; element += kSquare<T>)
    for (std::size_t line = 0; line < panel.lines; line += kSquare<T>) {
      const std::size_t endLine = line + kSquare<T>, endElement = element + kSquare<T>;
      if (endLine <= panel.lines && endElement <= panel.elements) {
        if constexpr (sizeof(T) == 8)
          TransposeWideSquare<T>(panel.in, panel.out, line, element);
        else
          TransposeSquare<T>(panel.in, panel.out, line, element);
      } else {
        TransposePatches<kLines, T>(
            panel.in, panel.out,
            {std::min(line, panel.lines - kLines), std::min(endLine, panel.lines)},
            {std::min(element, panel.elements - kElements), std::min(endElement, panel.elements)});
      }
    }
}

template <class T>
void TransposePanel(const Panel& panel) {
  constexpr std::size_t kElements = kPatchElements<T>;
  if (panel.lines < kElements || panel.elements < kElements)
    TransposeFew<kElements, T>(panel);
  else if (panel.lines >= kPatchLines<T>)
    TransposeSquares<T>(panel);
  else
    TransposePatches<kElements, T>(panel.in, panel.out, {0, panel.lines}, {0, panel.elements});
}

#endif

#define TAGBRIDGE_PANELS_OF(T)                                                        \
  template void TransposePanel<T>(const Panel&);                                      \
  template void InterleaveLines<T>(InLines, std::size_t, std::uint8_t*, std::size_t); \
  template void SeparateLines<T>(const std::uint8_t*, OutLines, std::size_t, std::size_t);
TAGBRIDGE_PANELS_OF(std::uint8_t)
TAGBRIDGE_PANELS_OF(std::uint16_t)
TAGBRIDGE_PANELS_OF(std::uint32_t)
TAGBRIDGE_PANELS_OF(std::uint64_t)
#undef TAGBRIDGE_PANELS_OF

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

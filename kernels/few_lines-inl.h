// Transposes fewer lines than a patch has, compiled once per instruction set.

#if defined(TAGBRIDGE_KERNELS_FEW_LINES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_KERNELS_FEW_LINES_INL_H_
#undef TAGBRIDGE_KERNELS_FEW_LINES_INL_H_
#else
#define TAGBRIDGE_KERNELS_FEW_LINES_INL_H_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "hwy/highway.h"
#include "kernels/lines.h"
#include "kernels/patch-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR && !HWY_HAVE_SCALABLE

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

// Transposes fewer lines than a patch has, more than kLines/2 and at most kLines.
template <std::size_t kLines, class T>
HWY_INLINE void TransposeFewLines(const Panel& panel) {
  constexpr std::size_t kElements = kPatchElements<T>;
  constexpr Elements<T> d;
  for (std::size_t next = 0; next < panel.elements; next += kElements) {
    const std::size_t element = std::min(next, panel.elements - kElements);
    hn::Vec<decltype(d)> vectors[kLines];
    for (std::size_t i = 0; i < kLines; ++i)
      vectors[i] = LoadElements<T>(panel.in[std::min(i, panel.lines - 1)] + element * sizeof(T));
    InterleaveVectors<kLines>(d, vectors);
    alignas(16) std::uint8_t pieces[kElements * kLines * sizeof(T)];
    for (std::size_t i = 0; i < kLines; ++i) StoreElements(d, vectors[i], pieces + 16 * i);
    for (std::size_t j = 0; j < kElements; ++j)
      CopyPiece<kLines, T>(pieces + j * kLines * sizeof(T), panel.out[element + j], panel.lines);
  }
}

// Transposes lines of fewer elements than a patch has, more than kElements/2 and at most kElements.
template <std::size_t kElements, class T>
HWY_INLINE void TransposeFewElements(const Panel& panel) {
  constexpr std::size_t kLines = kPatchElements<T>;
  constexpr Elements<T> d;
  for (std::size_t next = 0; next < panel.lines; next += kLines) {
    const std::size_t line = std::min(next, panel.lines - kLines);
    alignas(16) std::uint8_t pieces[kElements * kLines * sizeof(T)];
    for (std::size_t i = 0; i < kLines; ++i)
      CopyPiece<kElements, T>(panel.in[line + i], pieces + i * kElements * sizeof(T),
                              panel.elements);
    hn::Vec<decltype(d)> vectors[kElements];
    for (std::size_t j = 0; j < kElements; ++j) vectors[j] = LoadElements<T>(pieces + 16 * j);
    InterleaveVectors<kLines>(d, vectors);
    // What stands behind the last element goes to its line first and is then overwritten.
    for (std::size_t j = kElements; j-- > 0;)
      StoreElements(d, vectors[j], panel.out[std::min(j, panel.elements - 1)] + line * sizeof(T));
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
    if (panel.elements >= kPatchElements<T>) return TransposeFewLines<kCount, T>(panel);
    if (panel.lines >= kPatchElements<T>) return TransposeFewElements<kCount, T>(panel);
    TransposeFew<1, T>(panel);
  }
}

#endif

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

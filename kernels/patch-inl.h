// Transposes patches of elements in registers, compiled once per instruction set.
//
// A patch of input lines by one 16-byte vector of elements is loaded and interleaved until the
// elements of an output line lie behind one another. Lines that do not fill a patch are not treated
// one by one: the last patch is moved back until it ends with the last line, and the elements that
// two patches share are stored twice.

#if defined(TAGBRIDGE_KERNELS_PATCH_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_KERNELS_PATCH_INL_H_
#undef TAGBRIDGE_KERNELS_PATCH_INL_H_
#else
#define TAGBRIDGE_KERNELS_PATCH_INL_H_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "hwy/highway.h"
#include "kernels/lines.h"
#include "kernels/panels-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET != HWY_SCALAR && !HWY_HAVE_SCALABLE

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
using Elements = hn::FixedTag<T, kPatchElements<T> >;

template <class T>
HWY_INLINE hn::Vec<Elements<T> > LoadElements(const std::uint8_t* from) {
  return hn::BitCast(Elements<T>(), hn::LoadU(hn::FixedTag<std::uint8_t, 16>(), from));
}

template <class D>
HWY_INLINE void StoreElements(D /*tag*/, hn::Vec<D> elements, std::uint8_t* to) {
  const hn::Repartition<std::uint8_t, D> dBytes;
  hn::StoreU(hn::BitCast(dBytes, elements), dBytes, to);
}

// Moves elements from byte `inOffset` on of kLines input lines to byte `outOffset` and on of the
// output. Two groups of input lines share wide vectors, one in each half.
template <std::size_t kLines, class T>
HWY_INLINE void TransposePatch(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out,
                               std::size_t inOffset, std::size_t outOffset) {
  constexpr std::size_t kElements = kPatchElements<T>;
  constexpr hn::FixedTag<T, kLines> d;
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

// Transposes part of a panel that is at least a patch.
template <std::size_t kLines, class T>
HWY_INLINE void TransposePatches(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out, Range lines,
                                 Range elements) {
  constexpr std::size_t kElements = kPatchElements<T>;
  for (std::size_t element = elements.begin; element < elements.end; element += kElements)
    for (std::size_t line = lines.begin; line < lines.end; line += kLines) {
      const std::size_t start = std::min(element, elements.end - kElements);
      const std::size_t first = std::min(line, lines.end - kLines);
      TransposePatch<kLines, T>(in + first, out + start, start * sizeof(T), first * sizeof(T));
    }
}

// Moves as many elements as lines, a vector of 32 bytes of each. Halves are put together after
// whole vectors are loaded, so that a patch needs fewer loads.
template <class T>
HWY_INLINE void TransposeWidePatch(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out,
                                   std::size_t inOffset, std::size_t outOffset) {
  constexpr std::size_t kElements = kPatchElements<T>;
  using D = hn::FixedTag<T, kPatchLines<T> >;
  constexpr D d;
  const hn::Repartition<std::uint8_t, D> dBytes;
  hn::Vec<D> low[kElements], high[kElements];
  for (std::size_t i = 0; i < kElements; ++i) {
    const auto first = hn::BitCast(d, hn::LoadU(dBytes, in[i] + inOffset));
    const auto second = hn::BitCast(d, hn::LoadU(dBytes, in[kElements + i] + inOffset));
    low[i] = hn::ConcatLowerLower(d, second, first);
    high[i] = hn::ConcatUpperUpper(d, second, first);
  }
  InterleaveVectors<kElements>(d, low);
  InterleaveVectors<kElements>(d, high);
  for (std::size_t j = 0; j < kElements; ++j) {
    StoreElements(d, low[j], out[j] + outOffset);
    StoreElements(d, high[j], out[kElements + j] + outOffset);
  }
}

// Lines and elements of a square whose lines fill a cache line on both sides.
template <class T>
constexpr std::size_t kSquare = kLineElements<T>;

// Transposes a square. Its size is known to the compiler, which then loads every address of the
// tables once.
template <class T>
HWY_INLINE void TransposeSquare(InLines HWY_RESTRICT in, OutLines HWY_RESTRICT out,
                                std::size_t line, std::size_t element) {
  constexpr std::size_t kElements = kPatchElements<T>, kLines = kPatchLines<T>;
  const std::size_t inOffset = element * sizeof(T), outOffset = line * sizeof(T);
  in += line;
  out += element;
  // Narrower elements would need more vectors than there are registers.
  constexpr bool kWide = sizeof(T) >= 4 && kLines > kElements;
  for (std::size_t j = 0; j < kSquare<T>; j += kWide ? kLines : kElements)
    for (std::size_t i = 0; i < kSquare<T>; i += kLines) {
      const std::size_t inStart = inOffset + j * sizeof(T), outStart = outOffset + i * sizeof(T);
      if constexpr (kWide)
        TransposeWidePatch<T>(in + i, out + j, inStart, outStart);
      else
        TransposePatch<kLines, T>(in + i, out + j, inStart, outStart);
    }
}

#endif

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

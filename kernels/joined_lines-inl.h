// Interleaves a few lines into one run of elements and takes such a run apart, compiled once per
// instruction set.
//
// libtiff cuts large uncompressed strips into pieces of one or two rows, and strips of 16 rows are
// common: their columns are so short that a table of them costs more than the work. But the columns
// of such a block lie behind one another, so that no table is needed.

#if defined(TAGBRIDGE_KERNELS_JOINED_LINES_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_KERNELS_JOINED_LINES_INL_H_
#undef TAGBRIDGE_KERNELS_JOINED_LINES_INL_H_
#else
#define TAGBRIDGE_KERNELS_JOINED_LINES_INL_H_
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "hwy/highway.h"
#include "kernels/lines.h"
#include "kernels/panels-inl.h"
#include "kernels/patch-inl.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

#if HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE

template <class T>
void InterleaveLines(InLines, std::size_t, std::uint8_t*, std::size_t) {}
template <class T>
void SeparateLines(const std::uint8_t*, OutLines, std::size_t, std::size_t) {}

#else

// Stores vectors as a run of 16-byte blocks, the lower halves of all of them first, and loads them.
template <class D, std::size_t kVectors>
HWY_INLINE void StoreBlocks(D d, const hn::Vec<D> (&vectors)[kVectors], hn::TFromD<D>* run) {
  using T = hn::TFromD<D>;
  constexpr hn::FixedTag<hn::TFromD<D>, 16 / sizeof(hn::TFromD<D>)> dBlock;
  if constexpr (hn::MaxLanes(D()) == hn::MaxLanes(dBlock)) {
    for (std::size_t i = 0; i < kVectors; ++i) hn::StoreU(vectors[i], d, run + i * hn::Lanes(d));
  } else {
    T* const upper = run + kVectors * hn::Lanes(dBlock);
    for (std::size_t i = 0; i < kVectors; i += 2) {
      const std::size_t element = i * hn::Lanes(dBlock);
      hn::StoreU(hn::ConcatLowerLower(d, vectors[i + 1], vectors[i]), d, run + element);
      hn::StoreU(hn::ConcatUpperUpper(d, vectors[i + 1], vectors[i]), d, upper + element);
    }
  }
}

template <class D, std::size_t kVectors>
HWY_INLINE void LoadBlocks(D d, const hn::TFromD<D>* run, hn::Vec<D> (&vectors)[kVectors]) {
  constexpr hn::FixedTag<hn::TFromD<D>, 16 / sizeof(hn::TFromD<D>)> dBlock;
  for (std::size_t i = 0; i < kVectors; ++i) {
    if constexpr (hn::MaxLanes(D()) == hn::MaxLanes(dBlock))
      vectors[i] = hn::LoadU(d, run + i * hn::Lanes(dBlock));
    else
      vectors[i] = hn::Combine(d, hn::LoadU(dBlock, run + (kVectors + i) * hn::Lanes(dBlock)),
                               hn::LoadU(dBlock, run + i * hn::Lanes(dBlock)));
  }
}

// Copies pieces that begin `fromStep` bytes apart to places `toStep` bytes apart. Always kBytes are
// copied, the larger of the two steps, and what the smaller one has no room for is overwritten by
// the next piece. The last piece is copied exactly if the shorter side `ends` with it.
template <std::size_t kBytes, std::size_t kPieces>
HWY_INLINE void CopyPieces(const std::uint8_t* HWY_RESTRICT from, std::size_t fromStep,
                           std::uint8_t* HWY_RESTRICT to, std::size_t toStep, bool ends) {
  constexpr std::size_t kLast = kPieces - 1;
  for (std::size_t i = 0; i < kLast; ++i) std::memcpy(to + i * toStep, from + i * fromStep, kBytes);
  std::memcpy(to + kLast * toStep, from + kLast * fromStep,
              ends ? std::min(fromStep, toStep) : kBytes);
}

// Interleaves kLines lines or, unless kExact, fewer.
template <std::size_t kLines, bool kExact, class T>
HWY_INLINE void InterleaveLinesOf(InLines in, std::size_t count, std::uint8_t* HWY_RESTRICT run,
                                  std::size_t elements) {
  constexpr WideVectors<T> d;
  constexpr std::size_t kBytes = kLines * sizeof(T);
  const std::uint8_t* lines[kLines];
  for (std::size_t i = 0; i < kLines; ++i) lines[i] = in[std::min(i, count - 1)];
  for (std::size_t next = 0; next < elements; next += hn::Lanes(d)) {
    const std::size_t element = std::min(next, elements - hn::Lanes(d));
    hn::Vec<decltype(d)> vectors[kLines];
    for (std::size_t i = 0; i < kLines; ++i)
      vectors[i] = hn::LoadU(d, reinterpret_cast<const T*>(lines[i]) + element);
    T* const to = reinterpret_cast<T*>(run) + element * count;
    if constexpr (kLines == 2) {
      hn::StoreInterleaved2(vectors[0], vectors[1], d, to);
    } else if constexpr (kLines == 3) {
      hn::StoreInterleaved3(vectors[0], vectors[1], vectors[2], d, to);
    } else if constexpr (kLines == 4) {
      hn::StoreInterleaved4(vectors[0], vectors[1], vectors[2], vectors[3], d, to);
    } else {
      alignas(32) std::uint8_t pieces[kBytes * hn::MaxLanes(d)];
      InterleaveVectors<kLines>(d, vectors);
      StoreBlocks(d, vectors, kExact ? to : reinterpret_cast<T*>(pieces));
      if constexpr (!kExact)
        CopyPieces<kBytes, hn::MaxLanes(d)>(pieces, kBytes, run + element * count * sizeof(T),
                                            count * sizeof(T), element + hn::Lanes(d) == elements);
    }
  }
}

template <std::size_t kLines, bool kExact, class T>
HWY_INLINE void SeparateLinesOf(const std::uint8_t* HWY_RESTRICT run, OutLines out,
                                std::size_t count, std::size_t elements) {
  constexpr WideVectors<T> d;
  constexpr std::size_t kBytes = kLines * sizeof(T);
  std::uint8_t* lines[kLines];
  std::copy_n(out, kExact ? kLines : count, lines);
  for (std::size_t next = 0; next < elements; next += hn::Lanes(d)) {
    const std::size_t element = std::min(next, elements - hn::Lanes(d));
    const T* const from = reinterpret_cast<const T*>(run) + element * count;
    hn::Vec<decltype(d)> vectors[kLines];
    if constexpr (kLines == 2) {
      hn::LoadInterleaved2(d, from, vectors[0], vectors[1]);
    } else if constexpr (kLines == 3) {
      hn::LoadInterleaved3(d, from, vectors[0], vectors[1], vectors[2]);
    } else if constexpr (kLines == 4) {
      hn::LoadInterleaved4(d, from, vectors[0], vectors[1], vectors[2], vectors[3]);
    } else {
      alignas(32) std::uint8_t pieces[kBytes * hn::MaxLanes(d)];
      if constexpr (!kExact)
        CopyPieces<kBytes, hn::MaxLanes(d)>(run + element * count * sizeof(T), count * sizeof(T),
                                            pieces, kBytes, element + hn::Lanes(d) == elements);
      LoadBlocks(d, kExact ? from : reinterpret_cast<const T*>(pieces), vectors);
      InterleaveVectors<kPatchElements<T> >(d, vectors);
    }
    for (std::size_t i = 0; i < kLines; ++i)
      if (kExact || i < count) hn::StoreU(vectors[i], d, reinterpret_cast<T*>(lines[i]) + element);
  }
}

// Calls `use` with constants: the lines that a routine is made for, and whether there are so many.
template <class T, class Use>
HWY_INLINE void WithLineCount(std::size_t lines, const Use& use) {
  constexpr std::bool_constant<true> kExact;
  constexpr std::bool_constant<false> kFewer;
  if (lines == 2) return use(std::integral_constant<std::size_t, 2>(), kExact);
  if (lines == 3) return use(std::integral_constant<std::size_t, 3>(), kExact);
  if (lines == 4) return use(std::integral_constant<std::size_t, 4>(), kExact);
  if (lines == 8) return use(std::integral_constant<std::size_t, 8>(), kExact);
  if constexpr (kMostInterleaved<T> >= 16)
    if (lines == 16) return use(std::integral_constant<std::size_t, 16>(), kExact);
  if constexpr (sizeof(T) <= 2) {
    if (lines < 8) return use(std::integral_constant<std::size_t, 8>(), kFewer);
    use(std::integral_constant<std::size_t, 16>(), kFewer);
  }
}

template <class T>
void InterleaveLines(InLines in, std::size_t lines, std::uint8_t* run, std::size_t elements) {
  WithLineCount<T>(lines, [=](auto most, auto exact) {
    InterleaveLinesOf<most(), exact(), T>(in, lines, run, elements);
  });
}

template <class T>
void SeparateLines(const std::uint8_t* run, OutLines out, std::size_t lines, std::size_t elements) {
  WithLineCount<T>(lines, [=](auto most, auto exact) {
    SeparateLinesOf<most(), exact(), T>(run, out, lines, elements);
  });
}

#endif

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

// The routines that transpose what a table of lines holds, and when they may be called: declared
// for each instruction set, and compiled once, by kernels/panels_simd.cc. Compiling them with every
// kernel that calls them would take longer than all else in the module.

#if defined(TAGBRIDGE_KERNELS_PANELS_INL_H_) == defined(HWY_TARGET_TOGGLE)
#ifdef TAGBRIDGE_KERNELS_PANELS_INL_H_
#undef TAGBRIDGE_KERNELS_PANELS_INL_H_
#else
#define TAGBRIDGE_KERNELS_PANELS_INL_H_
#endif

#include <cstddef>
#include <cstdint>

#include "hwy/highway.h"
#include "kernels/lines.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// The most lines that are not better moved by patches, whose stores fill a vector.
template <class T>
constexpr std::size_t kMostInterleaved = sizeof(T) <= 4 ? 16 : 8;

#if HWY_TARGET == HWY_SCALAR || HWY_HAVE_SCALABLE

// Without vectors of a size known to the compiler elements move one by one.
template <class T>
constexpr std::size_t kPatchElements = 1;
template <class T>
constexpr std::size_t kPatchLines = 1;

// Without vectors of a size known to the compiler no count of lines has a routine of its own.
template <class T>
constexpr bool IsInterleaved(std::size_t /*lines*/, std::size_t /*elements*/) {
  return false;
}

#else

// Elements of a patch's input lines, and the number of those lines in the largest patch, whose
// output lines take one vector of up to 32 bytes.
template <class T>
constexpr std::size_t kPatchElements = 16 / sizeof(T);
template <class T>
constexpr std::size_t kPatchLines = HWY_MIN(HWY_MAX_BYTES, 32) / sizeof(T);

template <class T>
using WideVectors = hn::CappedTag<T, 32 / sizeof(T)>;

// Whether so many lines of so many elements may be given to InterleaveLines and SeparateLines. Few
// lines whose number is not a power of two leave much of the vectors empty; with elements of more
// than two bytes they had better be moved one by one.
template <class T>
constexpr bool IsInterleaved(std::size_t lines, std::size_t elements) {
  const bool powerOfTwo = (lines & (lines - 1)) == 0;
  return lines >= 2 && lines <= kMostInterleaved<T> && elements >= hn::MaxLanes(WideVectors<T>()) &&
         (powerOfTwo || lines == 3 || sizeof(T) <= 2);
}

#endif

// T is an unsigned integer of 1, 2, 4 or 8 bytes.

// Moves in[i][j] to out[j][i].
template <class T>
void TransposePanel(const Panel& panel);

// Writes element j of line i to element j*lines + i of the run.
template <class T>
void InterleaveLines(InLines in, std::size_t lines, std::uint8_t* run, std::size_t elements);

// The reverse: writes element j*lines + i of the run to element j of line i.
template <class T>
void SeparateLines(const std::uint8_t* run, OutLines out, std::size_t lines, std::size_t elements);

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#endif  // per-target include guard

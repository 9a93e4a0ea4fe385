// The lines between which kernels move elements: rows of a block and columns of planes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace tb {

constexpr std::size_t kCacheLine = 64;

// Elements of T in a cache line.
template <class T>
constexpr std::size_t kLineElements = kCacheLine / sizeof(T);

// Lines a cache keeps of those that share a set, in common processors at least.
constexpr std::size_t kCacheWays = 8;

// Lines of a panel, at most, on either side; more if the lines of the other side are staged.
constexpr std::size_t kPanelLines = 64;

// Bytes of a staged line: so many that the processor fetches ahead, and no more than a small stack
// has room for.
constexpr std::size_t kStagedLineBytes = 512;

using InLines = const std::uint8_t* const*;
using OutLines = std::uint8_t* const*;

struct Range {
  std::size_t begin, end;
};

// A part small enough for tables of its lines: in[i][j] goes to out[j][i].
struct Panel {
  InLines in;
  OutLines out;
  std::size_t lines = 0;     // of the input
  std::size_t elements = 0;  // of an input line, so lines of the output
};

// Whether so many lines, `stride` bytes apart, find too few places in a first-level cache of eight
// ways and 4 KiB in each.
constexpr bool isConflictingStride(std::size_t stride, std::size_t lines) {
  constexpr std::size_t kWayBytes = 4096;
  const std::size_t lowestBit = stride & (~stride + 1);
  return lines * std::min(lowestBit, kWayBytes) > kCacheWays * kWayBytes;
}

// A panel's lines in local memory, with a gap that keeps them from conflicting there.
struct StagedLines {
  alignas(kCacheLine) std::uint8_t lines[kPanelLines][kStagedLineBytes + kCacheLine];
};

// Start of a panel within `count` lines: a last one of fewer than `least` lines begins earlier.
constexpr std::size_t panelStart(std::size_t start, std::size_t count, std::size_t least) {
  return count < least ? 0 : std::min(start, count - least);
}

// Lines that lie `stride` bytes apart: the rows of a row-major block, or the columns of a plane.
template <class Byte>
struct StridedLines {
  Byte* start;
  std::size_t stride;

  bool isJoined(std::size_t lineBytes) const { return stride == lineBytes; }
  bool isConflicting(std::size_t lines) const { return isConflictingStride(stride, lines); }
  // Fills `table` with the addresses `offset` bytes into `count` lines from `first` on.
  template <class TableByte>
  void fill(std::size_t first, std::size_t count, std::size_t offset, TableByte** table) const {
    Byte* line = start + first * stride + offset;
    for (std::size_t i = 0; i < count; ++i, line += stride) table[i] = line;
  }
};

// The columns of several planes in the order of interleaved samples: the first column of every
// plane, then the second of every plane. Strides are bytes.
template <class Byte>
struct PlaneColumns {
  Byte* planes;
  std::size_t samples, columnStride, planeStride;

  bool isJoined(std::size_t lineBytes) const { return samples == 1 && columnStride == lineBytes; }
  bool isConflicting(std::size_t lines) const { return isConflictingStride(columnStride, lines); }
  // Fills `table` with the addresses `offset` bytes into `count` columns from `first` on.
  void fill(std::size_t first, std::size_t count, std::size_t offset, Byte** table) const {
    if (samples == 1)
      return StridedLines<Byte>{planes, columnStride}.fill(first, count, offset, table);
    Byte* pixel = planes + first / samples * columnStride + offset;
    std::size_t sample = first % samples;
    for (std::size_t i = 0; i < count; ++i) {
      table[i] = pixel + sample * planeStride;
      if (++sample == samples) {
        sample = 0;
        pixel += columnStride;
      }
    }
  }
};

}  // namespace tb

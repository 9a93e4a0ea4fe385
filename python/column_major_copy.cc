// The array is seen as rows, along the axis that is contiguous in the destination, and columns, all
// index tuples of the other axes, visited in the order in which they lie closest together in the
// source. Each column is contiguous in the destination at an address of its own, so that an image
// with interleaved samples is one matrix of rows and (columns times samples).
//
// Where the columns lie closer together than the rows (row-major arrays), a panel of some rows and
// columns is gathered into a local array before its columns are written: reading down the source
// directly would touch a cache line for each element, all in one cache set for many row lengths.
#include "python/column_major_copy.h"

#include <algorithm>
#include <array>
#include <boost/container/small_vector.hpp>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tb::python {
namespace {

constexpr std::size_t kPanelRows = 64;
constexpr std::size_t kPanelBytes = 64;  // of a row

struct Axis {
  std::ptrdiff_t count;
  std::ptrdiff_t from;  // stride in the source, bytes
  std::ptrdiff_t to;    // stride in the destination, elements
};
using Axes = boost::container::small_vector<Axis, 8>;

// The axes that have more than one element, the first of them first.
Axes usedAxes(const StridedArray& source) {
  Axes axes;
  std::ptrdiff_t elements = 1;
  for (std::size_t axis = 0; axis < source.counts.size(); ++axis) {
    const std::ptrdiff_t count = source.counts[axis];
    if (count != 1) axes.push_back({count, source.strides[axis], elements});
    elements *= count;
  }
  return axes;
}

struct Column {
  std::ptrdiff_t from;  // bytes from the source's start
  std::ptrdiff_t to;    // elements from the destination's start
};

// Walks over all index tuples of some axes, the first axis fastest.
class Columns {
 public:
  explicit Columns(const Axes& axes) : axes_(axes), index_(axes.size(), 0) {}

  bool done() const { return done_; }
  Column current() const { return column_; }

  void advance() {
    for (std::size_t axis = 0; axis < axes_.size(); ++axis) {
      const auto& [count, from, to] = axes_[axis];
      column_.from += from;
      column_.to += to;
      if (++index_[axis] < count) return;
      column_.from -= count * from;
      column_.to -= count * to;
      index_[axis] = 0;
    }
    done_ = true;
  }

 private:
  const Axes& axes_;
  boost::container::small_vector<std::ptrdiff_t, 8> index_;
  Column column_{0, 0};
  bool done_ = false;
};

template <class T>
void copyColumn(const std::byte* from, std::ptrdiff_t stride, std::ptrdiff_t rows, T* to) {
  constexpr std::ptrdiff_t kSize = sizeof(T);
  if (stride == kSize) {
    std::memcpy(to, from, static_cast<std::size_t>(rows) * sizeof(T));
    return;
  }
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    std::memcpy(to + row, from + row * stride, sizeof(T));
  }
}

template <class T>
struct Panel {
  static constexpr std::size_t kColumns = kPanelBytes / sizeof(T);

  std::array<Column, kColumns> columns;
  std::size_t count = 0;
  std::array<T, kPanelRows * kColumns> elements;

  // Whether the columns lie side by side in the source.
  bool isContiguous() const {
    std::ptrdiff_t expected = columns[0].from;
    for (std::size_t c = 0; c < count; ++c, expected += sizeof(T)) {
      if (columns[c].from != expected) return false;
    }
    return true;
  }

  void gatherRow(const std::byte* source, T* row, bool contiguous) const {
    if (contiguous && count == kColumns) {
      std::memcpy(row, source + columns[0].from, kPanelBytes);
      return;
    }
    for (std::size_t c = 0; c < count; ++c) {
      std::memcpy(row + c, source + columns[c].from, sizeof(T));
    }
  }

  void writeColumns(std::size_t rows, T* destination) const {
    for (std::size_t c = 0; c < count; ++c) {
      T* const to = destination + columns[c].to;
      const T* const from = elements.data() + c;
      for (std::size_t row = 0; row < rows; ++row) to[row] = from[row * kColumns];
    }
  }

  void copy(const std::byte* source, const Axis& rows, T* destination) {
    const bool contiguous = isContiguous();
    const auto rowCount = static_cast<std::size_t>(rows.count);
    for (std::size_t top = 0; top < rowCount; top += kPanelRows) {
      const std::size_t height = std::min(kPanelRows, rowCount - top);
      for (std::size_t row = 0; row < height; ++row, source += rows.from) {
        gatherRow(source, elements.data() + row * kColumns, contiguous);
      }
      writeColumns(height, destination + top);
    }
  }
};

template <class T>
void copyElements(const StridedArray& source, T* destination) {
  Axes others = usedAxes(source);
  if (others.empty()) {
    std::memcpy(destination, source.data, sizeof(T));
    return;
  }
  const Axis rows = others.front();
  others.erase(others.begin());
  std::stable_sort(others.begin(), others.end(), [](const Axis& a, const Axis& b) {
    return std::abs(a.from) < std::abs(b.from);
  });
  Columns columns(others);
  if (others.empty() || std::abs(rows.from) <= std::abs(others.front().from)) {
    for (; !columns.done(); columns.advance()) {
      const auto [from, to] = columns.current();
      copyColumn(source.data + from, rows.from, rows.count, destination + to);
    }
    return;
  }
  Panel<T> panel;
  while (!columns.done()) {
    for (panel.count = 0; panel.count < Panel<T>::kColumns && !columns.done(); columns.advance()) {
      panel.columns[panel.count++] = columns.current();
    }
    panel.copy(source.data, rows, destination);
  }
}

template <class T, class Swap>
void swapEach(void* elements, std::size_t count, Swap swap) noexcept {
  auto* const values = static_cast<T*>(elements);
  std::transform(values, values + count, values, swap);
}

}  // namespace

void copyColumnMajor(const StridedArray& source, void* destination) {
  if (std::find(source.counts.begin(), source.counts.end(), 0) != source.counts.end()) return;
  switch (source.elementSize) {
    case 1:
      return copyElements(source, static_cast<std::uint8_t*>(destination));
    case 2:
      return copyElements(source, static_cast<std::uint16_t*>(destination));
    case 4:
      return copyElements(source, static_cast<std::uint32_t*>(destination));
    default:
      return copyElements(source, static_cast<std::uint64_t*>(destination));
  }
}

void swapBytes(void* elements, std::size_t count, std::size_t elementSize) noexcept {
  switch (elementSize) {
    case 1:
      return;
    case 2:
      return swapEach<std::uint16_t>(elements, count,
                                     [](std::uint16_t value) { return __builtin_bswap16(value); });
    case 4:
      return swapEach<std::uint32_t>(elements, count,
                                     [](std::uint32_t value) { return __builtin_bswap32(value); });
    default:
      return swapEach<std::uint64_t>(elements, count,
                                     [](std::uint64_t value) { return __builtin_bswap64(value); });
  }
}

}  // namespace tb::python

// The rows by which getField and setField serve their tags, in ascending order of tag. A row is all
// there is to a tag: the dispatch runs it, and the page docs/tags.md prints its words.
#pragma once

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>

#include "host/array.h"

namespace tb {

// Returns the finished value of `tag` in the current directory, or raises.
using Reader = vxArrayPtr (*)(TIFF*, std::uint32_t tag, const std::string& tagName);

// Checks and stores a value. Returns the status of the store, 0 when libtiff refused it, or raises.
using Writer = int (*)(TIFF*, std::uint32_t tag, const std::string& tagName, const vxArray* value);

// What the value of a tag is, in the words of a program that offers it further: numbers are whole
// or real, a row has any number of elements, a table is two-dimensional also when it has one row.
enum class ValueKind {
  whole,
  real,
  wholeRow,
  realRow,
  wholeTable,
  realTable,
  text,
  texts,
  bytes,
  characters,  // bytes that are text
  refused,
};

// A way to read, with the class and shape that comes of it; null words for a tag that is refused.
struct ReadKind {
  Reader read;
  const char* result;
  ValueKind kind;
};

// A way to write, with the value that it accepts and, in order, what it checks beyond that.
struct WriteKind {
  Writer write;
  const char* accepted;
  const char* checks = "";
};

struct ReadRow {
  std::uint32_t tag;
  ReadKind kind;
};
struct WriteRow {
  std::uint32_t tag;
  WriteKind kind;
};

std::span<const ReadRow> readRows();
std::span<const WriteRow> writeRows();

// The row of `tag`; null when there is none.
template <class Row>
const Row* findRow(std::span<const Row> rows, std::uint32_t tag) {
  const auto found = std::ranges::lower_bound(rows, tag, {}, &Row::tag);
  return found != rows.end() && found->tag == tag ? &*found : nullptr;
}

}  // namespace tb

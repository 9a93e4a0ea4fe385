// The tags that the module talks about, a row for each. A row is all there is to a tag: its name is
// the gate that a number passes before libtiff hears of it and the argument of most messages about
// tags, getField and setField run its two functions, and docs/tags.md and the Python package print
// its words.
#pragma once

#include <tiffio.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "host/array.h"

namespace tb {

// Returns the finished value of `tag` in the current directory, or raises. A reader of several tags
// takes what differs between them as parameters, which their rows name.
template <class... Parameters>
using TagReaderWith = vxArrayPtr(TIFF*, std::uint32_t tag, const std::string& tagName,
                                 Parameters... parameters);
using TagReader = TagReaderWith<>;

// Checks and stores a value, with parameters as a reader has them. Returns the status of the store,
// 0 when libtiff refuses the value, or raises; a failed check stores nothing.
template <class... Parameters>
using TagSetterWith = int(TIFF*, std::uint32_t tag, const std::string& tagName,
                          const vxArray* value, Parameters... parameters);
using TagSetter = TagSetterWith<>;

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
  TagReader* read = nullptr;
  const char* result = nullptr;
  ValueKind kind = ValueKind::refused;
};

// A way to write, with the value that it accepts and, in order, what it checks beyond that; null
// words for a tag that is refused.
struct WriteKind {
  TagSetter* write = nullptr;
  const char* accepted = nullptr;
  const char* checks = "";
  bool isCodecSetting = false;  // of the open handle: nothing of it is stored in the file
};

// `reading` or `writing` is empty where the operation does not know the tag.
struct TagRow {
  std::uint32_t tag = 0;
  std::string_view name;
  ReadKind reading = {};
  WriteKind writing = {};
};

// All rows in ascending order of tag, each tag once.
std::span<const TagRow> tagTable() noexcept;

// The row of `tag`; null when there is none.
const TagRow* findTag(std::uint32_t tag) noexcept;

// The row of `tag`. Raises unrecognizedTagNumber(tag) when there is none.
const TagRow& tagRow(std::uint32_t tag);

// The name of `tag`. The handle is not used: the names do not depend on the file.
// Raises unrecognizedTagNumber(tag) for a number without a name.
std::string tag_num_to_tag_name(TIFF* tif, std::uint32_t tag);

}  // namespace tb

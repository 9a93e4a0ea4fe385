// Prints the Python module of tags: a row for each tag that getField or setField serves, from the
// tables by which they work.
#include <array>
#include <iostream>
#include <string_view>
#include <utility>

#include "tags/tag_names.h"
#include "tags/tag_rows.h"

namespace tb {
namespace {

constexpr const char* kHead =
    R"("""The module's table of tags. Made by the build from the table itself.

A row has the tag's number and name, what its value is, and whether it can be stored. The value is
``"whole"`` or ``"real"`` (a number), one of these with ``" row"`` or ``" table"``, ``"text"``,
``"texts"``, ``"bytes"``, ``"characters"`` (bytes that are text), or empty for a tag that cannot be
read.
"""

from __future__ import annotations

ROWS: tuple[tuple[int, str, str, bool], ...] = (
)";

constexpr std::array<std::pair<ValueKind, std::string_view>, 11> kWords = {{
    {ValueKind::whole, "whole"},
    {ValueKind::real, "real"},
    {ValueKind::wholeRow, "whole row"},
    {ValueKind::realRow, "real row"},
    {ValueKind::wholeTable, "whole table"},
    {ValueKind::realTable, "real table"},
    {ValueKind::text, "text"},
    {ValueKind::texts, "texts"},
    {ValueKind::bytes, "bytes"},
    {ValueKind::characters, "characters"},
    {ValueKind::refused, ""},
}};

std::string_view valueWords(std::uint32_t tag) {
  const ReadRow* row = findRow(readRows(), tag);
  const ValueKind kind = row == nullptr ? ValueKind::refused : row->kind.kind;
  const auto found =
      std::ranges::find(kWords, kind, &std::pair<ValueKind, std::string_view>::first);
  return found == kWords.end() ? std::string_view() : found->second;
}

bool isWritable(std::uint32_t tag) {
  const WriteRow* row = findRow(writeRows(), tag);
  return row != nullptr && row->kind.accepted != nullptr;
}

}  // namespace
}  // namespace tb

int main() {
  std::cout << tb::kHead;
  for (const auto& [tag, name] : tb::allTagNames()) {
    std::cout << "    (" << tag << ", \"" << name << "\", \"" << tb::valueWords(tag) << "\", "
              << (tb::isWritable(tag) ? "True" : "False") << "),\n";
  }
  std::cout << ")\n";
}

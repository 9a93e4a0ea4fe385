// Prints the Python module of tags: a row for each tag that getField or setField serves, from the
// tables by which they work.
#include "tags/tag_table.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <string_view>
#include <utility>

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

std::string_view valueWords(ValueKind kind) {
  const auto found =
      std::ranges::find(kWords, kind, &std::pair<ValueKind, std::string_view>::first);
  return found == kWords.end() ? std::string_view() : found->second;
}

}  // namespace
}  // namespace tb

int main() {
  std::cout << tb::kHead;
  for (const tb::TagRow& row : tb::tagTable()) {
    std::cout << "    (" << row.tag << ", \"" << row.name << "\", \""
              << tb::valueWords(row.reading.kind) << "\", "
              << (row.writing.accepted != nullptr ? "True" : "False") << "),\n";
  }
  std::cout << ")\n";
}

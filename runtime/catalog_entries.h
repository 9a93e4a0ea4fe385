// The text of every identifier that the module and this host use.
#pragma once

#include <span>
#include <string_view>

namespace tb::runtime {

// One message. `text` refers to the arguments by position, {0}, {1}, ... in {fmt}'s notation, and
// uses every one of them.
struct CatalogEntry {
  std::string_view identifier;  // component, a colon, name
  const char* text;
  const char* arguments;  // what they are, in order, parted by "; "; empty when there are none
  const char* when;       // one sentence: when the message is issued
  bool warning;           // false for an error
};

// Every entry, grouped by subject. An identifier has one entry, or one for the error and one for
// the warning of that name.
std::span<const CatalogEntry> catalog() noexcept;

}  // namespace tb::runtime

// The message catalog: the text of every identifier that the module and this host use.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "host/errors.h"

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

// The entry of an identifier; where it has two, that of the warning or that of the error. Null for
// an unknown identifier.
const CatalogEntry* findCatalogEntry(std::string_view identifier, bool warning) noexcept;

// The text of a message with the arguments filled in, UTF-8; where the identifier is that of an
// error and of a warning, the error's. Narrow arguments are taken
// as UTF-8 where they are that, and as Latin-1 elsewhere. An unknown identifier, or arguments that
// do not fit the text, give the identifier and the arguments in a row.
std::string messageText(const resource_core::BaseMsgID& message);

// The same, but the warning's text where the identifier is both.
std::string warningText(const resource_core::BaseMsgID& message);

}  // namespace tb::runtime

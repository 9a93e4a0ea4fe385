// The message catalog: what a message's identifier and arguments say in words.
#pragma once

#include <string>
#include <string_view>

#include "host/errors.h"
#include "runtime/catalog_entries.h"

namespace tb::runtime {

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

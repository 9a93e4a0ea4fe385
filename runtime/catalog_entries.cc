// The texts. A row: identifier; text; what the arguments are, in order; when the message is issued;
// whether it is a warning.
#include "runtime/catalog.h"

namespace tb::runtime {
namespace {

constexpr bool kError = false;
constexpr bool kWarning = true;

constexpr CatalogEntry kEntries[] = {
    // The host's own.
    {"KORVAL:pictoria:host:characterNotNarrow",
     "Character {0} at position {1} does not fit one byte: only characters 0 to 255 can be stored "
     "as text here.",
     "code of the character; its position counted from 1",
     "A text that is needed as one byte per character holds a character above 255.", kError},
    {"KORVAL:pictoria:tiffutils:libtiffError", "{0}: {1}",
     "libtiff's name for the function or file; libtiff's message",
     "libtiff reported an error during a call that went on all the same.", kWarning},
    {"KORVAL:pictoria:tiffutils:libtiffWarning", "{0}: {1}",
     "libtiff's name for the function or file; libtiff's message",
     "libtiff warned during the call.", kWarning},
};

}  // namespace

std::span<const CatalogEntry> catalog() noexcept { return kEntries; }

}  // namespace tb::runtime

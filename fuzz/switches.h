// What a run of a fuzz target leaves out, so that a known fault does not hide the next.
#pragma once

#include <string_view>

namespace tb::fuzz {

// Whether the list in TAGBRIDGE_FUZZ_OFF, parted by commas, names this.
bool isOff(std::string_view name);

// Whether TAGBRIDGE_FUZZ_TRACE asks for every step to be printed.
bool isTraced();

}  // namespace tb::fuzz

// Texts that an embedding program makes besides those of host/array.h.
#pragma once

#include <string_view>

#include "host/array.h"

namespace tb::runtime {

// A 1-by-N char array of the units of `text`; empty text gives 0-by-0.
vxArrayPtr createText(std::u16string_view text);

}  // namespace tb::runtime

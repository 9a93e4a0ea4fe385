// Values that a host may pass to any operation.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include "host/array.h"

namespace tb::fuzz {

// Any class, shape and content: numbers at the edges of other types, NaN and infinities, text with
// characters above 255, empty arrays and such of up to six dimensions, cells and structs, some of
// them with unset elements, inside of one another.
vxArrayPtr anyHostValue(FuzzedDataProvider& input);

}  // namespace tb::fuzz

// What cells and structs hold.
#pragma once

#include "host/array.h"

namespace tb::runtime {

// Releases what the cells of a cell or the fields of a struct hold, and the field names.
void releaseContained(vxArray& container) noexcept;

}  // namespace tb::runtime

// Copying decoded blocks into their place of an image.
#pragma once

#include <pybind11/pybind11.h>

#include "python/numpy_api.h"

namespace tb::python {

// Adds `place_blocks(target, blocks)` to the extension.
void addPlaceBlocks(pybind11::module_& extension);

}  // namespace tb::python

// Reading blocks straight into an image.
#pragma once

#include <pybind11/pybind11.h>

namespace tb::python {

// Adds `read_blocks(operation, file, blocks, target, origin)` to the extension.
void addReadBlocks(pybind11::module_& extension);

}  // namespace tb::python

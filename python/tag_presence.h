// Which tags of the current directory are set, which no operation tells: for many tags getField
// falls back on libtiff's default.
#pragma once

#include <pybind11/pybind11.h>

#include "python/numpy_api.h"

namespace tb::python {

// Adds the function `set_tags(file, numbers)` to the extension.
void addTagPresence(pybind11::module_& extension);

}  // namespace tb::python

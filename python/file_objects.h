// Python's file objects as files of the module.
#pragma once

#include <pybind11/pybind11.h>

#include "python/numpy_api.h"

namespace tb::python {

// Adds `add_file_object`, `file_object_failure` and `remove_file_object` to the extension.
void addFileObjects(pybind11::module_& extension);

}  // namespace tb::python

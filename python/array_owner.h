// The owner of what a result's elements lie in.
#pragma once

#include <pybind11/pybind11.h>

#include "host/array.h"

namespace tb::python {

// A Python object that owns `array` and everything inside it: the base of NumPy arrays over its
// elements. Called with the interpreter's lock held. Throws pybind11::error_already_set.
pybind11::object ownerOf(vxArrayPtr array);

}  // namespace tb::python

// The owner of what a result's elements lie in.
#pragma once

#include "host/array.h"
#include "python/python_objects.h"

namespace tb::python {

// Makes the type of the objects below. To be called once, before all else; making it on first use
// could be interrupted by another thread that then waits for it with the interpreter's lock.
void makeOwnerType();

// A Python object that owns `array` and everything inside it: the base of NumPy arrays over its
// elements. Called with the interpreter's lock held. Throws pybind11::error_already_set.
pybind11::object ownerOf(vxArrayPtr array);

}  // namespace tb::python

// tagbridge.call, a plain C function of Python: the conversions that a binding library generates
// would cost several times what a short operation takes.
#pragma once

#include "python/python_objects.h"

namespace tb::python {

// Adds `call` to the extension module.
void addCall(const pybind11::object& extension);

}  // namespace tb::python

// tagbridge.call, a plain C function of Python: the conversions that a binding library generates
// would cost several times what a short operation takes.
#pragma once

#include <pybind11/pybind11.h>

namespace tb::python {

// Adds `call` to the extension module.
void addCall(pybind11::module_& extension);

}  // namespace tb::python

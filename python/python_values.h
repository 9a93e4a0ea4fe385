// Host arrays as Python values.
#pragma once

#include "host/array.h"
#include "python/numpy_api.h"

namespace tb::python {

// What an output slot holds:
//   null                        None
//   numeric, logical            numpy.ndarray of at least two dimensions, column-major, writable,
//                               over the host array's own elements; it keeps that array alive
//   char, a row or empty        str, one character for each element
//   other char                  numpy.ndarray of dtype '<U1'
//   cell                        numpy.ndarray of dtype object; None where a cell is unset
//   struct, 1-by-1              dict, the fields in order; None where a field is unset
//   other struct                numpy.ndarray of dtype object that holds such dicts
// Throws pybind11::error_already_set.
pybind11::object pythonValue(vxArrayPtr array);

}  // namespace tb::python

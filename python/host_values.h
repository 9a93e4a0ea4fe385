// One conversion from Python each: see Inputs::add for what becomes what.
#pragma once

#include <string>

#include "host/array.h"
#include "python/numpy_api.h"

namespace tb::python {

// Where a value stands in a call, for messages.
struct Place {
  PyObject* operation;
  std::size_t input;  // counted from 1, the operation's name left out
};

// Lists, dicts and object arrays may contain themselves: stands in each function that descends into
// one and throws Python's RecursionError when that goes too deep.
class RecursionGuard {
 public:
  RecursionGuard() {
    if (Py_EnterRecursiveCall(" while converting an argument") != 0)
      throw pybind11::error_already_set();
  }
  ~RecursionGuard() { Py_LeaveRecursiveCall(); }
  RecursionGuard(const RecursionGuard&) = delete;
  RecursionGuard& operator=(const RecursionGuard&) = delete;
};

// Any value of the table. Raises a Python TypeError for what is not in it.
vxArrayPtr hostValue(PyObject* value, const Place& place);

// A str. Also for the operation's name.
vxArrayPtr hostText(PyObject* text);

// An array of any dtype of the table.
vxArrayPtr hostArray(PyArrayObject* array, const Place& place);

// The class of a numeric or bool dtype; vxUNKNOWN for every other.
vxClassID numericClass(const PyArray_Descr* type) noexcept;

// A Python int as the nearest double. Throws a Python OverflowError that names the place when there
// is none.
double hostNumber(PyObject* integer, const Place& place);

// Throws pybind11::type_error: `what` has no counterpart among the host's arrays.
[[noreturn]] void refuse(const std::string& what, const Place& place);

}  // namespace tb::python

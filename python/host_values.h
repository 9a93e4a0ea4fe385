// One conversion from Python each: see Inputs::add for what becomes what.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/array.h"
#include "python/numpy_api.h"

namespace tb::python {

// Lists, dicts and object arrays may lie in one another so deep, and no deeper: they may contain
// themselves, and each level takes some of the stack.
inline constexpr std::size_t kMostLevels = 100;

// Where a value stands in a call.
struct Place {
  PyObject* operation;
  std::size_t input;       // counted from 1, the operation's name left out
  std::size_t* elements;   // how many all lists, dicts and object arrays of the call have so far
  std::size_t levels = 0;  // of lists, dicts and object arrays around it

  // The place of the `count` elements of the list, dict or object array here. Throws
  // pybind11::value_error, which names the argument, beyond kMostLevels, and std::bad_alloc when
  // the memory limit does not allow for so many elements in a call: what lies in one another again
  // and again takes no memory of Python's.
  Place inside(std::size_t count) const;
};

// What a list, dict or object array refers to, kept: converting an element may run Python code, of
// subclasses of NumPy's arrays for one, and that may empty what the element came from.
using HeldObjects = std::vector<pybind11::object>;

// Any value of the table. Raises a Python TypeError for what is not in it.
vxArrayPtr hostValue(PyObject* value, const Place& place);

// A str. Also for the operation's name.
vxArrayPtr hostText(PyObject* text);

// A cell of these dimensions that holds the values of `items`, whose place is `inside`, in storage
// order.
vxArrayPtr hostCell(std::span<const std::size_t> dimensions, const HeldObjects& items,
                    const Place& inside);

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

// Python values as the host arrays of one call.
#pragma once

#include <boost/container/small_vector.hpp>
#include <span>

#include "host/array.h"
#include "python/kept_arrays.h"
#include "python/numpy_api.h"

namespace tb::python {

// The inputs of a call, the operation's name first. Made, filled and destroyed with the
// interpreter's lock held; between that the lock may be given back.
class Inputs {
 public:
  // `operation` must be a str: anything else throws pybind11::type_error.
  explicit Inputs(PyObject* operation);
  Inputs(const Inputs&) = delete;
  Inputs& operator=(const Inputs&) = delete;

  // Appends the host array of a Python value:
  //   bool                  1-by-1 logical
  //   int, float            1-by-1 double
  //   str                   1-by-N char, one element for each UTF-16 unit
  //   bytes, bytearray      1-by-N uint8
  //   NumPy scalar or array the class of its dtype, the dimensions as host/array.h has them; one
  //                         dimension is a row. A column-major, aligned array in native byte order
  //                         is used where it lies, any other is copied once.
  //   list, tuple           1-by-N cell
  //   dict with str keys    1-by-1 struct, the fields in the dict's order
  // Throws pybind11::type_error, which names the type and the argument's position, for every other
  // value, and leaves the inputs as they were.
  void add(PyObject* value);

  std::span<const vxArray* const> arrays() const noexcept {
    return {pointers_.data(), pointers_.size()};
  }

  // To be called after a call that succeeded: the operation's name is one, so its array is kept for
  // the next call if Python keeps the name for good.
  void keepOperationName();

 private:
  PyObject* operation_;
  vxArrayPtr name_;  // null when the name's array is one that is kept
  KeptArrays kept_;
  std::size_t elements_ = 0;  // of all lists, dicts and object arrays
  boost::container::small_vector<vxArrayPtr, 2> others_;
  boost::container::small_vector<const vxArray*, KeptArrays::kInputs + 1> pointers_;
};

}  // namespace tb::python

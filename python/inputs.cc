#include "python/inputs.h"

#include <algorithm>
#include <string>
#include <utility>

#include "python/host_values.h"

namespace tb::python {
namespace {

// One element of a class that the host knows, in native byte order.
bool isPlainScalar(PyArrayObject* array) {
  const npy_intp* const shape = PyArray_DIMS(array);
  const auto isOne = [](npy_intp count) { return count == 1; };
  return std::all_of(shape, shape + PyArray_NDIM(array), isOne) &&
         numericClass(PyArray_DESCR(array)) != vxUNKNOWN && PyArray_ISNOTSWAPPED(array);
}

// The array of one of the few kinds of value that nearly all inputs are; null for any other value.
const vxArray* scalarInput(PyObject* value, const Place& place, KeptArrays& kept) {
  double number = 0;
  vxClassID classId = vxDOUBLE;
  const void* element = &number;
  std::size_t size = sizeof number;
  if (PyFloat_CheckExact(value)) {
    number = PyFloat_AS_DOUBLE(value);
  } else if (PyLong_CheckExact(value)) {
    number = hostNumber(value, place);
  } else if (PyArray_Check(value) && isPlainScalar(reinterpret_cast<PyArrayObject*>(value))) {
    auto* const array = reinterpret_cast<PyArrayObject*>(value);
    classId = numericClass(PyArray_DESCR(array));
    element = PyArray_DATA(array);
    size = static_cast<std::size_t>(PyArray_ITEMSIZE(array));
  } else {
    return nullptr;
  }
  return kept.scalar(place.input - 1, classId, element, size);
}

}  // namespace

Inputs::Inputs(PyObject* operation) : operation_(operation) {
  if (const vxArray* kept = KeptArrays::findName(operation_)) {
    pointers_.push_back(kept);
    return;
  }
  if (!PyUnicode_Check(operation_)) {
    throw pybind11::type_error("call(): operation must be a str, not " +
                               std::string(Py_TYPE(operation_)->tp_name));
  }
  name_ = hostText(operation_);
  pointers_.push_back(name_.get());
}

void Inputs::add(PyObject* value) {
  const Place place{operation_, pointers_.size(), &elements_};
  const vxArray* array = nullptr;
  if (place.input <= KeptArrays::kInputs) array = scalarInput(value, place, kept_);
  if (array == nullptr) {
    others_.push_back(hostValue(value, place));
    array = others_.back().get();
  }
  pointers_.push_back(array);
}

void Inputs::keepOperationName() {
  if (name_ != nullptr) KeptArrays::keepName(operation_, std::move(name_));
}

}  // namespace tb::python

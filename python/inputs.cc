#include "python/inputs.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "python/host_values.h"

namespace tb::python {
namespace {

// An interned name, referred to so that it stays unique, and its array.
struct OperationName {
  PyObject* object;
  vxArrayPtr array;
};

// More than there are operations.
constexpr std::size_t kMostNames = 32;

// What calls leave for later ones.
struct Kept {
  std::unique_ptr<ScalarInputs> scalars;  // null while a call uses them
  // The names of operations that were called, as many spellings of them as kMostNames: what stands
  // behind a NUL does not count. Nothing is removed: a call may be using it.
  std::vector<OperationName> operations;
};

// Left to the process on purpose, for it may be in use by a thread that the end of the interpreter
// surprises.
Kept& s_kept = *std::make_unique<Kept>().release();

// One element of a class that the host knows, in native byte order.
bool isPlainScalar(PyArrayObject* array) {
  const npy_intp* const shape = PyArray_DIMS(array);
  const auto isOne = [](npy_intp count) { return count == 1; };
  return std::all_of(shape, shape + PyArray_NDIM(array), isOne) &&
         numericClass(PyArray_DESCR(array)) != vxUNKNOWN && PyArray_ISNOTSWAPPED(array);
}

// The array of one of the few kinds of value that nearly all inputs are; null for any other value.
const vxArray* scalarInput(PyObject* value, const Place& place, ScalarInputs& scalars) {
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
  return scalars.set(place.input - 1, classId, element, size);
}

}  // namespace

Inputs::Inputs(PyObject* operation) : operation_(operation) {
  findName();
  scalars_ = std::move(s_kept.scalars);
  if (scalars_ == nullptr) scalars_ = std::make_unique<ScalarInputs>();
}

void Inputs::findName() {
  const auto& names = s_kept.operations;
  const auto found = std::ranges::find(names, operation_, &OperationName::object);
  if (found != names.end()) {
    pointers_.push_back(found->array.get());
    return;
  }
  if (!PyUnicode_Check(operation_)) {
    throw pybind11::type_error("call(): operation must be a str, not " +
                               std::string(Py_TYPE(operation_)->tp_name));
  }
  name_ = hostText(operation_);
  pointers_.push_back(name_.get());
}

Inputs::~Inputs() { s_kept.scalars = std::move(scalars_); }

void Inputs::add(PyObject* value) {
  const Place place{operation_, pointers_.size()};
  const vxArray* array = nullptr;
  if (place.input <= ScalarInputs::kInputs) array = scalarInput(value, place, *scalars_);
  if (array == nullptr) {
    others_.push_back(hostValue(value, place));
    array = others_.back().get();
  }
  pointers_.push_back(array);
}

void Inputs::keepOperationName() {
  if (name_ == nullptr || !PyUnicode_CHECK_INTERNED(operation_)) return;
  auto& names = s_kept.operations;
  if (names.size() == kMostNames) return;
  // Another thread may have kept it while this call ran.
  if (std::ranges::find(names, operation_, &OperationName::object) != names.end()) return;
  names.push_back({operation_, std::move(name_)});
  Py_INCREF(operation_);
}

}  // namespace tb::python

#include "python/inputs.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

#include "python/host_values.h"
#include "python/scalar_pool.h"

namespace tb::python {
namespace {

// What calls leave for later ones. Left to the process on purpose, for it may be in use by a thread
// that the end of the interpreter surprises.
struct Kept {
  ScalarPool scalars;
  // By the name's object, which is interned and referred to here, so that it stays unique. Names of
  // operations only, so that there are few. Nothing is removed: a call may be using it.
  std::unordered_map<PyObject*, vxArrayPtr> operations;
};

Kept& kept() {
  static Kept* const kept = std::make_unique<Kept>().release();
  return *kept;
}

}  // namespace

Inputs::Inputs(PyObject* operation) : operation_(operation) {
  const auto& names = kept().operations;
  if (const auto found = names.find(operation); found != names.end()) {
    nameIsKept_ = true;
    pointers_.push_back(found->second.get());
    return;
  }
  if (!PyUnicode_Check(operation)) {
    throw pybind11::type_error("call(): operation must be a str, not " +
                               std::string(Py_TYPE(operation)->tp_name));
  }
  append(hostText(operation), false);
}

Inputs::~Inputs() {
  for (Owned& input : owned_) {
    if (input.scalar) kept().scalars.give(std::move(input.array));
  }
}

void Inputs::add(PyObject* value) {
  if (addScalar(value)) return;
  append(hostValue(value, {operation_, pointers_.size()}), false);
}

// The few kinds of value that nearly all arguments are.
bool Inputs::addScalar(PyObject* value) {
  if (PyFloat_CheckExact(value)) {
    const double number = PyFloat_AS_DOUBLE(value);
    addNumber(vxDOUBLE, &number, sizeof number);
    return true;
  }
  if (PyLong_CheckExact(value)) {
    const double number = hostNumber(value, {operation_, pointers_.size()});
    addNumber(vxDOUBLE, &number, sizeof number);
    return true;
  }
  if (!PyArray_Check(value)) return false;
  auto* const array = reinterpret_cast<PyArrayObject*>(value);
  if (PyArray_SIZE(array) != 1 || PyArray_ISBYTESWAPPED(array)) return false;
  const vxClassID classId = numericClass(PyArray_DESCR(array));
  if (classId == vxUNKNOWN) return false;
  addNumber(classId, PyArray_DATA(array), static_cast<std::size_t>(PyArray_ITEMSIZE(array)));
  return true;
}

void Inputs::addNumber(vxClassID classId, const void* value, std::size_t size) {
  append(kept().scalars.take(classId, value, size), true);
}

void Inputs::append(vxArrayPtr array, bool scalar) {
  pointers_.push_back(array.get());
  owned_.push_back({std::move(array), scalar});
}

void Inputs::keepOperationName() {
  if (nameIsKept_ || !PyUnicode_CHECK_INTERNED(operation_)) return;
  if (kept().operations.try_emplace(operation_, std::move(owned_.front().array)).second) {
    Py_INCREF(operation_);
  }
}

}  // namespace tb::python

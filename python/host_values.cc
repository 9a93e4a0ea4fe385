#include "python/host_values.h"

#include <boost/container/small_vector.hpp>
#include <new>
#include <span>
#include <string>
#include <vector>

#include "runtime/memory.h"
#include "runtime/text.h"

namespace py = pybind11;

namespace tb::python {
namespace {

vxArrayPtr scalar(vxClassID classId, const void* value, std::size_t size) {
  constexpr std::size_t kDimensions[] = {1, 1};
  vxArrayPtr array = matrix::detail::do_create_numeric(classId, kDimensions);
  std::memcpy(vxGetWritableData(array.get()), value, size);
  return array;
}

vxArrayPtr uninitialisedRow(vxClassID classId, std::size_t count) {
  const std::size_t dimensions[] = {1, count};
  return matrix::detail::do_create_uninitnumeric(classId, dimensions);
}

vxArrayPtr hostBytes(const char* bytes, Py_ssize_t count) {
  const auto size = static_cast<std::size_t>(count);
  vxArrayPtr array = uninitialisedRow(vxUINT8, size);
  std::memcpy(vxGetWritableData(array.get()), bytes, size);
  return array;
}

// Characters beyond the first 65536 become two units.
vxArrayPtr hostWideText(std::span<const Py_UCS4> text) {
  std::u16string units;
  units.reserve(text.size() + text.size() / 2);
  for (const Py_UCS4 character : text) {
    if (character > 0xFFFF) {
      units.push_back(static_cast<char16_t>(Py_UNICODE_HIGH_SURROGATE(character)));
      units.push_back(static_cast<char16_t>(Py_UNICODE_LOW_SURROGATE(character)));
    } else {
      units.push_back(static_cast<char16_t>(character));
    }
  }
  return runtime::createText(units);
}

// Of a list or tuple.
HeldObjects itemsOf(PyObject* sequence) {
  const std::span items(PySequence_Fast_ITEMS(sequence),
                        static_cast<std::size_t>(PySequence_Fast_GET_SIZE(sequence)));
  HeldObjects held;
  held.reserve(items.size());
  for (PyObject* const item : items) held.push_back(py::reinterpret_borrow<py::object>(item));
  return held;
}

vxArrayPtr hostSequence(PyObject* sequence, const Place& place) {
  const HeldObjects items = itemsOf(sequence);
  const std::size_t dimensions[] = {1, items.size()};
  return hostCell(dimensions, items, place.inside(items.size()));
}

std::string fieldName(PyObject* key, const Place& place) {
  if (!PyUnicode_Check(key)) {
    refuse("a dict with a key of type " + std::string(Py_TYPE(key)->tp_name), place);
  }
  const auto encoded =
      py::reinterpret_steal<py::bytes>(PyUnicode_AsEncodedString(key, "utf-8", "surrogatepass"));
  if (!encoded) throw py::error_already_set();
  std::string name = encoded;
  if (name.find('\0') != std::string::npos) refuse("a dict with a NUL in a key", place);
  return name;
}

// The keys and values of a dict in turn.
HeldObjects entriesOf(PyObject* dict) {
  HeldObjects held;
  PyObject* key = nullptr;
  PyObject* value = nullptr;
  for (Py_ssize_t next = 0; PyDict_Next(dict, &next, &key, &value) != 0;) {
    held.push_back(py::reinterpret_borrow<py::object>(key));
    held.push_back(py::reinterpret_borrow<py::object>(value));
  }
  return held;
}

vxArrayPtr hostStruct(PyObject* dict, const Place& place) {
  const HeldObjects entries = entriesOf(dict);
  const Place inside = place.inside(entries.size() / 2);
  std::vector<std::string> names;
  std::vector<vxArrayPtr> values;
  for (std::size_t entry = 0; entry < entries.size(); entry += 2) {
    names.push_back(fieldName(entries[entry].ptr(), place));
    values.push_back(hostValue(entries[entry + 1].ptr(), inside));
  }
  std::vector<const char*> pointers;
  pointers.reserve(names.size());
  for (const std::string& name : names) pointers.push_back(name.c_str());
  constexpr std::size_t kDimensions[] = {1, 1};
  vxArrayPtr structure = matrix::detail::do_create_struct(kDimensions, pointers);
  for (std::size_t field = 0; field < names.size(); ++field) {
    vxSetField(structure.get(), 0, pointers[field], values[field].release());
  }
  return structure;
}

std::string nameOf(const Place& place) {
  const std::string operation = py::repr(place.operation);
  return "call() argument " + std::to_string(place.input + 1) + " (input " +
         std::to_string(place.input) + " of " + operation + ")";
}

vxArrayPtr hostNumpyScalar(PyObject* value, const Place& place) {
  const auto array = py::reinterpret_steal<py::object>(PyArray_FromScalar(value, nullptr));
  if (!array) throw py::error_already_set();
  return hostArray(reinterpret_cast<PyArrayObject*>(array.ptr()), place);
}

}  // namespace

Place Place::inside(std::size_t count) const {
  if (levels == kMostLevels) {
    throw py::value_error(nameOf(*this) +
                          ": lists, dicts and arrays lie in one another more than " +
                          std::to_string(kMostLevels) + " levels deep");
  }
  constexpr std::size_t kBytesOfAnElement = 192;  // its array, and what refers to it, at the least
  *elements += count;
  if (!vxIsWithinMemoryLimit(runtime::checkedProduct(*elements, kBytesOfAnElement))) {
    throw std::bad_alloc();
  }
  return {operation, input, elements, levels + 1};
}

void refuse(const std::string& what, const Place& place) {
  throw py::type_error(nameOf(place) + ": " + what + " has no counterpart among the host's arrays");
}

vxArrayPtr hostCell(std::span<const std::size_t> dimensions, const HeldObjects& items,
                    const Place& inside) {
  vxArrayPtr cell = matrix::detail::do_create_cell(dimensions);
  for (std::size_t index = 0; index < items.size(); ++index) {
    vxSetCell(cell.get(), index, hostValue(items[index].ptr(), inside).release());
  }
  return cell;
}

double hostNumber(PyObject* integer, const Place& place) {
  const double number = PyLong_AsDouble(integer);
  if (number == -1.0 && PyErr_Occurred() != nullptr) {
    PyErr_Clear();
    PyErr_Format(PyExc_OverflowError, "call() argument %zu (input %zu of %R): int is too large",
                 place.input + 1, place.input, place.operation);
    throw py::error_already_set();
  }
  return number;
}

vxArrayPtr hostText(PyObject* text) {
  if (PyUnicode_READY(text) != 0) throw py::error_already_set();
  const auto length = static_cast<std::size_t>(PyUnicode_GET_LENGTH(text));
  if (PyUnicode_KIND(text) == PyUnicode_4BYTE_KIND) {
    return hostWideText({PyUnicode_4BYTE_DATA(text), length});
  }
  vxArrayPtr array = uninitialisedRow(vxCHAR, length);
  auto* const units = static_cast<char16_t*>(vxGetWritableData(array.get()));
  if (PyUnicode_KIND(text) == PyUnicode_1BYTE_KIND) {
    std::copy_n(PyUnicode_1BYTE_DATA(text), length, units);
  } else {
    std::copy_n(PyUnicode_2BYTE_DATA(text), length, units);
  }
  return array;
}

vxArrayPtr hostValue(PyObject* value, const Place& place) {
  if (PyBool_Check(value)) {
    const bool truth = value == Py_True;
    return scalar(vxLOGICAL, &truth, sizeof truth);
  }
  if (PyFloat_Check(value)) {
    const double number = PyFloat_AS_DOUBLE(value);
    return scalar(vxDOUBLE, &number, sizeof number);
  }
  if (PyLong_Check(value)) {
    const double number = hostNumber(value, place);
    return scalar(vxDOUBLE, &number, sizeof number);
  }
  if (PyUnicode_Check(value)) return hostText(value);
  if (PyBytes_Check(value)) return hostBytes(PyBytes_AS_STRING(value), PyBytes_GET_SIZE(value));
  if (PyByteArray_Check(value)) {
    return hostBytes(PyByteArray_AS_STRING(value), PyByteArray_GET_SIZE(value));
  }
  if (PyArray_Check(value)) return hostArray(reinterpret_cast<PyArrayObject*>(value), place);
  if (PyArray_IsScalar(value, Generic)) return hostNumpyScalar(value, place);
  if (PyList_Check(value) || PyTuple_Check(value)) return hostSequence(value, place);
  if (PyDict_Check(value)) return hostStruct(value, place);
  refuse(Py_TYPE(value)->tp_name, place);
}

}  // namespace tb::python

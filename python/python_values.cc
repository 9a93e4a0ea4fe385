#include "python/python_values.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "python/array_owner.h"

namespace py = pybind11;

namespace tb::python {
namespace {

// NumPy's type number for each class code; NPY_NOTYPE for the classes that are not plain elements.
constexpr std::array<int, vxUINT64 + 1> kNumpyTypes = {
    NPY_NOTYPE, NPY_NOTYPE, NPY_NOTYPE, NPY_BOOL,   NPY_NOTYPE, NPY_NOTYPE, NPY_DOUBLE, NPY_FLOAT,
    NPY_INT8,   NPY_UINT8,  NPY_INT16,  NPY_UINT16, NPY_INT32,  NPY_UINT32, NPY_INT64,  NPY_UINT64,
};

py::object checked(PyObject* created) {
  if (created == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(created);
}

PyArrayObject* asArray(const py::object& array) {
  return reinterpret_cast<PyArrayObject*>(array.ptr());
}

int rankOf(const vxArray* array) { return static_cast<int>(vxGetNumberOfDimensions(array)); }

const npy_intp* shapeOf(const vxArray* array) {
  static_assert(sizeof(npy_intp) == sizeof(std::size_t));
  return reinterpret_cast<const npy_intp*>(vxGetDimensions(array));
}

// A new array with the dimensions of `array`.
py::object newArray(const vxArray* array, int type) {
  return checked(PyArray_New(&PyArray_Type, rankOf(array), shapeOf(array), type, nullptr, nullptr,
                             type == NPY_UNICODE ? sizeof(Py_UCS4) : 0, NPY_ARRAY_FARRAY, nullptr));
}

// `owner` holds `array`, itself or as a part, so that writing to its elements is allowed although
// parts of cells and structs are handed out as const.
py::object numericArray(const vxArray* array, const py::object& owner) {
  void* const elements = vxGetWritableData(const_cast<vxArray*>(array));
  const auto classId = static_cast<std::size_t>(vxGetClassID(array));
  PyArray_Descr* const type = PyArray_DescrFromType(kNumpyTypes[classId]);
  py::object result =
      checked(PyArray_NewFromDescr(&PyArray_Type, type, rankOf(array), shapeOf(array), nullptr,
                                   elements, NPY_ARRAY_FARRAY, nullptr));
  if (PyArray_SetBaseObject(asArray(result), py::object(owner).release().ptr()) < 0) {
    throw py::error_already_set();
  }
  return result;
}

bool isTextRow(const vxArray* array) {
  return vxIsEmpty(array) ||
         (vxGetNumberOfDimensions(array) == 2 && vxGetDimensions(array)[0] == 1);
}

py::object textValue(const vxArray* array) {
  const auto* const units = static_cast<const char16_t*>(vxGetData(array));
  const std::size_t count = vxGetNumberOfElements(array);
  if (isTextRow(array)) {
    return checked(
        PyUnicode_FromKindAndData(PyUnicode_2BYTE_KIND, units, static_cast<Py_ssize_t>(count)));
  }
  py::object characters = newArray(array, NPY_UNICODE);
  std::copy_n(units, count, static_cast<Py_UCS4*>(PyArray_DATA(asArray(characters))));
  return characters;
}

// Converts arrays that `owner` holds.
py::object partValue(const vxArray* array, const py::object& owner);

// An object array of the dimensions of `array`; `element` makes the object of an index.
template <class Element>
py::object objectArray(const vxArray* array, Element element) {
  py::object result = newArray(array, NPY_OBJECT);
  auto* const objects = static_cast<PyObject**>(PyArray_DATA(asArray(result)));
  for (std::size_t index = 0; index < vxGetNumberOfElements(array); ++index) {
    PyObject* const former = std::exchange(objects[index], element(index).release().ptr());
    Py_XDECREF(former);
  }
  return result;
}

py::object structElement(const vxArray* structure, std::size_t index, const py::object& owner) {
  py::dict fields;
  for (std::size_t field = 0; field < vxGetNumberOfFields(structure); ++field) {
    const char* const name = vxGetFieldNameByNumber(structure, field);
    const py::object key = checked(
        PyUnicode_DecodeUTF8(name, static_cast<Py_ssize_t>(std::strlen(name)), "surrogatepass"));
    fields[key] = partValue(vxGetField(structure, index, name), owner);
  }
  return fields;
}

py::object structValue(const vxArray* array, const py::object& owner) {
  if (vxGetNumberOfDimensions(array) == 2 && vxGetNumberOfElements(array) == 1) {
    return structElement(array, 0, owner);
  }
  return objectArray(array, [&](std::size_t index) { return structElement(array, index, owner); });
}

py::object partValue(const vxArray* array, const py::object& owner) {
  if (array == nullptr) return py::none();
  switch (vxGetClassID(array)) {
    case vxCHAR:
      return textValue(array);
    case vxSTRUCT:
      return structValue(array, owner);
    case vxCELL:
      return objectArray(
          array, [&](std::size_t index) { return partValue(vxGetCell(array, index), owner); });
    case vxUNKNOWN:
    case vxVOID:
      throw std::runtime_error("a result of class " + std::string(vxGetClassName(array)) +
                               " has no counterpart in Python");
    default:
      return numericArray(array, owner);
  }
}

}  // namespace

py::object pythonValue(vxArrayPtr array) {
  if (array == nullptr) return py::none();
  if (vxGetClassID(array.get()) == vxCHAR) return textValue(array.get());
  const vxArray* const whole = array.get();
  return partValue(whole, ownerOf(std::move(array)));
}

}  // namespace tb::python

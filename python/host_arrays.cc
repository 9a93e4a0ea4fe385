// NumPy arrays as host arrays: where they lie if the layout allows, else copied once.
#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <string>

#include "python/column_major_copy.h"
#include "python/host_values.h"
#include "runtime/arrays.h"

namespace py = pybind11;

namespace tb::python {
namespace {

static_assert(sizeof(npy_intp) == sizeof(std::size_t) &&
              sizeof(npy_intp) == sizeof(std::ptrdiff_t));

// The shape as the host counts it; convertible to the span that the host's functions take.
class HostDimensions {
 public:
  explicit HostDimensions(PyArrayObject* array) {
    const npy_intp* const shape = PyArray_DIMS(array);
    const auto axes = static_cast<std::size_t>(PyArray_NDIM(array));
    while (count_ + axes < 2) dimensions_[count_++] = 1;  // a row, and a scalar without dimensions
    for (std::size_t axis = 0; axis < axes; ++axis) {
      dimensions_[count_++] = static_cast<std::size_t>(shape[axis]);
    }
  }

  // NOLINTNEXTLINE(google-explicit-constructor): it is passed as what it converts to
  operator std::span<const std::size_t>() const { return {dimensions_.data(), count_}; }

 private:
  std::array<std::size_t, NPY_MAXDIMS> dimensions_;
  std::size_t count_ = 0;
};

void releaseObject(void* object) { Py_DECREF(static_cast<PyObject*>(object)); }

vxArrayPtr wrapArray(PyArrayObject* array, vxClassID classId) {
  py::object owner = py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(array));
  vxArrayPtr wrapped = runtime::wrapMemory(classId, HostDimensions(array), PyArray_DATA(array),
                                           releaseObject, owner.ptr());
  owner.release();
  return wrapped;
}

vxArrayPtr copyArray(PyArrayObject* array, vxClassID classId) {
  const auto axes = static_cast<std::size_t>(PyArray_NDIM(array));
  const auto size = static_cast<std::size_t>(PyArray_ITEMSIZE(array));
  vxArrayPtr copy = matrix::detail::do_create_uninitnumeric(classId, HostDimensions(array));
  void* const elements = vxGetWritableData(copy.get());
  copyColumnMajor({static_cast<const std::byte*>(PyArray_DATA(array)),
                   {PyArray_DIMS(array), axes},
                   {PyArray_STRIDES(array), axes},
                   size},
                  elements);
  if (PyArray_ISBYTESWAPPED(array)) {
    swapBytes(elements, static_cast<std::size_t>(PyArray_SIZE(array)), size);
  }
  return copy;
}

// The same objects in column-major order.
py::object columnMajor(PyArrayObject* array) {
  auto ordered = py::reinterpret_steal<py::object>(
      PyArray_FromArray(array, nullptr, NPY_ARRAY_F_CONTIGUOUS | NPY_ARRAY_ALIGNED));
  if (!ordered) throw py::error_already_set();
  return ordered;
}

// Elements of a '<U1' or '>U1' array are 4 bytes, a code point.
vxArrayPtr hostCharacters(PyArrayObject* array, const Place& place) {
  vxArrayPtr copy = copyArray(array, vxUINT32);
  const auto* const characters = static_cast<const std::uint32_t*>(vxGetData(copy.get()));
  const std::size_t count = vxGetNumberOfElements(copy.get());
  vxArrayPtr text = matrix::detail::do_create_uninitnumeric(vxCHAR, HostDimensions(array));
  auto* const units = static_cast<char16_t*>(vxGetWritableData(text.get()));
  for (std::size_t index = 0; index < count; ++index) {
    if (characters[index] > 0xFFFF) refuse("a numpy.ndarray with a character above U+FFFF", place);
    units[index] = static_cast<char16_t>(characters[index]);
  }
  return text;
}

// Of an array of objects in column-major order.
HeldObjects objectsOf(PyArrayObject* array) {
  const std::span objects(static_cast<PyObject* const*>(PyArray_DATA(array)),
                          static_cast<std::size_t>(PyArray_SIZE(array)));
  HeldObjects held;
  held.reserve(objects.size());
  for (PyObject* const object : objects) {
    held.push_back(py::reinterpret_borrow<py::object>(object == nullptr ? Py_None : object));
  }
  return held;
}

vxArrayPtr hostObjects(PyArrayObject* array, const Place& place) {
  const py::object ordered = columnMajor(array);
  auto* const source = reinterpret_cast<PyArrayObject*>(ordered.ptr());
  const HeldObjects objects = objectsOf(source);
  return hostCell(HostDimensions(source), objects, place);
}

// Indexed by NumPy's type number, of which the first stand for C's types in this order: bool, then
// each integer signed and unsigned, from char to long long, then float and double.
constexpr std::array kClasses = {vxLOGICAL, vxINT8,   vxUINT8, vxINT16,  vxUINT16,
                                 vxINT32,   vxUINT32, vxINT64, vxUINT64, vxINT64,
                                 vxUINT64,  vxSINGLE, vxDOUBLE};
static_assert(kClasses.size() == NPY_DOUBLE + 1 && sizeof(int) == 4 && sizeof(long) == 8);

[[noreturn]] void refuseArray(PyArrayObject* array, const Place& place) {
  const auto type =
      py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(PyArray_DESCR(array)));
  refuse("numpy.ndarray of dtype " + std::string(py::str(type)), place);
}

}  // namespace

vxClassID numericClass(const PyArray_Descr* type) noexcept {
  const auto number = static_cast<std::size_t>(type->type_num);
  return number < kClasses.size() ? kClasses[number] : vxUNKNOWN;
}

vxArrayPtr hostArray(PyArrayObject* array, const Place& place) {
  const PyArray_Descr* const type = PyArray_DESCR(array);
  if (type->type_num == NPY_OBJECT) return hostObjects(array, place);
  if (type->type_num == NPY_UNICODE && type->elsize == 4) return hostCharacters(array, place);
  const vxClassID classId = numericClass(type);
  if (classId == vxUNKNOWN) refuseArray(array, place);
  const bool usable =
      PyArray_ISALIGNED(array) && PyArray_ISNOTSWAPPED(array) && PyArray_IS_F_CONTIGUOUS(array);
  return usable ? wrapArray(array, classId) : copyArray(array, classId);
}

}  // namespace tb::python

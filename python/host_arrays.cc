// NumPy arrays as host arrays: where they lie if the layout allows, else copied once.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "kernels/block_copy.h"
#include "python/host_values.h"
#include "runtime/arrays.h"
#include "runtime/memory.h"

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

// --- Copies in column-major order

// A NumPy array of rows, columns and planes of them; one plane for an array of two axes.
struct Image {
  explicit Image(PyArrayObject* array) : bytes(static_cast<std::byte*>(PyArray_DATA(array))) {
    std::copy_n(PyArray_DIMS(array), PyArray_NDIM(array), counts.begin());
    std::copy_n(PyArray_STRIDES(array), PyArray_NDIM(array), strides.begin());
    if (PyArray_NDIM(array) == 2) strides[2] = strides[1];
  }

  std::byte* bytes;
  std::array<npy_intp, 3> counts{0, 0, 1};
  std::array<npy_intp, 3> strides{};
};

// Copies pixels of `samples` samples that lie side by side in each row.
void copyRows(const std::byte* from, std::byte* to, std::size_t elementSize, const Image& image,
              npy_intp samples) {
  const auto rows = static_cast<std::size_t>(image.counts[0]);
  const auto columns = static_cast<std::size_t>(image.counts[1]);
  copyBlockToColumns(from, to, elementSize,
                     {.rows = rows,
                      .columns = columns,
                      .samples = static_cast<std::size_t>(samples),
                      .blockStride = static_cast<std::size_t>(image.strides[0]),
                      .columnStride = rows,
                      .planeStride = rows * columns});
}

// Copies what lies in memory as rows of pixels, or each plane of it. Returns false for any other
// arrangement.
bool copiedAsRows(PyArrayObject* array, std::byte* to) {
  const int axes = PyArray_NDIM(array);
  if ((axes != 2 && axes != 3) || PyArray_ISBYTESWAPPED(array)) return false;
  const Image image(array);
  const npy_intp size = PyArray_ITEMSIZE(array);
  const auto [rows, columns, planes] = image.counts;
  if (image.strides[0] < 0) return false;
  const auto elementSize = static_cast<std::size_t>(size);
  if (image.strides[2] == size && image.strides[1] == planes * size) {
    copyRows(image.bytes, to, elementSize, image, planes);
    return true;
  }
  if (image.strides[1] != size) return false;
  for (npy_intp plane = 0; plane < planes; ++plane) {
    copyRows(image.bytes + plane * image.strides[2], to + plane * rows * columns * size,
             elementSize, image, 1);
  }
  return true;
}

PyArrayObject* arrayOf(const py::object& object) {
  return reinterpret_cast<PyArrayObject*>(object.ptr());
}

py::object owned(PyObject* object) {
  if (object == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(object);
}

// Copies any arrangement by NumPy's means.
void copyAnyhow(PyArrayObject* array, std::byte* to) {
  PyArray_Descr* const type = PyArray_DescrNewByteorder(PyArray_DESCR(array), NPY_NATIVE);
  if (type == nullptr) throw py::error_already_set();
  const py::object columns = owned(PyArray_NewFromDescr(  // takes the reference to the type
      &PyArray_Type, type, PyArray_NDIM(array), PyArray_DIMS(array), nullptr, to, NPY_ARRAY_FARRAY,
      nullptr));
  if (PyArray_CopyInto(arrayOf(columns), array) != 0) throw py::error_already_set();
}

// Whether columns lie closer together in memory than rows: NumPy is slow then, and fast when it may
// copy into rows.
bool isRowMajor(PyArrayObject* array) {
  if (PyArray_NDIM(array) < 2 || PyArray_NDIM(array) > 3) return false;
  const npy_intp* const strides = PyArray_STRIDES(array);
  return std::abs(strides[0]) > std::abs(strides[1]);
}

vxArrayPtr copyArray(PyArrayObject* array, vxClassID classId) {
  vxArrayPtr copy = matrix::detail::do_create_uninitnumeric(classId, HostDimensions(array));
  auto* const to = static_cast<std::byte*>(vxGetWritableData(copy.get()));
  if (copiedAsRows(array, to)) return copy;
  if (isRowMajor(array)) {
    // Of the base class: a subclass may change the shape of an array that is made of it.
    const py::object rows =
        owned(PyArray_FromArray(array, PyArray_DescrNewByteorder(PyArray_DESCR(array), NPY_NATIVE),
                                NPY_ARRAY_CARRAY | NPY_ARRAY_ENSUREARRAY));
    if (copiedAsRows(arrayOf(rows), to)) return copy;
  }
  copyAnyhow(array, to);
  return copy;
}

// The same objects in column-major order.
py::object columnMajor(PyArrayObject* array) {
  return owned(PyArray_FromArray(array, nullptr, NPY_ARRAY_F_CONTIGUOUS | NPY_ARRAY_ALIGNED));
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
  // An array that repeats one object takes no memory of its own, whatever its shape.
  const Place inside = place.inside(static_cast<std::size_t>(PyArray_SIZE(array)));
  const py::object ordered = columnMajor(array);
  PyArrayObject* const source = arrayOf(ordered);
  const HeldObjects objects = objectsOf(source);
  return hostCell(HostDimensions(source), objects, inside);
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

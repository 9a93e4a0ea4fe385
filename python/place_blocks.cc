// Blocks below each other are copied together, column after column: of a column of the image a
// strip holds a few bytes only, and to write these alone costs as much as to write a whole cache
// line.
#include "python/place_blocks.h"

#include <algorithm>
#include <cstring>
namespace py = pybind11;

namespace tb::python {
Columns columnsOf(PyObject* object, int itemSize) {
  auto* const array = reinterpret_cast<PyArrayObject*>(object);
  const bool fits = PyArray_Check(object) != 0 &&
                    (PyArray_NDIM(array) == 2 || PyArray_NDIM(array) == 3) &&
                    PyArray_ITEMSIZE(array) == itemSize &&
                    (PyArray_DIM(array, 0) < 2 || PyArray_STRIDE(array, 0) == itemSize);
  if (!fits) throw py::value_error("place_blocks(): columns must be contiguous and of one type");
  const bool volume = PyArray_NDIM(array) == 3;
  return {static_cast<std::byte*>(PyArray_DATA(array)),
          static_cast<std::size_t>(PyArray_DIM(array, 0)) * static_cast<std::size_t>(itemSize),
          PyArray_DIM(array, 1),
          volume ? PyArray_DIM(array, 2) : 1,
          PyArray_STRIDE(array, 1),
          volume ? PyArray_STRIDE(array, 2) : 0};
}

void copyColumns(const Columns& target, const std::vector<Columns>& blocks) {
  for (npy_intp sample = 0; sample < target.samples; ++sample) {
    for (npy_intp column = 0; column < target.columns; ++column) {
      std::byte* to = target.data + sample * target.sampleStride + column * target.columnStride;
      for (const Columns& block : blocks) {
        const std::byte* const from =
            block.data + sample * block.sampleStride + column * block.columnStride;
        std::memcpy(to, from, block.columnBytes);
        to += block.columnBytes;
      }
    }
  }
}

namespace {

void placeBlocks(const py::object& target, const py::list& blocks) {
  if (PyArray_Check(target.ptr()) == 0) throw py::type_error("place_blocks() needs arrays");
  auto* const array = reinterpret_cast<PyArrayObject*>(target.ptr());
  const auto itemSize = static_cast<int>(PyArray_ITEMSIZE(array));
  const Columns place = columnsOf(target.ptr(), itemSize);
  if (PyArray_FailUnlessWriteable(array, "target") < 0) throw py::error_already_set();
  std::vector<Columns> sources;
  std::size_t columnBytes = 0;
  for (const py::handle block : blocks) {
    sources.push_back(columnsOf(block.ptr(), itemSize));
    columnBytes += sources.back().columnBytes;
    if (sources.back().columns != place.columns || sources.back().samples != place.samples) {
      throw py::value_error("place_blocks(): blocks must be as wide as their place");
    }
  }
  if (columnBytes != place.columnBytes) {
    throw py::value_error("place_blocks(): blocks must have as many rows as their place");
  }
  const py::gil_scoped_release released;
  copyColumns(place, sources);
}

}  // namespace

void addPlaceBlocks(py::module_& extension) {
  extension.def("place_blocks", &placeBlocks, py::arg("target"), py::arg("blocks"));
}

}  // namespace tb::python

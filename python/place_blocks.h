// Copying decoded blocks into their place of an image.
#pragma once

#include <pybind11/pybind11.h>

#include <cstddef>
#include <vector>

#include "python/numpy_api.h"

namespace tb::python {

// An array, or a part of one, whose columns are contiguous, with up to three dimensions. Strides
// are in bytes.
struct Columns {
  std::byte* data;
  std::size_t columnBytes;
  npy_intp columns, samples;
  npy_intp columnStride, sampleStride;
};

// Copies blocks that lie below each other into their place, which has as many rows as they and the
// same columns and samples.
void copyColumns(const Columns& target, const std::vector<Columns>& blocks);

// The columns of an array. Throws pybind11::value_error for an array of another kind.
Columns columnsOf(PyObject* object, int itemSize);

// Adds `place_blocks(target, blocks)` to the extension.
void addPlaceBlocks(pybind11::module_& extension);

}  // namespace tb::python

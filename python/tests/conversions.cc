// A Python module for the tests of the value tables: it shows which host array a Python value
// becomes, and makes host arrays that no operation of the module returns.
#define TAGBRIDGE_IMPORT_NUMPY
#include <pybind11/stl.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "host/array.h"
#include "python/array_owner.h"
#include "python/host_values.h"
#include "python/python_values.h"

namespace py = pybind11;

namespace {

using Dimensions = std::vector<std::size_t>;

Dimensions dimensionsOf(const vxArray* array) {
  const std::size_t* const first = vxGetDimensions(array);
  return {first, first + vxGetNumberOfDimensions(array)};
}

py::object describe(const vxArray* array);

py::list cells(const vxArray* cell) {
  py::list all;
  for (std::size_t index = 0; index < vxGetNumberOfElements(cell); ++index) {
    all.append(describe(vxGetCell(cell, index)));
  }
  return all;
}

py::dict fields(const vxArray* structure) {
  py::dict all;
  for (std::size_t field = 0; field < vxGetNumberOfFields(structure); ++field) {
    const char* const name = vxGetFieldNameByNumber(structure, field);
    all[name] = describe(vxGetField(structure, 0, name));
  }
  return all;
}

py::object describe(const vxArray* array) {
  if (array == nullptr) return py::none();
  py::dict all;
  all["class"] = vxGetClassName(array);
  all["dims"] = dimensionsOf(array);
  if (vxGetClassID(array) == vxCELL) {
    all["cells"] = cells(array);
  } else if (vxGetClassID(array) == vxSTRUCT) {
    all["fields"] = fields(array);
  } else {
    const auto* const data = static_cast<const char*>(vxGetData(array));
    all["bytes"] = py::bytes(data, vxGetNumberOfElements(array) * vxGetElementSize(array));
    all["padded"] = py::bytes(data, 16);
    all["address"] = reinterpret_cast<std::uintptr_t>(data);
  }
  return all;
}

vxArrayPtr make(const py::handle& recipe);

vxArrayPtr makeNumeric(int classId, const Dimensions& dimensions, const std::string& bytes) {
  vxArrayPtr array = matrix::detail::do_create_numeric(static_cast<vxClassID>(classId), dimensions);
  std::memcpy(vxGetWritableData(array.get()), bytes.data(), bytes.size());
  return array;
}

vxArrayPtr makeCell(const Dimensions& dimensions, const py::list& parts) {
  vxArrayPtr cell = matrix::detail::do_create_cell(dimensions);
  std::size_t index = 0;
  for (const py::handle part : parts) vxSetCell(cell.get(), index++, make(part).release());
  return cell;
}

vxArrayPtr makeStruct(const Dimensions& dimensions, const py::list& elements) {
  std::vector<std::string> names;
  for (const auto& [name, part] : py::dict(elements[0])) names.push_back(py::str(name));
  std::vector<const char*> pointers;
  pointers.reserve(names.size());
  for (const std::string& name : names) pointers.push_back(name.c_str());
  vxArrayPtr structure = matrix::detail::do_create_struct(dimensions, pointers);
  for (std::size_t index = 0; index < elements.size(); ++index) {
    for (const auto& [name, part] : py::dict(elements[index])) {
      vxSetField(structure.get(), index, std::string(py::str(name)).c_str(), make(part).release());
    }
  }
  return structure;
}

// A recipe is None or (class code, dimensions, contents).
vxArrayPtr make(const py::handle& recipe) {
  if (recipe.is_none()) return nullptr;
  const py::tuple parts = py::reinterpret_borrow<py::tuple>(recipe);
  const int classId = parts[0].cast<int>();
  const auto dimensions = parts[1].cast<Dimensions>();
  if (classId == vxCELL) return makeCell(dimensions, parts[2]);
  if (classId == vxSTRUCT) return makeStruct(dimensions, parts[2]);
  return makeNumeric(classId, dimensions, parts[2].cast<std::string>());
}

}  // namespace

PYBIND11_MODULE(tagbridge_conversions, module) {
  if (_import_array() < 0) throw py::error_already_set();
  tb::python::makeOwnerType();
  module.def("to_host", [](const py::object& value) {
    const py::str operation("test");
    std::size_t elements = 0;
    return describe(tb::python::hostValue(value.ptr(), {operation.ptr(), 1, &elements}).get());
  });
  module.def("to_python",
             [](const py::object& recipe) { return tb::python::pythonValue(make(recipe)); });
}

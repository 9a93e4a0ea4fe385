#include "python/tag_presence.h"

#include <pybind11/stl.h>
#include <tiffio.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "python/bridge.h"
#include "python/inputs.h"
#include "python/messages.h"

namespace py = pybind11;

namespace tb::python {
namespace {

// Room for what libtiff stores of one tag: at most four values, or pointers to them.
using Scratch = std::array<std::uint64_t, 4>;

bool isSet(TIFF* tif, std::uint32_t tag) {
  const TIFFField* const field = TIFFFindField(tif, tag, TIFF_ANY);
  // A tag that libtiff knows only from the file is none that the module reads.
  if (field == nullptr || TIFFFieldIsAnonymous(field) != 0) return false;
  Scratch a{}, b{}, c{}, d{};
  return TIFFGetField(tif, tag, a.data(), b.data(), c.data(), d.data()) != 0;
}

TIFF* handleOf(const vxArray* fileId) {
  std::uint64_t address = 0;
  std::memcpy(&address, vxGetData(fileId), sizeof address);
  return reinterpret_cast<TIFF*>(static_cast<std::uintptr_t>(address));
}

std::vector<std::uint32_t> setTags(const py::handle& file, const std::vector<std::uint32_t>& tags) {
  // An operation that does nothing goes first: it refuses an identifier that names no open file.
  const py::str operation("isTiled");
  Inputs inputs(operation.ptr());
  inputs.add(file.ptr());
  std::array<vxArrayPtr, 1> outputs;
  std::vector<std::uint32_t> found;
  const Outcome outcome = callModule(outputs, inputs.arrays(), [&] {
    const runtime::GatewayScope scope;  // libtiff's messages are not for standard error
    TIFF* const tif = handleOf(inputs.arrays()[1]);
    for (const std::uint32_t tag : tags) {
      if (isSet(tif, tag)) found.push_back(tag);
    }
  });
  if (outcome.error != nullptr) {
    setError(*outcome.error, outcome.diagnostics);
    throw py::error_already_set();
  }
  if (outcome.failure != nullptr) std::rethrow_exception(outcome.failure);
  return found;
}

}  // namespace

void addTagPresence(py::module_& extension) {
  extension.def("set_tags", &setTags, py::arg("file"), py::arg("numbers"));
}

}  // namespace tb::python

// The extension module tagbridge._core.
#define TAGBRIDGE_IMPORT_NUMPY
#include <dlfcn.h>
#include <pybind11/pybind11.h>

#include <filesystem>
#include <stdexcept>
#include <string>

#include "python/array_owner.h"
#include "python/bridge.h"
#include "python/call.h"
#include "python/file_objects.h"
#include "python/messages.h"
#include "python/numpy_api.h"
#include "python/place_blocks.h"
#include "python/read_blocks.h"
#include "python/tag_presence.h"
#include "runtime/catalog.h"
#include "runtime/memory.h"

namespace py = pybind11;

namespace tb::python {
namespace {

void importNumpy() {
  if (_import_array() < 0) throw py::error_already_set();
}

// The folder of the library in which that function lies.
std::filesystem::path folderOf(const void* function) {
  Dl_info library{};
  if (dladdr(function, &library) == 0) {
    throw py::import_error("the extension's own files cannot be found");
  }
  return std::filesystem::path(library.dli_fname).parent_path();
}

// The plug-in lies beside this library, as in a wheel, or where it is installed with the runtime.
std::filesystem::path pluginPath() {
  auto beside = folderOf(reinterpret_cast<const void*>(&importNumpy)) / "tagbridge.so";
  if (std::filesystem::exists(beside)) return beside;
  return folderOf(reinterpret_cast<const void*>(&runtime::memoryLimit)) / TAGBRIDGE_PLUGIN_DIRECTORY
         "/tagbridge.so";
}

void importModule() {
  try {
    loadModule(pluginPath());
  } catch (const std::runtime_error& error) {
    throw py::import_error(error.what());
  }
}

py::list catalogRows() {
  py::list rows;
  for (const runtime::CatalogEntry& entry : runtime::catalog()) {
    rows.append(
        py::make_tuple(entry.identifier, entry.text, entry.arguments, entry.when, entry.warning));
  }
  return rows;
}

void addMemory(py::module_& extension) {
  extension.def("set_memory_limit", &runtime::setMemoryLimit, py::arg("bytes"),
                "Set the size of the largest single array or block.\n\n"
                "What needs more is a MemoryError before any memory is touched.\n\n"
                ":param bytes: the limit; 0, the default, stands for the memory of the machine");
  extension.def("memory_limit", &runtime::memoryLimit,
                "Return the size of the largest single array or block, in bytes.");
  extension.def("set_cache_limit", &runtime::setCacheLimit, py::arg("bytes"),
                "Set how much released memory is kept for reuse.\n\n"
                ":param bytes: the limit, 256 MiB by default; what is above it goes back to the "
                "system at once");
  extension.def("cache_limit", &runtime::cacheLimit,
                "Return how much released memory may be kept for reuse, in bytes.");
  extension.def("cached_bytes", &runtime::cachedBytes,
                "Return how much released memory is kept at the moment, in bytes.");
  extension.def("release_cached_memory", &runtime::releaseCachedMemory,
                "Give the released memory that is kept for reuse back to the system.");
}

void addFork() {
  const py::cpp_function hold(&holdCalls), release(&releaseCalls);
  py::module_::import("os").attr("register_at_fork")(py::arg("before") = hold,
                                                     py::arg("after_in_parent") = release,
                                                     py::arg("after_in_child") = release);
}

// Files are closed while Python still runs; calls of threads that outlive it are held up before the
// process takes the libraries down under them.
void addExit() {
  py::module_::import("atexit").attr("register")(py::cpp_function(&cleanUpModule));
  if (Py_AtExit(&stopCalls) != 0) throw py::import_error("no room for an exit function");
}

}  // namespace
}  // namespace tb::python

PYBIND11_MODULE(_core, extension) {
  using namespace tb::python;  // NOLINT(google-build-using-namespace): the macro ends the namespace
  importNumpy();
  importMessageClasses();
  makeOwnerType();
  importModule();
  addCall(extension);
  addTagPresence(extension);
  addFileObjects(extension);
  addPlaceBlocks(extension);
  addReadBlocks(extension);
  addMemory(extension);
  extension.def("catalog_rows", &catalogRows);
  extension.attr("__version__") = TAGBRIDGE_VERSION;
  addFork();
  addExit();
}

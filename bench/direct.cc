// The Python extension that calls are compared with: each function is one libtiff call on a handle
// passed as a number, with no checks, as one would write it for a single purpose.
#include <pybind11/pybind11.h>
#include <tiffio.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace py = pybind11;

namespace {

TIFF* handleOf(std::uintptr_t number) { return reinterpret_cast<TIFF*>(number); }

std::uintptr_t openFile(const std::string& path, const std::string& mode) {
  TIFF* const tif = TIFFOpen(path.c_str(), mode.c_str());
  if (tif == nullptr) throw std::runtime_error("cannot open " + path);
  return reinterpret_cast<std::uintptr_t>(tif);
}

void closeFile(std::uintptr_t file) { TIFFClose(handleOf(file)); }

double getField(std::uintptr_t file, std::uint32_t tag) {
  std::uint32_t value = 0;
  if (TIFFGetField(handleOf(file), tag, &value) != 1) throw std::runtime_error("no such tag");
  return value;
}

void setField(std::uintptr_t file, std::uint32_t tag, std::uint32_t value) {
  if (TIFFSetField(handleOf(file), tag, value) != 1) throw std::runtime_error("not set");
}

// So often that the way in and out of Python does not count.
void openAndClose(const std::string& path, int count) {
  for (int turn = 0; turn < count; ++turn) closeFile(openFile(path, "r"));
}

}  // namespace

PYBIND11_MODULE(tagbridge_direct, extension) {
  extension.def("open", &openFile);
  extension.def("close", &closeFile);
  extension.def("get_field", &getField);
  extension.def("set_field", &setField);
  extension.def("is_tiled", [](std::uintptr_t file) { return TIFFIsTiled(handleOf(file)) != 0; });
  extension.def("current_directory",
                [](std::uintptr_t file) { return TIFFCurrentDirectory(handleOf(file)); });
  extension.def("open_and_close", &openAndClose);
  extension.def("nothing", [](std::uintptr_t, std::uint32_t) {});
}

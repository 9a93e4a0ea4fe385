// A file object's methods are called from inside the module, which holds the bridge's lock and has
// given the interpreter's back. An exception stays here until the call has ended: libtiff's frames
// must not be unwound.
#include "python/file_objects.h"

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "python/bridge.h"
#include "runtime/file_objects.h"
#include "runtime/messages.h"

namespace py = pybind11;

namespace tb::python {
namespace {

// The most that is read or written at once; libtiff asks for whole blocks.
constexpr std::size_t kPortion = std::size_t{64} << 20;

class PythonFile final : public runtime::FileObject {
 public:
  explicit PythonFile(py::object file) : file_(std::move(file)) {}
  PythonFile(const PythonFile&) = delete;
  PythonFile& operator=(const PythonFile&) = delete;

  // The last owner may be libtiff's handle, which is closed without the interpreter's lock. Without
  // an interpreter there is nobody to give the references to.
  ~PythonFile() override {
    PyObject* const file = file_.release().ptr();
    PyObject* const failure = failure_.release().ptr();
    withInterpreter([&] {
      Py_XDECREF(file);
      Py_XDECREF(failure);
    });
  }

  std::size_t read(std::uint64_t offset, std::span<std::byte> bytes) noexcept override {
    std::size_t count = 0;
    const bool good = guarded([&] {
      file_.attr("seek")(offset);
      while (count < bytes.size()) {
        const std::size_t portion = readPortion(bytes.subspan(count));
        if (portion == 0) break;
        count += portion;
      }
    });
    return good ? count : 0;
  }

  std::size_t write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override {
    const bool good = guarded([&] {
      file_.attr("seek")(offset);
      for (std::size_t count = 0; count < bytes.size();) {
        count += writePortion(bytes.subspan(count));
      }
    });
    return good ? bytes.size() : 0;
  }

  std::uint64_t size() noexcept override {
    std::uint64_t end = 0;
    (void)guarded([&] {
      const py::object told = file_.attr("seek")(0, 2);
      end = (told.is_none() ? file_.attr("tell")() : told).cast<std::uint64_t>();
    });
    return end;
  }

  bool clear() noexcept override {
    return guarded([&] {
      if (py::hasattr(file_, "truncate")) {
        file_.attr("seek")(0);
        file_.attr("truncate")(0);
      }
    });
  }

  bool hasFailed() const noexcept override { return failed_; }

  // The exception that a method has raised since the last time, or None. The interpreter's lock is
  // held.
  py::object takeFailure() {
    failed_ = false;
    return failure_ ? std::exchange(failure_, py::object()) : py::none();
  }

 private:
  // Runs Python code, unless some has failed before in this call. Returns whether all went well.
  template <class Action>
  bool guarded(const Action& action) noexcept {
    if (failed_) return false;
    const bool ran = withInterpreter([&] {
      try {
        const runtime::OutsideScope outside;
        action();
      } catch (py::error_already_set& raised) {
        raised.restore();
        keepFailure();
      } catch (const py::builtin_exception& raised) {
        raised.set_error();
        keepFailure();
      } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
        keepFailure();
      }
    });
    if (!ran) failed_ = true;
    return !failed_;
  }

  void keepFailure() noexcept {
    failed_ = true;
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    if (trace != nullptr) (void)PyException_SetTraceback(value, trace);
    failure_ = py::reinterpret_steal<py::object>(value);
    Py_XDECREF(type);
    Py_XDECREF(trace);
  }

  std::size_t readPortion(std::span<std::byte> bytes) {
    const std::size_t wanted = std::min(bytes.size(), kPortion);
    const py::object data = file_.attr("read")(wanted);
    if (data.is_none()) throw blocking();
    Py_buffer view;
    if (PyObject_GetBuffer(data.ptr(), &view, PyBUF_SIMPLE) != 0) throw py::error_already_set();
    const auto count = static_cast<std::size_t>(view.len);
    if (count <= wanted) {
      std::copy_n(static_cast<const std::byte*>(view.buf), count, bytes.data());
    }
    PyBuffer_Release(&view);
    if (count > wanted) throw py::value_error("read() returned more bytes than were asked for");
    return count;
  }

  std::size_t writePortion(std::span<const std::byte> bytes) {
    const std::size_t wanted = std::min(bytes.size(), kPortion);
    const py::bytes data(reinterpret_cast<const char*>(bytes.data()), wanted);
    const py::object told = file_.attr("write")(data);
    if (told.is_none()) return wanted;
    const auto count = told.cast<std::size_t>();
    if (count == 0) throw blocking();
    return std::min(count, wanted);
  }

  static py::error_already_set blocking() {
    PyErr_SetString(PyExc_BlockingIOError, "the file object would block");
    return {};
  }

  py::object file_;
  py::object failure_;
  bool failed_ = false;
};

std::u16string utf16(const py::str& text) { return text.cast<std::u16string>(); }

std::shared_ptr<PythonFile> findFile(const py::str& name) {
  const auto named = runtime::findFileObject(utf16(name));
  return named ? std::dynamic_pointer_cast<PythonFile>(named->object) : nullptr;
}

py::str addFileObject(py::object file, const std::string& label) {
  auto object = std::make_shared<PythonFile>(std::move(file));
  const std::u16string name = runtime::addFileObject(std::move(object), label);
  return py::cast(name);
}

py::object fileObjectFailure(const py::str& name) {
  const std::shared_ptr<PythonFile> file = findFile(name);
  return file == nullptr ? py::none() : file->takeFailure();
}

void removeFileObject(const py::str& name) { runtime::removeFileObject(utf16(name)); }

}  // namespace

void addFileObjects(py::module_& extension) {
  extension.def("add_file_object", &addFileObject, py::arg("object"), py::arg("label"));
  extension.def("file_object_failure", &fileObjectFailure, py::arg("name"));
  extension.def("remove_file_object", &removeFileObject, py::arg("name"));
}

}  // namespace tb::python

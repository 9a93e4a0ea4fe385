// A file object's methods are called from inside the module, with a turn on the file and
// without the interpreter's lock. An exception stays here until the call has ended: libtiff's
// frames must not be unwound.
#include "python/file_objects.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
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

// Whose turn it is on a Python object: a file that was opened twice through one has one position
// for both. A thread that has it may take it again. It is taken without the interpreter's lock.
class ObjectTurns {
 public:
  // The same for the same object, for as long as somebody has it. The interpreter's lock is held.
  static std::shared_ptr<ObjectTurns> of(PyObject* object) {
    static std::map<PyObject*, std::weak_ptr<ObjectTurns>> known;
    std::erase_if(known, [](const auto& entry) { return entry.second.expired(); });
    std::shared_ptr<ObjectTurns> turns = known[object].lock();
    if (turns == nullptr) known[object] = turns = std::make_shared<ObjectTurns>();
    return turns;
  }

  // False when the interpreter goes meanwhile, with whoever has the turn.
  bool take() noexcept {
    if (owner_ != &thisThread) {
      while (!mutex_.try_lock_for(std::chrono::milliseconds(100))) {
        if (_Py_IsFinalizing() != 0) return false;
      }
      owner_ = &thisThread;
    }
    ++depth_;
    return true;
  }
  void release() noexcept {
    if (--depth_ > 0) return;
    owner_ = nullptr;
    mutex_.unlock();
  }

 private:
  inline static thread_local char thisThread = 0;  // its address tells the threads apart

  std::timed_mutex mutex_;
  std::atomic<const char*> owner_ = nullptr;  // only the owner itself can find its own there
  int depth_ = 0;
};

class PythonFile final : public runtime::FileObject {
 public:
  explicit PythonFile(py::object file)
      : turns_(ObjectTurns::of(file.ptr())), file_(file.release().ptr()) {}
  PythonFile(const PythonFile&) = delete;
  PythonFile& operator=(const PythonFile&) = delete;

  // The last owner may be libtiff's handle, which is closed without the interpreter's lock. Without
  // an interpreter there is nobody to give the references to.
  ~PythonFile() override {
    (void)withInterpreter([&] {
      Py_DECREF(file_);
      Py_XDECREF(failure_);
    });
  }

  std::size_t read(std::uint64_t offset, std::span<std::byte> bytes) noexcept override {
    std::size_t count = 0;
    const bool good = guarded([&] {
      if (!seek(offset)) return isBehindTheEnd(offset);
      while (count < bytes.size()) {
        const Py_ssize_t portion = readPortion(bytes.subspan(count));
        if (portion < 0) return isBehindTheEnd(offset + count);
        if (portion == 0) break;
        count += static_cast<std::size_t>(portion);
      }
      return true;
    });
    return good ? count : 0;
  }

  std::size_t write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept override {
    const bool good = guarded([&] {
      if (!seek(offset)) return false;
      for (std::size_t count = 0; count < bytes.size();) {
        const Py_ssize_t portion = writePortion(bytes.subspan(count));
        if (portion < 0) return false;
        count += static_cast<std::size_t>(portion);
      }
      return true;
    });
    return good ? bytes.size() : 0;
  }

  std::uint64_t size() noexcept override {
    std::uint64_t end = 0;
    (void)guarded([&] { return findEnd(end); });
    return end;
  }

  bool clear() noexcept override {
    return guarded([&] {
      if (PyObject_HasAttrString(file_, "truncate") == 0) return true;
      return seek(0) && succeeded(PyObject_CallMethod(file_, "truncate", "i", 0));
    });
  }

  bool hasFailed() const noexcept override { return failed_; }

  // The exception that a method has raised since the last time, or None. The interpreter's lock is
  // held.
  py::object takeFailure() {
    failed_ = false;
    PyObject* const failure = std::exchange(failure_, nullptr);
    return failure == nullptr ? py::none() : py::reinterpret_steal<py::object>(failure);
  }

 private:
  // Runs Python code, unless some has failed before in this call. `action` returns false with an
  // exception set. It holds references without owners: when the interpreter goes meanwhile, it ends
  // the thread by unwinding, and owners would release them without its lock.
  bool guarded(const std::function<bool()>& action) noexcept {
    if (failed_) return false;
    failed_ = true;
    if (!turns_->take()) return false;
    const bool ran = withInterpreter([&] {
      failed_ = false;
      const runtime::OutsideScope outside;
      if (!action()) keepFailure();
    });
    turns_->release();
    return ran && !failed_;
  }

  void keepFailure() noexcept {
    failed_ = true;
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    if (trace != nullptr) (void)PyException_SetTraceback(value, trace);
    Py_XDECREF(std::exchange(failure_, value));
    Py_XDECREF(type);
    Py_XDECREF(trace);
  }

  static bool succeeded(PyObject* result) {
    Py_XDECREF(result);
    return result != nullptr;
  }

  bool seek(std::uint64_t offset) {
    return succeeded(
        PyObject_CallMethod(file_, "seek", "K", static_cast<unsigned long long>(offset)));
  }

  bool findEnd(std::uint64_t& end) {
    PyObject* told = PyObject_CallMethod(file_, "seek", "ii", 0, SEEK_END);
    if (told == Py_None) {
      Py_DECREF(told);
      told = PyObject_CallMethod(file_, "tell", nullptr);
    }
    if (told == nullptr) return false;
    end = PyLong_AsUnsignedLongLong(told);
    Py_DECREF(told);
    return PyErr_Occurred() == nullptr;
  }

  // Takes back the exception of a seek to a place where there is no byte, or of a read there, as
  // damaged files name them: io.BytesIO has an OverflowError for some, mmap a ValueError, files an
  // OSError, some file systems' when they are read.
  bool isBehindTheEnd(std::uint64_t offset) {
    PyObject *type = nullptr, *value = nullptr, *trace = nullptr;
    PyErr_Fetch(&type, &value, &trace);
    PyErr_NormalizeException(&type, &value, &trace);
    std::uint64_t end = 0;
    if (!isOfThePlace(value) || !findEnd(end) || offset < end) {
      PyErr_Restore(type, value, trace);
      return false;
    }
    Py_XDECREF(type);
    Py_XDECREF(value);
    Py_XDECREF(trace);
    return true;
  }

  static bool isOfThePlace(PyObject* exception) {
    if (PyErr_GivenExceptionMatches(exception, PyExc_OverflowError) != 0 ||
        PyErr_GivenExceptionMatches(exception, PyExc_ValueError) != 0) {
      return true;
    }
    if (PyErr_GivenExceptionMatches(exception, PyExc_OSError) == 0) return false;
    PyObject* const number = PyObject_GetAttrString(exception, "errno");
    const bool isInvalid =
        number != nullptr && PyLong_Check(number) && PyLong_AsLong(number) == EINVAL;
    Py_XDECREF(number);
    PyErr_Clear();
    return isInvalid;
  }

  // How many bytes were read, -1 with an exception set.
  Py_ssize_t readPortion(std::span<std::byte> bytes) {
    const auto wanted = static_cast<Py_ssize_t>(std::min(bytes.size(), kPortion));
    PyObject* const data = PyObject_CallMethod(file_, "read", "n", wanted);
    if (data == nullptr) return -1;
    const Py_ssize_t count = data == Py_None ? blocked() : copyBytes(data, bytes.data(), wanted);
    Py_DECREF(data);
    return count;
  }

  static Py_ssize_t copyBytes(PyObject* data, std::byte* to, Py_ssize_t most) {
    Py_buffer view;
    if (PyObject_GetBuffer(data, &view, PyBUF_SIMPLE) != 0) return -1;
    const Py_ssize_t count = view.len;
    if (count <= most) std::memcpy(to, view.buf, static_cast<std::size_t>(count));
    PyBuffer_Release(&view);
    if (count <= most) return count;
    PyErr_SetString(PyExc_ValueError, "read() returned more bytes than were asked for");
    return -1;
  }

  Py_ssize_t writePortion(std::span<const std::byte> bytes) {
    const auto wanted = static_cast<Py_ssize_t>(std::min(bytes.size(), kPortion));
    PyObject* const data =
        PyBytes_FromStringAndSize(reinterpret_cast<const char*>(bytes.data()), wanted);
    if (data == nullptr) return -1;
    PyObject* const told = PyObject_CallMethod(file_, "write", "O", data);
    Py_DECREF(data);
    if (told == nullptr) return -1;
    const Py_ssize_t count =
        told == Py_None ? wanted : PyNumber_AsSsize_t(told, PyExc_OverflowError);
    Py_DECREF(told);
    if (count == -1 && PyErr_Occurred() != nullptr) return -1;
    return count > 0 ? std::min(count, wanted) : blocked();
  }

  static Py_ssize_t blocked() {
    PyErr_SetString(PyExc_BlockingIOError, "the file object would block");
    return -1;
  }

  std::shared_ptr<ObjectTurns> turns_;
  PyObject* file_;
  PyObject* failure_ = nullptr;
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

#include "python/messages.h"

#include <fmt/format.h>

#include <string>
#include <string_view>
#include <variant>

#include "runtime/catalog.h"

namespace py = pybind11;

namespace tb::python {
namespace {

using resource_core::BaseMsgID;

// References to keep for the life of the process.
struct Classes {
  PyObject* error = nullptr;
  PyObject* warning = nullptr;
  PyObject* warnings = nullptr;  // Python's module of that name
};
Classes s_classes;

py::object checked(PyObject* created) {
  if (created == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(created);
}

py::object latin1(std::string_view text) {
  return checked(
      PyUnicode_DecodeLatin1(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr));
}

// What libtiff says contains file names, which are UTF-8, and bytes of files, which may be
// anything.
py::object libtiffText(std::string_view text) {
  PyObject* const decoded =
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), nullptr);
  if (decoded != nullptr) return py::reinterpret_steal<py::object>(decoded);
  PyErr_Clear();
  return latin1(text);
}

py::object utf16(const std::u16string& text) {
  int nativeOrder = PY_BIG_ENDIAN ? 1 : -1;
  return checked(PyUnicode_DecodeUTF16(reinterpret_cast<const char*>(text.data()),
                                       static_cast<Py_ssize_t>(text.size() * sizeof(char16_t)),
                                       "surrogatepass", &nativeOrder));
}

py::object argumentValue(const BaseMsgID::Argument& argument, bool fromLibtiff) {
  if (const auto* number = std::get_if<std::int64_t>(&argument)) {
    return checked(PyLong_FromLongLong(*number));
  }
  if (const auto* large = std::get_if<std::uint64_t>(&argument)) {
    return checked(PyLong_FromUnsignedLongLong(*large));
  }
  if (const auto* name = std::get_if<std::u16string>(&argument)) return utf16(*name);
  const std::string& text = std::get<std::string>(argument);
  return fromLibtiff ? libtiffText(text) : latin1(text);
}

py::tuple argumentValues(const BaseMsgID& message) {
  const bool fromLibtiff = message.component() == "KORVAL:pictoria:tiffutils";
  py::tuple values(message.arguments().size());
  for (std::size_t index = 0; index < values.size(); ++index) {
    values[index] = argumentValue(message.arguments()[index], fromLibtiff);
  }
  return values;
}

py::object catalogText(const std::string& text) {
  return checked(
      PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
}

py::list diagnosticTexts(const std::vector<runtime::Diagnostic>& diagnostics) {
  py::list texts;
  for (const auto& [warning, module, message] : diagnostics) {
    const char* const kind = warning ? "warning: " : "";
    texts.append(libtiffText(module.empty() ? fmt::format("{}{}", kind, message)
                                            : fmt::format("{}: {}{}", module, kind, message)));
  }
  return texts;
}

py::object warningObject(const BaseMsgID& message) {
  return py::handle(s_classes.warning)(message.identifier(), argumentValues(message),
                                       catalogText(runtime::warningText(message)));
}

void warn(const BaseMsgID& message) {
  py::handle(s_classes.warnings).attr("warn")(warningObject(message));
}

void addNote(const py::object& exception, const py::object& note) {
  exception.attr("add_note")(py::str(note));
}

}  // namespace

void importMessageClasses() {
  const py::object messages = checked(PyImport_ImportModule("tagbridge._messages"));
  py::object error = messages.attr("Error");
  py::object warning = messages.attr("Warning");
  s_classes.error = error.release().ptr();
  s_classes.warning = warning.release().ptr();
  s_classes.warnings = checked(PyImport_ImportModule("warnings")).release().ptr();
}

py::object errorObject(const BaseMsgID& error,
                       const std::vector<runtime::Diagnostic>& diagnostics) {
  return py::handle(s_classes.error)(error.identifier(), argumentValues(error),
                                     catalogText(runtime::messageText(error)),
                                     diagnosticTexts(diagnostics));
}

void setError(const BaseMsgID& error, const std::vector<runtime::Diagnostic>& diagnostics) {
  PyErr_SetObject(s_classes.error, errorObject(error, diagnostics).ptr());
}

py::list warningObjects(const std::vector<BaseMsgID>& warnings) {
  py::list objects;
  for (const BaseMsgID& warning : warnings) objects.append(warningObject(warning));
  return objects;
}

py::object issueWarnings(const std::vector<BaseMsgID>& warnings) {
  py::object first;
  for (const BaseMsgID& warning : warnings) {
    try {
      warn(warning);
    } catch (py::error_already_set& raised) {
      if (first) {
        addNote(first, raised.value());
      } else {
        first = raised.value();
      }
    }
  }
  return first;
}

}  // namespace tb::python

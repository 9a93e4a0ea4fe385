#include "python/call.h"

#include <boost/container/small_vector.hpp>
#include <exception>
#include <new>
#include <span>
#include <utility>

#include "python/bridge.h"
#include "python/inputs.h"
#include "python/messages.h"
#include "python/python_values.h"

namespace py = pybind11;

namespace tb::python {
namespace {

using Outputs = boost::container::small_vector<vxArrayPtr, 4>;

// No operation has more than three results; what is beyond that only has to be bounded.
constexpr Py_ssize_t kMaxOutputs = 1024;

// The arguments of `call` as Python hands them over.
struct Arguments {
  PyObject* operation = nullptr;
  std::span<PyObject* const> inputs;
  Py_ssize_t outputs = 1;
};

Py_ssize_t outputCount(PyObject* value) {
  const Py_ssize_t count = PyNumber_AsSsize_t(value, nullptr);
  if (count == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
  if (count < 0 || count > kMaxOutputs) {
    throw py::value_error("call(): outputs must be between 0 and 1024");
  }
  return count;
}

void readKeyword(PyObject* name, PyObject* value, Arguments& arguments) {
  if (PyUnicode_CompareWithASCIIString(name, "outputs") == 0) {
    arguments.outputs = outputCount(value);
  } else if (arguments.operation == nullptr &&
             PyUnicode_CompareWithASCIIString(name, "operation") == 0) {
    arguments.operation = value;
  } else {
    PyErr_Format(PyExc_TypeError, "call() got an unexpected keyword argument %R", name);
    throw py::error_already_set();
  }
}

Arguments readArguments(PyObject* const* values, Py_ssize_t count, PyObject* names) {
  Arguments arguments;
  if (count > 0) {
    arguments.operation = values[0];
    arguments.inputs = {values + 1, static_cast<std::size_t>(count - 1)};
  }
  const Py_ssize_t nameCount = names == nullptr ? 0 : PyTuple_GET_SIZE(names);
  for (Py_ssize_t index = 0; index < nameCount; ++index) {
    readKeyword(PyTuple_GET_ITEM(names, index), values[count + index], arguments);
  }
  if (arguments.operation == nullptr) {
    throw py::type_error("call() missing 1 required positional argument: 'operation'");
  }
  return arguments;
}

// An "open" whose result cannot be delivered has left a file open that nobody can name any more.
void closeUndelivered(PyObject* operation, const Outputs& outputs) {
  if (PyUnicode_CompareWithASCIIString(operation, "open") != 0) return;
  if (outputs.empty() || outputs[0] == nullptr) return;
  const vxArrayPtr close = matrix::create("close");
  const vxArray* const inputs[] = {close.get(), outputs[0].get()};
  (void)callModule({}, inputs);
}

// Sets the exception and returns null, as Python's C functions do. Throwing it as well would double
// what an error costs.
py::object failWith(const py::object& exception) {
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
  return {};
}

// Ends a failed call. An exception that a warning became explains the failure: it is the context.
py::object fail(const Outcome& outcome, py::object fromWarning) {
  if (outcome.error == nullptr) std::rethrow_exception(outcome.failure);
  const py::object error = errorObject(*outcome.error, outcome.diagnostics);
  if (fromWarning) PyException_SetContext(error.ptr(), fromWarning.release().ptr());
  return failWith(error);
}

py::object results(Outputs& outputs) {
  if (outputs.empty()) return py::none();
  if (outputs.size() == 1) return pythonValue(std::move(outputs[0]));
  py::tuple values(outputs.size());
  for (std::size_t slot = 0; slot < outputs.size(); ++slot) {
    values[slot] = pythonValue(std::move(outputs[slot]));
  }
  return values;
}

// Hands over what a call that succeeded has left: the result, or null with an exception set.
using Deliver = py::object(const Arguments& arguments, Outputs& outputs, const Outcome& outcome);

py::object deliver(const Arguments& arguments, Outputs& outputs, const Outcome& outcome) {
  if (outcome.warnings.empty()) return results(outputs);
  const py::object fromWarning = issueWarnings(outcome.warnings);
  if (!fromWarning) return results(outputs);
  closeUndelivered(arguments.operation, outputs);
  return failWith(fromWarning);
}

py::object deliverWithWarnings(const Arguments&, Outputs& outputs, const Outcome& outcome) {
  return py::make_tuple(results(outputs), warningObjects(outcome.warnings));
}

// The result, or null with a Python exception set.
py::object call(const Arguments& arguments, Deliver* deliverResult) {
  Inputs inputs(arguments.operation);
  for (PyObject* const input : arguments.inputs) inputs.add(input);
  Outputs outputs(static_cast<std::size_t>(arguments.outputs));
  const Outcome outcome = callModule({outputs.data(), outputs.size()}, inputs.arrays());
  if (outcome.failure != nullptr) {
    py::object fromWarning;
    if (!outcome.warnings.empty()) fromWarning = issueWarnings(outcome.warnings);
    return fail(outcome, std::move(fromWarning));
  }
  inputs.keepOperationName();
  return deliverResult(arguments, outputs, outcome);
}

// Sets the Python exception that stands for the C++ exception being handled.
void setPythonException() {
  try {
    throw;
  } catch (py::error_already_set& raised) {
    raised.restore();
  } catch (const py::builtin_exception& raised) {
    raised.set_error();
  } catch (const foundation::core::except::IMsgIDException& error) {
    setError(error.message(), {});
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_RuntimeError, error.what());
  } catch (...) {
    PyErr_SetString(PyExc_RuntimeError, "unknown exception");
  }
}

template <Deliver* deliverResult>
PyObject* callFromPython(PyObject*, PyObject* const* values, Py_ssize_t count,
                         PyObject* names) noexcept {
  try {
    return call(readArguments(values, count, names), deliverResult).release().ptr();
  } catch (...) {
    try {
      setPythonException();
    } catch (...) {
      PyErr_NoMemory();
    }
    return nullptr;
  }
}

constexpr const char* kDocumentation =
    "call(operation, *inputs, outputs=1)\n"
    "--\n"
    "\n"
    "Run one operation of the module and return what its output slots hold.\n"
    "\n"
    "The result is the value itself for outputs=1, a tuple for more, None for 0;\n"
    "a slot that the operation left empty is None. Raises tagbridge.Error when the\n"
    "operation fails and TypeError, before anything is called, for an argument that\n"
    "has no counterpart among the host's arrays; its message counts the arguments\n"
    "of this function from 1, so that argument 2 is the first input.";

constexpr const char* kCollectDocumentation =
    "collect(operation, *inputs, outputs=1)\n"
    "--\n"
    "\n"
    "The same as call, but return the result and a list of the warnings, which are not issued.";

// PyMethodDef holds functions of every signature as one type.
template <Deliver* deliverResult>
PyMethodDef method(const char* name, const char* documentation) {
  return {
      name,
      reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&callFromPython<deliverResult>)),
      METH_FASTCALL | METH_KEYWORDS, documentation};
}

PyMethodDef s_methods[] = {method<deliver>("call", kDocumentation),
                           method<deliverWithWarnings>("collect", kCollectDocumentation)};

}  // namespace

void addCall(const py::object& extension) {
  const py::str package("tagbridge");
  for (PyMethodDef& definition : s_methods) {
    const auto function = py::reinterpret_steal<py::object>(
        PyCFunction_NewEx(&definition, extension.ptr(), package.ptr()));
    if (!function) throw py::error_already_set();
    extension.attr(definition.ml_name) = function;
  }
}

}  // namespace tb::python

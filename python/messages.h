// The module's errors and warnings as Python's.
#pragma once

#include <vector>

#include "host/errors.h"
#include "python/numpy_api.h"
#include "runtime/loader.h"

namespace tb::python {

// Looks up the exception classes, which are written in Python. Call it before anything else here.
void importMessageClasses();

// A tagbridge.Error with everything that is known about the error.
pybind11::object errorObject(const resource_core::BaseMsgID& error,
                             const std::vector<runtime::Diagnostic>& diagnostics);

// Sets that error as the current Python exception.
void setError(const resource_core::BaseMsgID& error,
              const std::vector<runtime::Diagnostic>& diagnostics);

// A tagbridge.Warning for each of them.
pybind11::list warningObjects(const std::vector<resource_core::BaseMsgID>& warnings);

// Issues every warning through warnings.warn, for the line that made the call. Returns the
// exception that the first of them became when a filter turns warnings into errors, with the texts
// of further ones as its notes; else a null object. No Python exception is set afterwards.
pybind11::object issueWarnings(const std::vector<resource_core::BaseMsgID>& warnings);

}  // namespace tb::python

// NumPy's C interface for every source of the extension. One of them, which defines
// TAGBRIDGE_IMPORT_NUMPY first, holds the table of functions that the others use.
#pragma once

#include "python/python_objects.h"

#define NPY_NO_DEPRECATED_API NPY_1_20_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL tagbridge_numpy_functions
#ifndef TAGBRIDGE_IMPORT_NUMPY
#define NO_IMPORT_ARRAY
#endif
#include <numpy/arrayobject.h>
#include <numpy/arrayscalars.h>

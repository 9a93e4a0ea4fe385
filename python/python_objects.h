// pybind11's objects and calls of Python. What exposes functions to Python is in pybind11.h, which
// takes as long to compile as all else in a source together: only the sources of modules have it.
#pragma once

#include <pybind11/cast.h>

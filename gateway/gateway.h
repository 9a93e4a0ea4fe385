// The entry that the host looks up by name and calls.
#pragma once

#include "core/export.h"
#include "host/array.h"

// Runs the operation that `inputs[0]`, a char array, names with the inputs that follow, and stores
// its results in the `outputCount` slots at `outputs`, which the host owns. Failures leave as typed
// exceptions (host/errors.h) after the host's reporter was told; std::bad_alloc passes as it is.
// Raises InvalidOperation(name) and wrongNumberOfInputs, argumentOutOfBounds when a number does not
// fit the TIFF type it is meant for, and whatever the operation raises.
extern "C" TAGBRIDGE_EXPORT void tagbridge(int outputCount, vxArrayPtr* outputs, int inputCount,
                                           const vxArray* const* inputs);

// The two operations on tags.
#pragma once

#include "core/operation.h"

namespace tb {

// "getField": stores the value of the tag `inputs[1]` of the current directory of the file
// `inputs[0]` in slot 0. Nothing in the file or the handle changes.
Handler TIFFGetField_handler;

// "setField": stores the value `inputs[2]` for the tag `inputs[1]` in the current directory of the
// file `inputs[0]`. Every check comes before the store, so that an error leaves the directory as it
// was; the exceptions are told where they are raised.
Handler TIFFSetField_handler;

}  // namespace tb

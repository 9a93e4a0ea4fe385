#pragma once

#include "core/image_metadata.h"

namespace tb {

// libtiff's function that encodes a block of the current directory, for messages.
const char* blockWriteName(const TiffImageMetaData_& record);

// Whether libtiff's encoder may be asked for a block of the current directory. Some encoders go on
// after their own set-up has refused the directory, when a decoder was set up before, and then
// write through pointers that were never set. When one may not, libtiff's error handlers hear why.
bool canEncode(const TiffImageMetaData_& record);

}  // namespace tb

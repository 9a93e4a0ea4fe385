// File objects as sources of bytes.
#pragma once

#include <memory>

#include "runtime/file_objects.h"
#include "runtime/file_source.h"
#include "runtime/open_mode.h"

namespace tb::runtime {

// The source of an object, which is emptied first when the mode says so.
// Throws FileObjectFailure when that fails.
std::unique_ptr<FileSource> openObject(const NamedFileObject& named, const OpenMode& mode);

}  // namespace tb::runtime

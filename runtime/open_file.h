// Files of the file system that libtiff reads and writes.
#pragma once

#include <memory>
#include <string>

#include "runtime/file_source.h"
#include "runtime/open_mode.h"

namespace tb::runtime {

// Opens a regular file without ever waiting, as its mode says: an existing one, or a new one, or an
// existing one that is emptied; and maps it where the mode says so. A file that is open here is not
// emptied, because a map of it would lose its pages. Null when that fails, and then libtiff's error
// handler has heard the reason.
std::unique_ptr<FileSource> openRegularFile(const std::string& name, const OpenMode& mode);

}  // namespace tb::runtime

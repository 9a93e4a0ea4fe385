// How much memory a directory of a file makes libtiff take.
#pragma once

#include <cstdint>
#include <string>

#include "runtime/file_source.h"

namespace tb::runtime {

// A directory's tags, and the tables that libtiff makes for it, may take as much memory as this, or
// four times the size of the file when that is more. The values of an honest directory lie side by
// side in the file; others may all be the same bytes.
inline constexpr std::uint64_t kDirectoryMemory = std::uint64_t{64} << 20;

// Whether the file's first directory keeps within that, or no directory can be found. `forWriting`
// is a handle opened r+, on which libtiff builds tables without a look at the size of the file.
// libtiff's error handler hears why when the answer is no, or the file cannot be read at all.
bool firstDirectoryFits(FileSource& source, const std::string& name, bool forWriting);

}  // namespace tb::runtime

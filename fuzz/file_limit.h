// How large a file may become.
#pragma once

#include <sys/resource.h>

namespace tb::fuzz {

// What a sequence may write when nothing is limited.
inline constexpr rlim_t kLargestFile = rlim_t{64} << 20;

// No file of the process grows past so many bytes from here on; inputs of sequences do all the
// same.
void limitFileSize(rlim_t bytes);

}  // namespace tb::fuzz

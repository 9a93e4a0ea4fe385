// How large a file may become, and what else bounds the work of targets that write.
#pragma once

#include <sys/resource.h>

namespace tb::fuzz {

// What a sequence may write when nothing is limited.
inline constexpr rlim_t kLargestFile = rlim_t{64} << 20;

// From here on no file of the process grows past so many bytes, but for the length of a sequence's
// input, which a fuzzer must be able to store.
void limitFileSize(rlim_t bytes);

// From here on files are of kLargestFile at most, and arrays so small that coding them ends within
// the time limit under both sanitizers, even as a fax.
void limitWrites();

// From here on arrays may be as large as targets that only read allow them to be.
void limitReads();

}  // namespace tb::fuzz

// The files that sequences of operations start from: small ones of every kind that libtiff treats
// in a way of its own, written by libtiff alone.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace tb::fuzz {

using Bytes = std::vector<unsigned char>;

struct StartingFile {
  const char* name;
  Bytes contents;
  bool whole;  // libtiff alone reads every directory and comes to an end
};

// Made at the first use. A kind that this libtiff cannot write is left out.
std::span<const StartingFile> startingFiles();

}  // namespace tb::fuzz

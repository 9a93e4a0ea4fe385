#include "fuzz/finding.h"

#include <cstdio>
#include <cstdlib>

namespace tb::fuzz {

void fail(const std::string& finding) {
  std::fprintf(stderr, "finding: %s\n", finding.c_str());
  std::abort();
}

}  // namespace tb::fuzz

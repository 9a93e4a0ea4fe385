#pragma once

#include <vector>

#include "tests/core/provocations.h"

namespace tb::test {

// The errors of reads and writes of images.
std::vector<Provocation> imageProvocations();

}  // namespace tb::test

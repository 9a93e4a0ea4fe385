#pragma once

#include <vector>

#include "tests/core/provocations.h"

namespace tb::test {

// The errors of getField and setField.
std::vector<Provocation> tagProvocations();

}  // namespace tb::test

// How a target says that something does not hold.
#pragma once

#include <string>

namespace tb::fuzz {

// Ends the process with a message, a finding.
[[noreturn]] void fail(const std::string& finding);

}  // namespace tb::fuzz

// Where errors and warnings go: the embedding program installs what receives them. A sink serves
// the whole process; install it while no call of the module runs.
#pragma once

#include <functional>

#include "host/errors.h"

namespace tb::runtime {

using ErrorReporter = std::function<void(const foundation::core::except::IUserException&)>;
using WarningSink = std::function<void(const resource_core::BaseMsgID&)>;

// Receives every error just before it is thrown. None is installed by default; an empty function
// removes the one that is. An exception that it throws takes the error's place.
void setErrorReporter(ErrorReporter reporter);

// Receives every warning. By default, and after an empty function, a warning's identifier and text
// are a line on standard error. An exception that it throws ends the operation.
void setWarningSink(WarningSink sink);

}  // namespace tb::runtime

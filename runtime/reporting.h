// Where errors and warnings go: the embedding program installs what receives them. A sink serves
// the whole process and is called on the thread whose call it is about, so by several at a time;
// install it while no call of the module runs.
#pragma once

#include <functional>

#include "host/errors.h"

namespace tb::runtime {

using ErrorReporter = std::function<void(const foundation::core::except::IUserException&)>;
using WarningSink = std::function<void(const resource_core::BaseMsgID&)>;

// Receives every error just before it is thrown. None is installed by default; an empty function
// removes the one that is. An exception that it throws takes the error's place.
void setErrorReporter(ErrorReporter reporter);

// Receives every warning; writeWarning by default, and after an empty function. An exception that
// it throws ends the operation.
void setWarningSink(WarningSink sink);

// Writes a warning's text and identifier as a line on standard error.
void writeWarning(const resource_core::BaseMsgID& warning);

}  // namespace tb::runtime

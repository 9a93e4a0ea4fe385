// Message identifiers and exceptions, and the way from the module to the installed sinks. The
// members that every user of host/errors.h links against are defined here, once in the process, so
// that an exception of the module is caught by its type outside.
#include "runtime/reporting.h"

#include <fmt/format.h>

#include <cstdio>

#include "runtime/catalog.h"

namespace resource_core {

Argument::Argument(const char* text) : variant(std::string(text)) {}
Argument::Argument(const char16_t* text) : variant(std::u16string(text)) {}
Argument::Argument(std::string text) : variant(std::move(text)) {}
Argument::Argument(std::u16string text) : variant(std::move(text)) {}
Argument::Argument(const Argument& other) = default;
Argument::Argument(Argument&& other) noexcept = default;
Argument& Argument::operator=(const Argument& other) = default;
Argument& Argument::operator=(Argument&& other) noexcept = default;
Argument::~Argument() = default;

Argument::Argument(std::uint64_t bits, bool negative) : variant(static_cast<std::int64_t>(bits)) {
  if (!negative && std::get<std::int64_t>(*this) < 0) emplace<std::uint64_t>(bits);
}

BaseMsgID::BaseMsgID(std::string component, std::string name)
    : component_(std::move(component)), name_(std::move(name)) {}
BaseMsgID::BaseMsgID(const BaseMsgID& other) = default;
BaseMsgID::BaseMsgID(BaseMsgID&& other) noexcept = default;
BaseMsgID& BaseMsgID::operator=(const BaseMsgID& other) = default;
BaseMsgID& BaseMsgID::operator=(BaseMsgID&& other) noexcept = default;
BaseMsgID::~BaseMsgID() = default;

void BaseMsgID::append(Argument argument) { arguments_.push_back(std::move(argument)); }

std::string BaseMsgID::identifier() const { return component_ + ":" + name_; }

}  // namespace resource_core

namespace foundation::core::except {

IUserException::~IUserException() = default;

IMsgIDException::IMsgIDException(resource_core::BaseMsgID message) : message_(std::move(message)) {}
IMsgIDException::IMsgIDException(const IMsgIDException&) = default;
IMsgIDException& IMsgIDException::operator=(const IMsgIDException&) = default;
IMsgIDException::~IMsgIDException() = default;

std::string IMsgIDException::messageText() const { return tb::runtime::messageText(message_); }

}  // namespace foundation::core::except

namespace tb::runtime {

void writeWarning(const resource_core::BaseMsgID& warning) {
  fmt::print(stderr, "warning: {} [{}]\n", warningText(warning), warning.identifier());
}

namespace {

// Neither is ever destroyed, since a process may end while threads of it report.
ErrorReporter& errorReporter() {
  static auto& reporter = *new ErrorReporter;
  return reporter;
}

WarningSink& warningSink() {
  static auto& sink = *new WarningSink(writeWarning);
  return sink;
}

}  // namespace

void setErrorReporter(ErrorReporter reporter) { errorReporter() = std::move(reporter); }

void setWarningSink(WarningSink sink) {
  warningSink() = sink ? std::move(sink) : WarningSink(writeWarning);
}

}  // namespace tb::runtime

void matrix::detail::do_legacy_vx_error(const foundation::core::except::IUserException& error) {
  if (const auto& report = tb::runtime::errorReporter()) report(error);
}

void vxWarningMsgId(const resource_core::BaseMsgID& warning) {
  tb::runtime::warningSink()(warning);
}

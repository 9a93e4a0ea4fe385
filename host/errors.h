// How errors and warnings reach the host: an identifier and ordered arguments. The host's message
// catalog holds the texts and fills the arguments in; the module carries no text.
#pragma once

#include <concepts>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace resource_core {

// What a message is filled in with: an integer, narrow text (one byte a character) or UTF-16 text
// (file names). An integer is held as uint64 when it is 2^63 or more, else as int64: equal ones are
// equal whatever types they came from.
class Argument : public std::variant<std::int64_t, std::uint64_t, std::string, std::u16string> {
 public:
  // NOLINTBEGIN(google-explicit-constructor): messages are given plain numbers and texts
  template <std::integral T>
  Argument(T value) : Argument(static_cast<std::uint64_t>(value), value < 0) {}
  Argument(const char* text);
  Argument(const char16_t* text);
  Argument(std::string text);
  Argument(std::u16string text);
  // NOLINTEND(google-explicit-constructor)
  Argument(const Argument& other);
  Argument(Argument&& other) noexcept;
  Argument& operator=(const Argument& other);
  Argument& operator=(Argument&& other) noexcept;
  ~Argument();

 private:
  // The integer of these 64 bits.
  Argument(std::uint64_t bits, bool negative);
};

// A message identifier, "component:name", with its arguments in order.
class BaseMsgID {
 public:
  using Argument = resource_core::Argument;

  BaseMsgID(std::string component, std::string name);
  BaseMsgID(const BaseMsgID& other);
  BaseMsgID(BaseMsgID&& other) noexcept;
  BaseMsgID& operator=(const BaseMsgID& other);
  BaseMsgID& operator=(BaseMsgID&& other) noexcept;
  ~BaseMsgID();

  void append(Argument argument);

  const std::string& component() const noexcept { return component_; }
  const std::string& name() const noexcept { return name_; }
  const std::vector<Argument>& arguments() const noexcept { return arguments_; }
  // Component, a colon, name.
  std::string identifier() const;

 private:
  std::string component_;
  std::string name_;
  std::vector<Argument> arguments_;
};

}  // namespace resource_core

namespace foundation::core::except {

// What the host's error reporter accepts. A host may keep a clone and rethrow it later; the clone
// has the same dynamic type.
class IUserException {
 public:
  IUserException() = default;
  IUserException(const IUserException&) = default;
  IUserException& operator=(const IUserException&) = default;
  virtual ~IUserException();
  virtual std::unique_ptr<IUserException> clone() const = 0;
  [[noreturn]] virtual void rethrow() const = 0;
};

// An error that is named by a message identifier.
class IMsgIDException : public IUserException {
 public:
  explicit IMsgIDException(resource_core::BaseMsgID message);
  IMsgIDException(const IMsgIDException&);
  IMsgIDException& operator=(const IMsgIDException&);
  ~IMsgIDException() override;

  const resource_core::BaseMsgID& message() const noexcept { return message_; }
  // The catalog's text with the arguments filled in, UTF-8.
  std::string messageText() const;

 private:
  resource_core::BaseMsgID message_;
};

// One error class for each identifier: `Id` is an empty tag type named after it, so that host code
// can catch one error by its type.
template <class Id, class Base>
class Exception final : public IMsgIDException, public Base {
 public:
  explicit Exception(resource_core::BaseMsgID message) : IMsgIDException(std::move(message)) {}

  std::unique_ptr<IUserException> clone() const override {
    // std::make_unique would be one more instantiation of unique_ptr for every error that a source
    // can raise, and a third of what such a source takes to compile.
    return std::unique_ptr<IUserException>(new Exception(*this));
  }
  [[noreturn]] void rethrow() const override { throw *this; }
};

}  // namespace foundation::core::except

namespace matrix::detail {

// Tells the host about an error that is about to be thrown. Returns; the caller throws.
void do_legacy_vx_error(const foundation::core::except::IUserException& error);

}  // namespace matrix::detail

// Issues a warning; the caller goes on. The host may throw to stop it, and then the operation ends
// as with any other exception.
void vxWarningMsgId(const resource_core::BaseMsgID& warning);

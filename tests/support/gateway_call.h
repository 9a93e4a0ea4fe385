// Calls of the gateway as a host makes them, and whole checks of what came of them.
//
//   OpenedFile file(path, "r");
//   const vxArrayPtr strip = call("readEncodedStrip", file, 0);
//   expectError<Tiff::badStripNumber>({4}, [&] { call("readEncodedStrip", file, 4); });
//
// Errors and warnings are recorded for the whole process. A call starts with an empty record, so
// that `warnings()` afterwards are those of the last call.
#pragma once

#include <gtest/gtest.h>
#include <tiffio.h>

#include <concepts>
#include <filesystem>
#include <initializer_list>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <vector>

#include "core/errors.h"
#include "host/array.h"
#include "tests/support/arrays.h"

namespace tb::test {

using Argument = resource_core::BaseMsgID::Argument;
using Arguments = std::vector<Argument>;

// An error or warning as the host is told about it.
struct Message {
  std::string identifier;
  Arguments arguments;

  bool operator==(const Message&) const = default;
};
void PrintTo(const Message& message, std::ostream* out);

// A warning of the module's own, with its arguments.
Message warningOf(Warning warning, const Arguments& arguments);

// The warnings of the last call in order, libtiff's messages among them; those of the module
// alone; and the texts of libtiff's alone.
const std::vector<Message>& warnings();
std::vector<Message> moduleWarnings();
std::vector<std::string> libtiffMessages();

// The errors that were reported since the last call began, and an empty record for code that does
// not go through `call`.
const std::vector<Message>& reportedErrors();
void clearRecord();

// Puts the record back in place of a reporter and a warning sink that a test installed.
void recordAgain();

// An input of a call: a number stands for a double scalar and text for a char row; an array is
// borrowed, or owned when it is a temporary.
class Input {
 public:
  template <class T>
  requires std::integral<T> || std::floating_point<T> Input(T value)
      : Input(static_cast<double>(value)) {}
  Input(double value);
  Input(const char* bytes);
  Input(const std::string& bytes);
  Input(const std::filesystem::path& path);
  Input(const vxArrayPtr& array);
  Input(vxArrayPtr&& array);
  Input(const Input& other);
  Input(Input&& other) noexcept;
  Input& operator=(const Input& other);
  Input& operator=(Input&& other) noexcept;
  ~Input();

  const vxArray* array() const noexcept { return array_; }

 private:
  std::shared_ptr<vxArray> owner_;
  const vxArray* array_;
};
using Inputs = std::vector<Input>;

// Calls the gateway with `outputCount` output slots and returns what the operation stored; a slot
// that it left alone is null. The inputs are the host's, the operation name the first of them.
std::vector<vxArrayPtr> callGateway(int outputCount, const Inputs& inputs);

// The same with the one slot that most operations fill.
vxArrayPtr callGateway(std::initializer_list<Input> inputs);

// Both by parts.
template <class... In>
std::vector<vxArrayPtr> callFor(int outputCount, const char* operation, In&&... inputs) {
  return callGateway(outputCount, {operation, std::forward<In>(inputs)...});
}
template <class... In>
vxArrayPtr call(const char* operation, In&&... inputs) {
  return callGateway({operation, std::forward<In>(inputs)...});
}

// The first element of what an operation returned, as a number.
template <class... In>
double numberFrom(const char* operation, In&&... inputs) {
  return vxGetScalar(call(operation, std::forward<In>(inputs)...).get());
}

// A file that is opened through the gateway and closed through it at the end of the scope.
class OpenedFile {
 public:
  OpenedFile(const std::filesystem::path& path, const char* mode);
  ~OpenedFile();
  OpenedFile(const OpenedFile&) = delete;
  OpenedFile& operator=(const OpenedFile&) = delete;

  // Closes the file now; the identifier stays, and is stale.
  void close();
  operator Input() const { return id_; }
  const vxArrayPtr& id() const noexcept { return id_; }
  // libtiff's handle, to look behind the module's back.
  TIFF* handle() const noexcept;

 private:
  vxArrayPtr id_;
};

// Sets tags through the gateway in the given order.
struct Tag {
  double number;
  Input value;
};
void setFields(const Input& file, const std::vector<Tag>& tags);

// What a check calls once, before it returns.
class Act {
 public:
  template <class Function>
  Act(const Function& function)
      : function_(&function),
        call_([](const void* that) { (*static_cast<const Function*>(that))(); }) {}
  void operator()() const { call_(function_); }

 private:
  const void* function_;
  void (*call_)(const void*);
};

// The class that an identifier's error is thrown as.
struct ErrorClass {
  std::string identifier;
  const std::type_info* type;
};
template <class Id>
ErrorClass errorClass() {
  return {std::string(Id::component) + ":" + Id::name,
          &typeid(foundation::core::except::Exception<Id, std::exception>)};
}

// Expects that `act`, which makes one call, ends in the error Id with these arguments: thrown as
// Id's class, reported to the host once and before that, with the output slots left as they were.
void expectError(const ErrorClass& expected, const Arguments& arguments, Act act);
template <class Id>
void expectError(const Arguments& arguments, Act act) {
  expectError(errorClass<Id>(), arguments, act);
}

}  // namespace tb::test

#include "tests/support/gateway_call.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "gateway/gateway.h"
#include "runtime/loader.h"
#include "runtime/reporting.h"

namespace tb::test {
namespace {

constexpr std::string_view kModuleComponent = "KORVAL:pictoria:Tiff:";
constexpr std::string_view kUntouched = "this output slot was not touched";

Message messageOf(const resource_core::BaseMsgID& message) {
  return {message.identifier(), message.arguments()};
}

// Receives what the process reports, for as long as it runs.
struct Record {
  Record() { install(); }

  void install() {
    runtime::setErrorReporter([this](const foundation::core::except::IUserException& error) {
      const auto& named = dynamic_cast<const foundation::core::except::IMsgIDException&>(error);
      errors.push_back(messageOf(named.message()));
    });
    runtime::setWarningSink([this](const resource_core::BaseMsgID& warning) {
      warnings.push_back(messageOf(warning));
    });
  }

  std::vector<Message> errors;
  std::vector<Message> warnings;
  bool slotsUntouched = true;
};

Record& record() {
  // Never destroyed, since the host may report until the process ends.
  static auto* const theRecord = new Record;
  return *theRecord;
}

// Without this the first messages of a test that makes no call would go to the host's defaults.
[[maybe_unused]] const Record& recordFromTheStart = record();

bool holdsMarker(const vxArrayPtr& slot) {
  return slot != nullptr && vxGetClassID(slot.get()) == vxCHAR && textOf(slot) == kUntouched;
}

std::vector<vxArrayPtr> markedSlots(int count) {
  std::vector<vxArrayPtr> slots(static_cast<std::size_t>(count));
  for (vxArrayPtr& slot : slots) slot = text(kUntouched);
  return slots;
}

void printArgument(const Argument& argument, std::ostream& out) {
  if (const auto* number = std::get_if<std::int64_t>(&argument)) out << *number;
  if (const auto* large = std::get_if<std::uint64_t>(&argument)) out << *large;
  if (const auto* narrow = std::get_if<std::string>(&argument)) out << '"' << *narrow << '"';
  if (const auto* wide = std::get_if<std::u16string>(&argument))
    out << 'u' << testing::PrintToString(std::filesystem::path(*wide).string());
}

}  // namespace

void PrintTo(const Message& message, std::ostream* out) {
  *out << message.identifier << '(';
  for (std::size_t i = 0; i < message.arguments.size(); ++i) {
    if (i != 0) *out << ", ";
    printArgument(message.arguments[i], *out);
  }
  *out << ')';
}

Message warningOf(Warning warning, const Arguments& arguments) {
  return {warningMessage(warning).identifier(), arguments};
}

const std::vector<Message>& warnings() { return record().warnings; }

std::vector<Message> moduleWarnings() {
  std::vector<Message> kept;
  std::ranges::copy_if(record().warnings, std::back_inserter(kept), [](const Message& message) {
    return message.identifier.starts_with(kModuleComponent);
  });
  return kept;
}

std::vector<std::string> libtiffMessages() {
  std::vector<std::string> texts;
  for (const Message& message : record().warnings)
    if (!message.identifier.starts_with(kModuleComponent))
      texts.push_back(std::get<std::string>(message.arguments.back()));
  return texts;
}

const std::vector<Message>& reportedErrors() { return record().errors; }

void clearRecord() {
  record().errors.clear();
  record().warnings.clear();
  record().slotsUntouched = true;
}

void recordAgain() { record().install(); }

Input::Input(double value) : Input(row({value})) {}
Input::Input(const char* bytes) : Input(text(bytes)) {}
Input::Input(const std::string& bytes) : Input(text(bytes)) {}
Input::Input(const std::filesystem::path& path) : Input(path.string()) {}
Input::Input(const vxArrayPtr& array) : array_(array.get()) {}
Input::Input(vxArrayPtr&& array) : owner_(std::move(array)), array_(owner_.get()) {}
Input::Input(const Input& other) = default;
Input::Input(Input&& other) noexcept = default;
Input& Input::operator=(const Input& other) = default;
Input& Input::operator=(Input&& other) noexcept = default;
Input::~Input() = default;

std::vector<vxArrayPtr> callGateway(int outputCount, const Inputs& inputs) {
  clearRecord();
  std::vector<const vxArray*> arrays;
  for (const Input& input : inputs) arrays.push_back(input.array());
  std::vector<vxArrayPtr> slots = markedSlots(outputCount);
  try {
    const runtime::GatewayScope inside;
    tagbridge(outputCount, slots.data(), static_cast<int>(arrays.size()), arrays.data());
  } catch (...) {
    record().slotsUntouched = std::ranges::all_of(slots, holdsMarker);
    throw;
  }
  for (vxArrayPtr& slot : slots)
    if (holdsMarker(slot)) slot.reset();
  return slots;
}

vxArrayPtr callGateway(std::initializer_list<Input> inputs) {
  return std::move(callGateway(1, Inputs(inputs)).front());
}

OpenedFile::OpenedFile(const std::filesystem::path& path, const char* mode)
    : id_(call("open", path, mode)) {}

OpenedFile::~OpenedFile() { close(); }

void OpenedFile::close() { call("close", id_); }

TIFF* OpenedFile::handle() const noexcept {
  std::uintptr_t address = 0;
  std::memcpy(&address, vxGetData(id_.get()), sizeof address);
  return reinterpret_cast<TIFF*>(address);
}

void setFields(const Input& file, const std::vector<Tag>& tags) {
  for (const Tag& tag : tags) call("setField", file, tag.number, tag.value);
}

void expectError(const ErrorClass& expected, const Arguments& arguments, Act act) {
  SCOPED_TRACE(expected.identifier);
  try {
    act();
    ADD_FAILURE() << "nothing was raised";
  } catch (const foundation::core::except::IMsgIDException& error) {
    const Message message{expected.identifier, arguments};
    EXPECT_EQ(messageOf(error.message()), message);
    EXPECT_TRUE(typeid(error) == *expected.type) << typeid(error).name();
    EXPECT_EQ(reportedErrors(), std::vector<Message>{message});
    EXPECT_TRUE(record().slotsUntouched) << "an output slot was changed before the error";
  }
}

}  // namespace tb::test

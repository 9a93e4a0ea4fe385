#include "core/errors.h"

#include <gtest/gtest.h>

#include <iterator>
#include <limits>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "runtime/reporting.h"
#include "tests/support/gateway_call.h"

namespace tb::test {
namespace {

namespace except = foundation::core::except;

template <class Id>
using ErrorOf = except::Exception<Id, std::exception>;

// One row for each identifier of the list: its name, and raising it with three arguments.
struct Row {
  const char* identifier;
  void (*raiseIt)();
  const std::type_info& itsClass;
};

const Row kRows[] = {
#define ROW(group, id)                                                             \
  {"KORVAL:pictoria:" #group ":" #id, [] { raise<group::id>(7, "tag", u"file"); }, \
   typeid(ErrorOf<group::id>)},
    TAGBRIDGE_ERRORS(ROW)
#undef ROW
};

std::unique_ptr<except::IUserException> thrownBy(Act action) {
  try {
    action();
  } catch (const except::IUserException& error) {
    return error.clone();
  }
  return nullptr;
}

const except::IMsgIDException& named(const except::IUserException& error) {
  return dynamic_cast<const except::IMsgIDException&>(error);
}

TEST(Errors, ThereAre109DifferentIdentifiersTwoOfThemOfTheValidateGroup) {
  std::set<std::string> identifiers;
  for (const Row& row : kRows) identifiers.insert(row.identifier);
  EXPECT_EQ(identifiers.size(), 109U);
  EXPECT_TRUE(identifiers.contains("KORVAL:pictoria:validate:argumentOutOfBounds"));
  EXPECT_TRUE(identifiers.contains("KORVAL:pictoria:validate:wrongNumberOfInputs"));
}

TEST(Errors, IrregularSpellingsAreKept) {
  std::set<std::string> identifiers;
  for (const Row& row : kRows) identifiers.insert(row.identifier);
  for (const char* name :
       {"tileWritefailure", "stripWriteFailure", "badSampleFormatfor1Bps", "colorMapShouldbeSet",
        "unableToChangeSubdir", "unableToChangeDir", "InvalidOperation", "bad2DtagValue"})
    EXPECT_TRUE(identifiers.contains(std::string("KORVAL:pictoria:Tiff:") + name)) << name;
}

TEST(Errors, EachIsRaisedAsItsOwnClassWithItsIdentifierAndArguments) {
  const Arguments arguments{7, "tag", u"file"};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.identifier);
    const auto error = thrownBy(row.raiseIt);
    ASSERT_NE(error, nullptr);
    const auto& thrown = *error;
    EXPECT_TRUE(typeid(thrown) == row.itsClass);
    EXPECT_EQ(named(*error).message().identifier(), row.identifier);
    EXPECT_EQ(named(*error).message().arguments(), arguments);
  }
}

TEST(Errors, NoClassIsCaughtAsAnother) {
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    const auto error = thrownBy(kRows[i].raiseIt);
    const auto& thrown = *error;
    EXPECT_TRUE(typeid(thrown) != kRows[(i + 1) % std::size(kRows)].itsClass)
        << kRows[i].identifier;
  }
}

TEST(Errors, AreIdentifiedExceptionsFirstAndStandardExceptionsSecond) {
  using Error = ErrorOf<Tiff::badFileId>;
  static_assert(std::is_base_of_v<except::IMsgIDException, Error>);
  static_assert(std::is_base_of_v<except::IUserException, Error>);
  static_assert(std::is_base_of_v<std::exception, Error>);
  static_assert(std::is_copy_constructible_v<Error>);

  const Error error(resource_core::BaseMsgID("component", "name"));
  const auto* whole = reinterpret_cast<const char*>(&error);
  const except::IMsgIDException* first = &error;
  const std::exception* second = &error;
  EXPECT_EQ(reinterpret_cast<const char*>(first), whole);
  EXPECT_GT(reinterpret_cast<const char*>(second), whole);
}

TEST(Errors, IdentifierIsComponentColonName) {
  const resource_core::BaseMsgID message("KORVAL:pictoria:Tiff", "badFileId");
  EXPECT_EQ(message.identifier(), message.component() + ":" + message.name());
}

TEST(Errors, CloneRethrowsAsTheSameClass) {
  const auto clone = thrownBy([] { raise<Tiff::badStripNumber>(4); });
  const auto again = thrownBy([&] { clone->rethrow(); });
  ASSERT_NE(dynamic_cast<const ErrorOf<Tiff::badStripNumber>*>(again.get()), nullptr);
  EXPECT_EQ(named(*again).message().arguments(), Arguments{4});
}

TEST(Errors, CanBeCaughtAsStandardExceptions) {
  EXPECT_THROW(raise<Tiff::badFileId>(), std::exception);
}

TEST(Errors, HostIsToldOnceBeforeTheThrow) {
  clearRecord();
  std::size_t reportedWhenCaught = 0;
  try {
    raise<Tiff::badFileId>();
  } catch (const ErrorOf<Tiff::badFileId>&) {
    reportedWhenCaught = reportedErrors().size();
  }
  EXPECT_EQ(reportedWhenCaught, 1U);
}

TEST(Errors, HostMayUnwindByItself) {
  runtime::setErrorReporter(
      [](const except::IUserException&) { throw std::logic_error("the host's own"); });
  EXPECT_THROW(raise<Tiff::badFileId>(), std::logic_error);
  recordAgain();
}

TEST(Errors, IntegersOfAnyWidthTravelAs64Bits) {
  clearRecord();
  const auto raiseIt = [] {
    raise<Tiff::tooManyBytes>(std::uint32_t{4294967295U}, std::int64_t{-1}, std::uint16_t{65535});
  };
  expectError<Tiff::tooManyBytes>({4294967295, -1, 65535}, raiseIt);
}

TEST(Errors, IntegersOfTwoToThe63AndMoreStayPositive) {
  constexpr auto kLargest = std::numeric_limits<std::uint64_t>::max();
  clearRecord();
  const auto raiseIt = [&] { raise<Tiff::badColorMap>(1ULL << 63, kLargest); };
  expectError<Tiff::badColorMap>({1ULL << 63, kLargest}, raiseIt);
  EXPECT_NE(Argument(kLargest), Argument(-1));
  EXPECT_EQ(Argument(std::uint64_t{7}), Argument(7)) << "equal ones compare as such";
}

TEST(FieldStatus, NonzeroPasses) {
  EXPECT_NO_THROW(check_field_status(1, "ImageWidth"));
  EXPECT_NO_THROW(check_field_status(-1, "ImageWidth"));
}

TEST(FieldStatus, ZeroRaisesTagRetrievalFailedWithTheName) {
  clearRecord();
  expectError<Tiff::tagRetrievalFailed>({"ImageWidth"},
                                        [] { check_field_status(0, "ImageWidth"); });
}

TEST(Warnings, AreOfTheTiffGroupAndDoNotStopTheCaller) {
  clearRecord();
  warn(Warning::missingExtraSamples, 4, "text");
  warn(Warning::dataWidthExceedsTileWidth, 1, 2);
  const std::vector<Message> expected{{"KORVAL:pictoria:Tiff:missingExtraSamples", {4, "text"}},
                                      {"KORVAL:pictoria:Tiff:dataWidthExceedsTileWidth", {1, 2}}};
  EXPECT_EQ(warnings(), expected);
}

TEST(Warnings, CarryTheIdentifiersOfTheList) {
  const std::pair<Warning, const char*> rows[] = {
      {Warning::closingFileHandle, "closingFileHandle"},
      {Warning::wrongSizedTagRetrieval, "wrongSizedTagRetrieval"},
      {Warning::badMultipleTagValueRetrieved, "badMultipleTagValueRetrieved"},
      {Warning::missingExtraSamples, "missingExtraSamples"},
      {Warning::dataLengthExceedsRowsPerStrip, "dataLengthExceedsRowsPerStrip"},
      {Warning::dataLengthExceedsTileLength, "dataLengthExceedsTileLength"},
      {Warning::dataWidthExceedsImageWidth, "dataWidthExceedsImageWidth"},
      {Warning::dataWidthExceedsTileWidth, "dataWidthExceedsTileWidth"},
  };
  for (const auto& [warning, name] : rows)
    EXPECT_EQ(warningMessage(warning).identifier(), std::string("KORVAL:pictoria:Tiff:") + name);
}

}  // namespace
}  // namespace tb::test

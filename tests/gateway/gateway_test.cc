#include "gateway/gateway.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <limits>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "core/operation.h"
#include "runtime/loader.h"
#include "tests/support/gateway_call.h"
#include "tests/support/raw_tiff.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct Operation {
  int opcode;
  const char* name;
  const char* tiffName;
  int minInputs, maxInputs;
};
void PrintTo(const Operation& value, std::ostream* out) { *out << value.name; }

// Written down apart from the module's own table, and in its order.
constexpr Operation kOperations[] = {
    {0, "close", "TIFFClose", 1, 1},
    {1, "computeStrip", "TIFFComputeStrip", 2, 3},
    {2, "computeTile", "TIFFComputeTile", 2, 3},
    {3, "currentDirectory", "TIFFCurrentDirectory", 1, 1},
    {5, "getField", "TIFFGetField", 2, 2},
    {6, "getVersion", "TIFFGetVersion", 0, 0},
    {7, "isTiled", "TIFFIsTiled", 1, 1},
    {8, "lastDirectory", "TIFFLastDirectory", 1, 1},
    {9, "numberOfStrips", "TIFFNumberOfStrips", 1, 1},
    {10, "numberOfTiles", "TIFFNumberOfTiles", 1, 1},
    {11, "open", "TIFFOpen", 2, 2},
    {12, "readDirectory", "TIFFReadDirectory", 1, 1},
    {13, "readEncodedStrip", "TIFFReadEncodedStrip", 2, 2},
    {14, "readEncodedTile", "TIFFReadEncodedTile", 2, 3},
    {15, "readRGBAStrip", "TIFFReadRGBAStrip", 2, 2},
    {16, "readRGBATile", "TIFFReadRGBATile", 3, 3},
    {17, "readRGBAImage", "TIFFReadRGBAImage", 1, 1},
    {18, "rewriteDirectory", "TIFFRewriteDirectory", 1, 1},
    {19, "retrieveMetadata", "retrieveMetadata", 1, 1},
    {20, "setDirectory", "TIFFSetDirectory", 2, 2},
    {21, "setField", "TIFFSetField", 3, 3},
    {22, "setSubDirectory", "TIFFSetSubDirectory", 2, 2},
    {23, "writeDirectory", "TIFFWriteDirectory", 1, 1},
    {24, "writeEncodedStrip", "TIFFWriteEncodedStrip", 3, 5},
    {25, "writeEncodedTile", "TIFFWriteEncodedTile", 3, 5},
};

class OperationTable : public testing::TestWithParam<Operation> {
 protected:
  // A call with `count` inputs after the name, all of them the number 0.
  static void callWith(int count) {
    Inputs inputs{GetParam().name};
    for (int i = 0; i < count; ++i) inputs.emplace_back(0);
    callGateway(1, inputs);
  }
};

TEST_P(OperationTable, RecordIsAsDocumented) {
  const Operation& expected = GetParam();
  const s_tagbridge_op* record = opname2opcode(expected.name, expected.minInputs);
  EXPECT_EQ(record->opcode, expected.opcode);
  EXPECT_EQ(record->name, expected.name);
  EXPECT_EQ(record->tiffName, expected.tiffName);
  EXPECT_EQ(record->minInputs, expected.minInputs);
  EXPECT_EQ(record->maxInputs, expected.maxInputs);
  EXPECT_NE(record->handler, nullptr);
}

TEST_P(OperationTable, CountsOutsideTheLimitsAreRefused) {
  for (int count = 0; count <= 7; ++count) {
    if (count >= GetParam().minInputs && count <= GetParam().maxInputs) continue;
    SCOPED_TRACE(count);
    expectError<validate::wrongNumberOfInputs>({}, [&] { callWith(count); });
  }
}

TEST_P(OperationTable, CountsInsideTheLimitsReachTheHandler) {
  const std::string name = GetParam().name;
  for (int count = GetParam().minInputs; count <= GetParam().maxInputs; ++count) {
    SCOPED_TRACE(count);
    if (name == "getVersion") {
      EXPECT_NO_THROW(callWith(count));
    } else if (name == "open") {
      expectError<Tiff::argumentWasNotChar>({"file"}, [&] { callWith(count); });
    } else {
      expectError<Tiff::badFileId>({}, [&] { callWith(count); });
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, OperationTable, testing::ValuesIn(kOperations),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(OperationTable, RecordsLieInTableOrderWithHandlersOfTheirOwn) {
  std::set<Handler*> handlers;
  const s_tagbridge_op* previous = nullptr;
  for (const Operation& operation : kOperations) {
    const s_tagbridge_op* record = opname2opcode(operation.name, operation.minInputs);
    EXPECT_TRUE(previous == nullptr || record == previous + 1) << operation.name;
    handlers.insert(record->handler);
    previous = record;
  }
  EXPECT_EQ(handlers.size(), 25U);
}

struct Name {
  const char* what;
  const char* name;
};
void PrintTo(const Name& value, std::ostream* out) { *out << value.what; }
class UnknownOperation : public testing::TestWithParam<Name> {};

TEST_P(UnknownOperation, IsNamedAsTheCallerWroteIt) {
  expectError<Tiff::InvalidOperation>({GetParam().name}, [] { call(GetParam().name); });
}

INSTANTIATE_TEST_SUITE_P(Names, UnknownOperation,
                         testing::Values(Name{"OtherCase", "Close"}, Name{"AllCapitals", "OPEN"},
                                         Name{"TrailingSpace", "close "},
                                         Name{"LeadingSpace", " close"}, Name{"Prefix", "clos"},
                                         Name{"Longer", "closeAll"},
                                         Name{"LibtiffsName", "TIFFOpen"}, Name{"Latin1", "\xE9"},
                                         Name{"Empty", ""}),
                         [](const auto& test) { return std::string(test.param.what); });

TEST(Gateway, UnknownNameIsFoundBeforeTheInputsAreCounted) {
  expectError<Tiff::InvalidOperation>({"Close"}, [] { call("Close", 1, 2, 3, 4, 5, 6); });
}

TEST(Gateway, NoInputIsAnOperationWithoutName) {
  expectError<Tiff::InvalidOperation>({""}, [] { callGateway(1, {}); });
}

TEST(Gateway, FirstInputThatIsNotTextIsAnOperationWithoutName) {
  const vxArrayPtr inputs[] = {
      row({1}), row({}), zeros(vxUINT16, {1, 5}), zeros(vxCELL, {1, 1}), structure(), scalar(true)};
  for (const vxArrayPtr& input : inputs) {
    SCOPED_TRACE(vxGetClassName(input.get()));
    expectError<Tiff::InvalidOperation>({""}, [&] { callGateway(1, {Input(input)}); });
  }
}

TEST(Gateway, NameOfAnyShapeIsReadInStorageOrder) {
  const vxArrayPtr name =
      arrayOf<char16_t>({5, 2}, {'g', 'e', 't', 'V', 'e', 'r', 's', 'i', 'o', 'n'});
  EXPECT_FALSE(textOf(callGateway(1, {Input(name)}).front()).empty());
}

TEST(Gateway, NameEndsAtItsFirstNul) {
  const vxArrayPtr name = arrayOf<char16_t>({1, 8}, {'c', 'l', 'o', 's', 'e', '\0', 'i', 't'});
  expectError<validate::wrongNumberOfInputs>({}, [&] { callGateway(1, {Input(name)}); });
}

TEST(Gateway, NameIsRefusedByTheHostWhenItIsNotNarrow) {
  const vxArrayPtr name = arrayOf<char16_t>({1, 6}, {'c', 'l', 'o', 's', 'e', u'\u03A9'});
  try {
    callGateway(1, {Input(name)});
    FAIL() << "nothing was raised";
  } catch (const foundation::core::except::IMsgIDException& error) {
    EXPECT_EQ(error.message().identifier(), "KORVAL:pictoria:host:characterNotNarrow");
  }
}

TEST(Gateway, ResultWithoutSlotIsDropped) {
  EXPECT_NO_THROW(callFor(0, "getVersion"));
  // A null slot array goes with a count of 0.
  const vxArrayPtr name = text("getVersion");
  const vxArray* inputs[] = {name.get()};
  EXPECT_NO_THROW(tagbridge(0, nullptr, 1, inputs));
}

TEST(Gateway, SlotsBeyondTheResultsStayAsTheyWere) {
  const std::vector<vxArrayPtr> outputs = callFor(3, "getVersion");
  EXPECT_NE(outputs[0], nullptr);
  EXPECT_EQ(outputs[1], nullptr);
  EXPECT_EQ(outputs[2], nullptr);
}

struct Number {
  const char* what;
  double value;
};
void PrintTo(const Number& number, std::ostream* out) { *out << number.value; }
class NumberOutOfRange : public testing::TestWithParam<Number> {};

TEST_P(NumberOutOfRange, IsReportedAsArgumentOutOfBounds) {
  const TemporaryFolder folder;
  writeTiff(folder / "gray.tif", {Layout{}});
  const OpenedFile file(folder / "gray.tif", "r");
  expectError<validate::argumentOutOfBounds>({},
                                             [&] { call("computeStrip", file, GetParam().value); });
  EXPECT_THAT(warnings(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, NumberOutOfRange,
    testing::Values(Number{"MinusOne", -1}, Number{"TwoToThe32", 4294967296.0},
                    Number{"FarBelow", -1e300}, Number{"FarAbove", 1e300},
                    Number{"MinusInfinity", -std::numeric_limits<double>::infinity()},
                    Number{"Infinity", std::numeric_limits<double>::infinity()}),
    [](const auto& test) { return std::string(test.param.what); });

TEST(Gateway, NumbersInRangeAreTruncatedTowardZeroAndNanIsZero) {
  const TemporaryFolder folder;
  writeTiff(folder / "gray.tif", {Layout{.length = 16, .rowsPerStrip = 4}});
  const OpenedFile file(folder / "gray.tif", "r");
  EXPECT_EQ(numberFrom("computeStrip", file, -0.999), 1);
  EXPECT_EQ(numberFrom("computeStrip", file, 3.999), 1);
  EXPECT_EQ(numberFrom("computeStrip", file, 4.001), 2);
  EXPECT_EQ(numberFrom("computeStrip", file, std::nan("")), 1);
  EXPECT_EQ(numberFrom("computeStrip", file, 4294967295.5), 4);
}

// --- libtiff's messages

// A file that libtiff opens with a message: it has a tag that nobody knows.
void writeFileWithUnknownTag(const std::filesystem::path& path) {
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {65000, TIFF_SHORT, {1}});
  writeRawTiff(path, entries, std::vector<std::byte>(16));
}

TEST(LibtiffMessages, BecomeWarningsAfterSuccess) {
  const TemporaryFolder folder;
  writeFileWithUnknownTag(folder / "unknown.tif");
  const OpenedFile file(folder / "unknown.tif", "r");
  ASSERT_EQ(warnings().size(), 1U);
  EXPECT_EQ(warnings().front().identifier, "KORVAL:pictoria:tiffutils:libtiffWarning");
  EXPECT_THAT(libtiffMessages(), ElementsAre(HasSubstr("65000")));
}

TEST(LibtiffMessages, AreNotReportedAfterFailureAndNotByTheNextCall) {
  const TemporaryFolder folder;
  std::vector<RawEntry> entries = rawGray(4, 4);
  replaceEntry(entries, {TIFFTAG_SUBIFD, TIFF_LONG, {1000000}});
  writeRawTiff(folder / "lost.tif", entries, std::vector<std::byte>(16));
  const OpenedFile file(folder / "lost.tif", "r");
  expectError<Tiff::unableToChangeSubdir>({1000000},
                                          [&] { call("setSubDirectory", file, 1000000); });
  EXPECT_THAT(runtime::collectedDiagnostics(), Not(IsEmpty())) << "libtiff said nothing";
  EXPECT_THAT(warnings(), IsEmpty());

  call("getVersion");
  EXPECT_THAT(warnings(), IsEmpty());
}

// Counts the messages that reach a handler of the process's own.
int messagesSeen = 0;
void countMessage(const char*, const char*, std::va_list) { ++messagesSeen; }

TEST(LibtiffMessages, OutsideCallsReachTheHandlerThatWasThereBefore) {
  const TemporaryFolder folder;
  writeFileWithUnknownTag(folder / "unknown.tif");
  TIFFSetWarningHandler(countMessage);
  messagesSeen = 0;

  { const OpenedFile file(folder / "unknown.tif", "r"); }
  EXPECT_EQ(messagesSeen, 0) << "the call's own message left it";

  TIFFClose(TIFFOpen((folder / "unknown.tif").c_str(), "r"));
  EXPECT_EQ(messagesSeen, 1);
  TIFFSetWarningHandler(nullptr);
}

}  // namespace
}  // namespace tb::test

// Every identifier has a text, and the text uses exactly the arguments that are passed.
#include "runtime/catalog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/errors.h"

namespace tb::runtime {
namespace {

using resource_core::BaseMsgID;
using testing::HasSubstr;

constexpr const char* kErrorIdentifiers[] = {
#define TAGBRIDGE_IDENTIFIER(group, id) "KORVAL:pictoria:" #group ":" #id,
    TAGBRIDGE_ERRORS(TAGBRIDGE_IDENTIFIER)
#undef TAGBRIDGE_IDENTIFIER
};
constexpr const char* kWarningIdentifiers[] = {
#define TAGBRIDGE_IDENTIFIER(id) "KORVAL:pictoria:Tiff:" #id,
    TAGBRIDGE_WARNINGS(TAGBRIDGE_IDENTIFIER)
#undef TAGBRIDGE_IDENTIFIER
        "KORVAL:pictoria:tiffutils:libtiffError",
    "KORVAL:pictoria:tiffutils:libtiffWarning",
};

// How many arguments the module passes, counted at the places that raise; 0 for all others.
const std::map<std::string, std::size_t> kErrorArguments = {
    {"InvalidOperation", 1},
    {"tagRetrievalFailed", 1},
    {"unableToChangeDir", 1},
    {"unableToChangeSubdir", 1},
    {"argumentWasNotChar", 1},
    {"unableToOpenFile", 1},
    {"tagRetrievalBeforeWriteFailed", 2},
    {"photometricInterpretationNotSeparated", 1},
    {"badTagUsedWithPhotometric", 2},
    {"badTransferFunctionSppCombination", 1},
    {"badMultipleTagValueRetrieved", 3},
    {"unsupportedTag", 2},
    {"unhandledTagId", 1},
    {"unableToReadTag", 1},
    {"notCellString", 1},
    {"badNumberOfInkNames", 1},
    {"badTransferFunctionSize", 4},
    {"badTagValueCount", 2},
    {"badColorMap", 2},
    {"invalidSGILogDataFmtValue", 1},
    {"unableToWriteTag", 1},
    {"tagValueNotDoublePrecisionScalar", 1},
    {"badSMinMaxValueForBiLevelImage", 1},
    {"badSampleFormatBitsPerSampleCombination", 2},
    {"invalidNumberOfInksValue", 3},
    {"doNotSetForLogLuv", 1},
    {"unsupportedCompressionScheme", 1},
    {"badThresholdingValue", 1},
    {"badPlanarConfigurationValue", 1},
    {"badUninterpretedTagType", 1},
    {"lengthTooShort", 2},
    {"zeroLengthDimension", 1},
    {"badTileDimension", 1},
    {"unrecognizedTagNumber", 1},
    {"unknownSampleFormat", 1},
    {"unhandledBitsPerSample", 1},
    {"imageDepthStrippedLayoutMismatch", 1},
    {"badStripNumber", 1},
    {"tooManyBytes", 3},
    {"badTileNumber", 1},
    {"imageDatatypeNotLogical", 1},
    {"imageDatatypeNot8bit", 1},
    {"imageDatatypeNot16bit", 1},
    {"imageDatatypeNot32bit", 1},
    {"imageDatatypeNotDouble", 1},
    {"unsupportedBitsPerSample", 1},
    {"badDatatypeForSampleFormat", 2},
    {"badExtraSamples", 2},
    {"improperUsageOfExtraSamples", 1},
    {"badYCbCrDimensions", 8},
    {"badDatatypeForPaletteImage", 2},
    {"stripNumberTooLarge", 1},
    {"stripWriteFailure", 1},
    {"tileNumberTooLarge", 1},
    {"tileWritefailure", 1},
    {"stripReadErrorRGBA", 1},
    {"tileReadErrorRGBA", 2},
    {"bad2DtagValue", 2},
    {"tagValueNotDoublePrecisionArray", 1},
    {"characterNotNarrow", 2},
};
const std::map<std::string, std::size_t> kWarningArguments = {
    {"closingFileHandle", 1},
    {"directoryNotWritten", 1},
    {"wrongSizedTagRetrieval", 3},
    {"badMultipleTagValueRetrieved", 3},
    {"dataLengthExceedsRowsPerStrip", 2},
    {"dataLengthExceedsTileLength", 2},
    {"dataWidthExceedsImageWidth", 2},
    {"dataWidthExceedsTileWidth", 2},
    {"libtiffError", 2},
    {"libtiffWarning", 2},
};

std::string nameOf(std::string_view identifier) {
  return std::string(identifier.substr(identifier.rfind(':') + 1));
}

std::size_t passedArguments(const CatalogEntry& entry) {
  const auto& counts = entry.warning ? kWarningArguments : kErrorArguments;
  const auto found = counts.find(nameOf(entry.identifier));
  return found != counts.end() ? found->second : 0;
}

BaseMsgID messageWith(std::string_view identifier,
                      const std::vector<BaseMsgID::Argument>& arguments) {
  const std::size_t colon = identifier.rfind(':');
  BaseMsgID message(std::string(identifier.substr(0, colon)),
                    std::string(identifier.substr(colon + 1)));
  for (const auto& argument : arguments) message.append(argument);
  return message;
}

// The numbers in braces.
std::set<std::size_t> positionsIn(const std::string& text) {
  std::set<std::size_t> positions;
  for (std::size_t at = text.find('{'); at != std::string::npos; at = text.find('{', at + 1))
    positions.insert(std::stoul(text.substr(at + 1)));
  return positions;
}

TEST(Catalog, HasOneEntryForEveryErrorAndWarning) {
  std::multiset<std::string> errors, warnings;
  for (const CatalogEntry& entry : catalog())
    (entry.warning ? warnings : errors).emplace(entry.identifier);
  std::multiset<std::string> wantedErrors(std::begin(kErrorIdentifiers),
                                          std::end(kErrorIdentifiers));
  wantedErrors.insert("KORVAL:pictoria:host:characterNotNarrow");
  EXPECT_EQ(errors, wantedErrors);
  EXPECT_EQ(warnings, std::multiset<std::string>(std::begin(kWarningIdentifiers),
                                                 std::end(kWarningIdentifiers)));
}

TEST(Catalog, TextsUseExactlyThePassedArguments) {
  for (const CatalogEntry& entry : catalog()) {
    SCOPED_TRACE(entry.identifier);
    const std::size_t count = passedArguments(entry);
    std::set<std::size_t> all;
    for (std::size_t position = 0; position < count; ++position) all.insert(position);
    EXPECT_EQ(positionsIn(entry.text), all);
    const std::string described = entry.arguments;
    const auto parts = std::ranges::count(described, ';') + (described.empty() ? 0 : 1);
    EXPECT_EQ(static_cast<std::size_t>(parts), count) << described;
  }
}

TEST(Catalog, TextsAreFilledInWholly) {
  for (const CatalogEntry& entry : catalog()) {
    SCOPED_TRACE(entry.identifier);
    std::vector<BaseMsgID::Argument> arguments;
    for (std::size_t position = 0; position < passedArguments(entry); ++position)
      arguments.emplace_back(static_cast<std::int64_t>(1000 + position));
    const BaseMsgID message = messageWith(entry.identifier, arguments);
    const std::string text = entry.warning ? warningText(message) : messageText(message);
    EXPECT_THAT(text, testing::Not(HasSubstr("{")));
    EXPECT_THAT(text, testing::Not(HasSubstr("KORVAL")));
    for (std::size_t position = 0; position < arguments.size(); ++position)
      EXPECT_THAT(text, HasSubstr(std::to_string(1000 + position)));
  }
}

TEST(Catalog, TextsAndOccasionsAreSentences) {
  for (const CatalogEntry& entry : catalog()) {
    SCOPED_TRACE(entry.identifier);
    const std::string text = entry.text, when = entry.when;
    EXPECT_TRUE(text.back() == '.' || text == "{0}: {1}") << text;
    EXPECT_EQ(when.back(), '.');
    EXPECT_GT(when.size(), 15U);
  }
}

TEST(MessageText, NamesWhatIsWrong) {
  EXPECT_EQ(messageText(messageWith("KORVAL:pictoria:Tiff:badStripNumber", {std::int64_t{4}})),
            "The strip does not exist: strips are numbered from 0, and the current directory has 4 "
            "of them.");
  EXPECT_EQ(messageText(messageWith("KORVAL:pictoria:Tiff:tagRetrievalBeforeWriteFailed",
                                    {std::string("SampleFormat"), std::string("SMinSampleValue")})),
            "Tag SampleFormat must be set before tag SMinSampleValue.");
}

TEST(MessageText, DiffersForTheErrorAndTheWarningOfOneName) {
  const BaseMsgID message =
      messageWith("KORVAL:pictoria:Tiff:badMultipleTagValueRetrieved",
                  {std::int64_t{90}, std::string("RPCCoefficientTag"), std::int64_t{92}});
  EXPECT_EQ(messageText(message),
            "Tag RPCCoefficientTag holds 90 values, which is not a multiple of 92.");
  EXPECT_EQ(warningText(message), "Tag RPCCoefficientTag holds 90 values where 92 are expected.");
}

TEST(MessageText, IsUtf8WhateverTheArguments) {
  const auto text = [](BaseMsgID::Argument argument) {
    return messageText(messageWith("KORVAL:pictoria:Tiff:InvalidOperation", {std::move(argument)}));
  };
  EXPECT_THAT(text(std::u16string(u"\u00e9\u4e2d\xd83d\xde00")),
              HasSubstr("\u00e9\u4e2d\U0001F600"));
  EXPECT_THAT(text(std::u16string(u"a\xd800")), HasSubstr("\"a\""));
  EXPECT_THAT(text(std::string("\xc3\xa9")), HasSubstr("\"\u00e9\""));
  EXPECT_THAT(text(std::string("\xe9")), HasSubstr("\"\u00e9\""));
  EXPECT_THAT(text(std::string("{0}%s")), HasSubstr("\"{0}%s\""));
}

TEST(MessageText, FallsBackToIdentifierAndArguments) {
  EXPECT_EQ(messageText(messageWith("KORVAL:pictoria:Tiff:nothingLikeIt",
                                    {std::int64_t{-7}, std::string("x"), std::u16string(u"y")})),
            "KORVAL:pictoria:Tiff:nothingLikeIt: -7, x, y");
  EXPECT_EQ(messageText(messageWith("KORVAL:pictoria:Tiff:badStripNumber", {})),
            "KORVAL:pictoria:Tiff:badStripNumber");
  EXPECT_EQ(messageText(messageWith("KORVAL:pictoria:Tiff:badFileId", {std::int64_t{1}})),
            "KORVAL:pictoria:Tiff:badFileId: 1");
  EXPECT_EQ(messageText(messageWith("KORVAL:pictoria:Tiff:badFileId", {~std::uint64_t{0}})),
            "KORVAL:pictoria:Tiff:badFileId: 18446744073709551615");
  EXPECT_EQ(messageText(BaseMsgID("", "")), ":");
}

TEST(MessageText, ComesWithTheException) {
  try {
    raise<Tiff::badColorMap>(256, 8);
  } catch (const foundation::core::except::IMsgIDException& error) {
    EXPECT_EQ(error.messageText(),
              "ColorMap must be a 256-by-3 matrix of class double for 8 bits per sample.");
  }
}

}  // namespace
}  // namespace tb::runtime

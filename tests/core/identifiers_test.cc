// Every identifier of the catalog is provoked through the gateway, or listed with the reason why no
// input can provoke it.
#include <gtest/gtest.h>

#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "core/errors.h"
#include "tests/core/image_provocations.h"
#include "tests/core/tag_provocations.h"

namespace tb::test {
namespace {

// --- The gateway, files and directories

std::vector<Provocation> fileProvocations() {
  return {
      provoke<validate::argumentOutOfBounds>(
          {}, [](Scene& s) { call("computeStrip", s.written({Layout{}}), -1); }),
      provoke<validate::wrongNumberOfInputs>({}, [](Scene&) { call("getVersion", 1); }),
      provoke<Tiff::InvalidOperation>({"Close"}, [](Scene&) { call("Close", 1); }),
      provoke<Tiff::badFileId>({}, [](Scene&) { call("isTiled", 0); }),
      provoke<Tiff::invalidFileId>({}, [](Scene&) { call("isTiled", 1); }),
      provoke<Tiff::argumentWasNotChar>({"file"}, [](Scene&) { call("open", 1, "r"); }),
      provoke<Tiff::unableToOpenFile>({u"missing/file.tif"},
                                      [](Scene&) { call("open", "missing/file.tif", "r"); }),
      provoke<Tiff::unsupportedCompressionScheme>(
          {60000},
          [](Scene& s) {
            s.raw(withEntry({TIFFTAG_COMPRESSION, TIFF_SHORT, {60000}}));
          }),
      provoke<Tiff::unableToReadDir>(
          {}, [](Scene& s) { call("readDirectory", s.written({Layout{}})); }),
      provoke<Tiff::unableToWriteDir>(
          {}, [](Scene& s) { call("rewriteDirectory", s.written({Layout{}})); }),
      provoke<Tiff::unableToWriteCurrentDir>(
          {},
          [](Scene& s) {
            const OpenedFile& file = s.fresh(also(grayTags(), {{TIFFTAG_XPOSITION, -1}}));
            call("writeEncodedStrip", file, 0, bytes());
            call("writeDirectory", file);
          }),
      provoke<Tiff::unableToChangeDir>(
          {8}, [](Scene& s) { call("setDirectory", s.written({Layout{}}), 7); }),
      provoke<Tiff::noSubDirectories>(
          {}, [](Scene& s) { call("setSubDirectory", s.written({Layout{}}), 8); }),
      provoke<Tiff::noSuchSubDirectory>(
          {},
          [](Scene& s) {
            call("setSubDirectory", s.raw(withEntry({TIFFTAG_SUBIFD, TIFF_LONG, {999999}})), 8);
          }),
      provoke<Tiff::unableToChangeSubdir>(
          {999999},
          [](Scene& s) {
            call("setSubDirectory", s.raw(withEntry({TIFFTAG_SUBIFD, TIFF_LONG, {999999}})),
                 999999);
          }),
      provoke<Tiff::sampleParameterRequired>(
          {},
          [](Scene& s) {
            call("computeStrip", s.written({Layout{.samples = 2, .planar = PLANARCONFIG_SEPARATE}}),
                 0);
          }),
      provoke<Tiff::sampleParameterNotAllowedInChunkyCase>(
          {}, [](Scene& s) { call("computeStrip", s.written({Layout{}}), 0, 0); }),
  };
}

std::vector<Provocation> allProvocations() {
  std::vector<Provocation> all;
  for (const auto& part : {fileProvocations(), tagProvocations(), imageProvocations()})
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Identifiers that no input can provoke.
struct OutOfReach {
  const char* identifier;
  const char* reason;
};
constexpr OutOfReach kOutOfReach[] = {
    {"KORVAL:pictoria:Tiff:unableToReadTag",
     "the status that it looks at was looked at before, with tagRetrievalFailed"},
    {"KORVAL:pictoria:Tiff:tooManyBytes",
     "libtiff decodes at most the strip size that the check compares with"},
    {"KORVAL:pictoria:Tiff:unknownSampleFormat",
     "libtiff takes no SampleFormat outside 1 to 6, neither from a caller nor from a file"},
};

std::set<std::string> catalog() {
  std::set<std::string> identifiers;
#define IDENTIFIER(group, id) identifiers.insert("KORVAL:pictoria:" #group ":" #id);
  TAGBRIDGE_ERRORS(IDENTIFIER)
#undef IDENTIFIER
  return identifiers;
}

TEST(Identifiers, EachHasAProvocationOrAReasonAndNoneIsPending) {
  std::set<std::string> pending = catalog();
  for (const Provocation& provocation : allProvocations())
    pending.erase(provocation.expected.identifier);
  for (const OutOfReach& row : kOutOfReach)
    EXPECT_EQ(pending.erase(row.identifier), 1U) << row.identifier << " has a provocation";
  std::cout << "pending identifiers: " << pending.size() << '\n';
  EXPECT_EQ(pending, std::set<std::string>{});
}

TEST(Identifiers, NoneIsProvokedThatTheCatalogLacks) {
  const std::set<std::string> known = catalog();
  for (const Provocation& provocation : allProvocations())
    EXPECT_TRUE(known.contains(provocation.expected.identifier)) << provocation.expected.identifier;
}

class Identifier : public testing::TestWithParam<Provocation> {};

TEST_P(Identifier, IsRaisedThroughTheGateway) {
  const auto& [expected, arguments, act] = GetParam();
  Scene scene;
  expectError(expected, arguments, [&, &act = act] { act(scene); });
}

INSTANTIATE_TEST_SUITE_P(Catalog, Identifier, testing::ValuesIn(allProvocations()),
                         [](const auto& test) {
                           const std::string& identifier = test.param.expected.identifier;
                           return identifier.substr(identifier.rfind(':') + 1);
                         });

}  // namespace
}  // namespace tb::test

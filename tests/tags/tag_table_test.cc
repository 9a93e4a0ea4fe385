// The table of tags, and their names in it.
#include "tags/tag_table.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/gateway_call.h"

namespace tb::test {
namespace {

struct Named {
  std::uint32_t tag;
  const char* name;
};
class TagNames : public testing::TestWithParam<Named> {};

TEST_P(TagNames, AreThoseThatMessagesCarry) {
  EXPECT_EQ(tag_num_to_tag_name(nullptr, GetParam().tag), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Names, TagNames,
    testing::Values(Named{254, "SubfileType"}, Named{262, "PhotometricInterpretation"},
                    Named{263, "Thresholding"}, Named{317, "Predictor"},
                    Named{344, "XClipPathUnits"}, Named{345, "YClipPathUnits"},
                    Named{33723, "RichTIFFIPTC"}, Named{34675, "ICC Profile"},
                    Named{34737, "GeoASCIIParamsTag"}, Named{50844, "RPCCoefficientTag"},
                    Named{65538, "JPEGColorMode"}, Named{65560, "SGILogDataFmt"}),
    [](const auto& test) { return "Tag" + std::to_string(test.param.tag); });

TEST(TagTable, HasEachNumberOnceThoughTheListRepeatsOne) {
  const auto rows = tagTable();
  EXPECT_EQ(rows.size(), 103U);
  EXPECT_TRUE(std::ranges::is_sorted(rows, std::ranges::less_equal{}, &TagRow::tag));
}

TEST(TagTable, MakesNoNameUp) {
  for (const std::uint32_t tag : {0U, 253U, 260U, 701U, 65536U, 0xFFFFFFFFU}) {
    clearRecord();
    expectError<Tiff::unrecognizedTagNumber>({tag}, [tag] { tag_num_to_tag_name(nullptr, tag); });
  }
}

}  // namespace
}  // namespace tb::test

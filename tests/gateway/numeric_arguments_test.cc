// The numbers that operations take, in every class that a host has.
#include <gtest/gtest.h>

#include <boost/numeric/conversion/converter_policies.hpp>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <ostream>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "core/arguments.h"
#include "tests/support/gateway_call.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

template <class T>
vxArrayPtr rowOf(const std::vector<double>& values) {
  return arrayOf<T>({1, values.size()}, std::vector<T>(values.begin(), values.end()));
}

struct NumberClass {
  const char* name;
  vxArrayPtr (*make)(const std::vector<double>&);
};
void PrintTo(const NumberClass& value, std::ostream* out) { *out << value.name; }

// The last holds no number above 1, the two before it none above 127.
constexpr NumberClass kClasses[] = {
    {"Double", rowOf<double>},      {"Single", rowOf<float>},
    {"Int16", rowOf<std::int16_t>}, {"Uint16", rowOf<std::uint16_t>},
    {"Int32", rowOf<std::int32_t>}, {"Uint32", rowOf<std::uint32_t>},
    {"Int64", rowOf<std::int64_t>}, {"Uint64", rowOf<std::uint64_t>},
    {"Char", rowOf<char16_t>},      {"Int8", rowOf<std::int8_t>},
    {"Uint8", rowOf<std::uint8_t>}, {"Logical", rowOf<bool>},
};
constexpr auto kUpTo127 = std::span(kClasses).first(11);
constexpr auto kWide = std::span(kClasses).first(9);

// Two by two blocks of 16 pixels a side, in two planes.
const Layout kTiles{.width = 32,
                    .length = 32,
                    .samples = 2,
                    .planar = PLANARCONFIG_SEPARATE,
                    .tileWidth = 16,
                    .tileLength = 16};
const Layout kStrips{.length = 4, .rowsPerStrip = 1};

class NumericArguments : public testing::TestWithParam<NumberClass> {
 protected:
  NumericArguments() {
    writeTiff(path("tiles"), {kTiles, kStrips});
    writeTiff(path("strips"), {kStrips, kTiles});
  }
  std::filesystem::path path(const std::string& name) const { return folder_ / (name + ".tif"); }
  static vxArrayPtr one() { return GetParam().make({1}); }

  TemporaryFolder folder_;
};

TEST_P(NumericArguments, NameTheBlockToRead) {
  const OpenedFile strips(path("strips"), "r");
  EXPECT_TRUE(bytesOf(call("readEncodedStrip", strips, one())) == hostBytes(kStrips, 1));
  const OpenedFile tiles(path("tiles"), "r");
  EXPECT_TRUE(bytesOf(call("readEncodedTile", tiles, one())) == hostBytes(kTiles, 1));
}

TEST_P(NumericArguments, NameTheBlockToWrite) {
  {
    const OpenedFile strips(path("strips"), "r+");
    callFor(0, "writeEncodedStrip", strips, one(), zeros(vxUINT8, {1, 16}));
    const OpenedFile tiles(path("tiles"), "r+");
    callFor(0, "writeEncodedTile", tiles, one(), zeros(vxUINT8, {16, 16}));
  }
  const OpenedFile strips(path("strips"), "r");
  EXPECT_TRUE(bytesOf(call("readEncodedStrip", strips, 0)) == hostBytes(kStrips, 0));
  EXPECT_EQ(elementsOf<std::uint8_t>(call("readEncodedStrip", strips, 1)),
            std::vector<std::uint8_t>(16));
  const OpenedFile tiles(path("tiles"), "r");
  EXPECT_TRUE(bytesOf(call("readEncodedTile", tiles, 0)) == hostBytes(kTiles, 0));
  EXPECT_EQ(elementsOf<std::uint8_t>(call("readEncodedTile", tiles, 1)),
            std::vector<std::uint8_t>(256));
}

TEST_P(NumericArguments, NameTheRowAndThePlaneOfABlock) {
  const OpenedFile strips(path("strips"), "r");
  EXPECT_EQ(numberFrom("computeStrip", strips, one()), 2);
  const OpenedFile tiles(path("tiles"), "r");
  EXPECT_EQ(numberFrom("computeTile", tiles, row({0, 0}), one()), 5);
}

TEST_P(NumericArguments, NameTheDirectory) {
  const OpenedFile file(path("tiles"), "r");
  call("setDirectory", file, one());
  EXPECT_EQ(numberFrom("currentDirectory", file), 2);
}

TEST_P(NumericArguments, NameTheFirstRowOfAnRgbaStrip) {
  const OpenedFile strips(path("strips"), "r");
  EXPECT_TRUE(bytesOf(call("readRGBAStrip", strips, one())) ==
              bytesOf(call("readRGBAStrip", strips, 1)));
  EXPECT_FALSE(bytesOf(call("readRGBAStrip", strips, 1)) ==
               bytesOf(call("readRGBAStrip", strips, 0)))
      << "these strips cannot be told apart";
}

INSTANTIATE_TEST_SUITE_P(Classes, NumericArguments, testing::ValuesIn(kClasses),
                         [](const auto& test) { return test.param.name; });

class PixelArguments : public NumericArguments {};

TEST_P(PixelArguments, NameTheTile) {
  const OpenedFile tiles(path("tiles"), "r");
  EXPECT_EQ(numberFrom("computeTile", tiles, GetParam().make({0, 16}), 0), 2);
  EXPECT_EQ(numberFrom("computeTile", tiles, GetParam().make({16, 0}), 0), 3);
  EXPECT_EQ(numberFrom("computeTile", tiles, GetParam().make({16}), 0), 3) << "no column is 0";
}

TEST_P(PixelArguments, NameTheRgbaTile) {
  Layout gray = kTiles;
  gray.samples = 1;
  writeTiff(path("gray"), {gray});
  const OpenedFile tiles(path("gray"), "r");
  for (const auto& [row, column] : {std::pair(16, 0), std::pair(0, 16)}) {
    const vxArrayPtr tile =
        call("readRGBATile", tiles, GetParam().make({row * 1.0}), GetParam().make({column * 1.0}));
    EXPECT_TRUE(bytesOf(tile) == bytesOf(call("readRGBATile", tiles, row, column)));
    EXPECT_FALSE(bytesOf(tile) == bytesOf(call("readRGBATile", tiles, column, row)));
  }
}

INSTANTIATE_TEST_SUITE_P(Classes, PixelArguments, testing::ValuesIn(kUpTo127),
                         [](const auto& test) { return test.param.name; });

class TagArguments : public NumericArguments {};

TEST_P(TagArguments, NameTheTagToGetAndToSet) {
  const OpenedFile file(path("new"), "w");
  callFor(0, "setField", file, GetParam().make({256}), 7);
  EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), 7);
  EXPECT_EQ(numberFrom("getField", file, GetParam().make({256})), 7);
}

INSTANTIATE_TEST_SUITE_P(Classes, TagArguments, testing::ValuesIn(kWide),
                         [](const auto& test) { return test.param.name; });

// --- Values at the edge

struct Edge {
  const char* what;
  std::function<vxArrayPtr()> make;
  double strip;  // that computeStrip finds for it as a row; 0 where it is out of bounds
};
void PrintTo(const Edge& value, std::ostream* out) { *out << value.what; }

class NumberEdge : public testing::TestWithParam<Edge> {};

TEST_P(NumberEdge, IsTheValueOrOutOfBounds) {
  const TemporaryFolder folder;
  writeTiff(folder / "rows.tif", {Layout{.length = 300, .rowsPerStrip = 1}});
  const OpenedFile file(folder / "rows.tif", "r");
  const auto& [what, make, strip] = GetParam();
  if (strip != 0) {
    EXPECT_EQ(numberFrom("computeStrip", file, make()), strip);
  } else {
    expectError<validate::argumentOutOfBounds>(
        {}, [&, &value = make] { call("computeStrip", file, value()); });
  }
}

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
const Edge kEdges[] = {
    {"UnsignedByte", [] { return scalar<std::uint8_t>(200); }, 201},
    {"NegativeByte", [] { return scalar<std::int8_t>(-1); }, 0},
    {"NegativeInt64", [] { return scalar<std::int64_t>(-1); }, 0},
    {"Uint64BeyondInt64", [] { return scalar<std::uint64_t>(1ULL << 63); }, 0},
    {"LargestUint64", [] { return scalar(~std::uint64_t{0}); }, 0},
    {"Int64BeyondUint32", [] { return scalar<std::int64_t>(1LL << 32); }, 0},
    {"LargestUint32", [] { return scalar(~std::uint32_t{0}); }, 300},
    {"FractionOfASingle", [] { return scalar(3.9F); }, 4},
    {"SmallNegativeSingle", [] { return scalar(-0.5F); }, 1},
    {"NanOfASingle", [] { return scalar(kNan); }, 1},
    {"Infinity", [] { return scalar(std::numeric_limits<float>::infinity()); }, 0},
    {"Letter", [] { return text("A"); }, 66},
    {"EmptyText", [] { return text(""); }, 1},
    {"EmptyArray",
     [] {
       return zeros(vxINT32, {0, 3});
     },
     1},
    {"Cell", [] { return cellOfTexts({"A"}); }, 1},
    {"Struct", [] { return structure(); }, 1},
};
INSTANTIATE_TEST_SUITE_P(Values, NumberEdge, testing::ValuesIn(kEdges),
                         [](const auto& test) { return test.param.what; });

// --- Offsets

TEST(OffsetArguments, OfEveryIntegerClassAreExact) {
  const TemporaryFolder folder;
  const std::uint64_t none = 0;
  writeTiff(folder / "sub.tif",
            {{.more = [&](TIFF* tif) { TIFFSetField(tif, 330, 1, &none); }}, {.width = 20}});
  const OpenedFile file(folder / "sub.tif", "r");
  const auto offset =
      static_cast<double>(elementsOf<std::uint64_t>(call("getField", file, TIFFTAG_SUBIFD)).at(0));
  for (const NumberClass& numbers : kClasses) {
    SCOPED_TRACE(numbers.name);
    if (elementSize(vxGetClassID(numbers.make({0}).get())) == 1) continue;
    call("setDirectory", file, 0);
    call("setSubDirectory", file, numbers.make({offset}));
    EXPECT_EQ(numberFrom("getField", file, TIFFTAG_IMAGEWIDTH), 20);
  }
}

TEST(OffsetArguments, BeyondDoublesAreNotRounded) {
  constexpr std::int64_t kOffset = (1LL << 53) + 1;
  EXPECT_EQ(unpackDirectoryOffset(scalar(kOffset).get()), static_cast<std::uint64_t>(kOffset));
  EXPECT_EQ(unpackDirectoryOffset(scalar(~std::uint64_t{0}).get()), ~std::uint64_t{0});
  EXPECT_THROW(unpackDirectoryOffset(scalar<std::int64_t>(-1).get()),
               boost::numeric::negative_overflow);
}

}  // namespace
}  // namespace tb::test

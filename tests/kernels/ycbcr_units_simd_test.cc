// The kernels that take subsampled units apart and put them together, on every instruction set,
// against loops over single samples.

#include "hwy/tests/hwy_gtest.h"
#include "kernels/ycbcr_units.h"
#include "tests/support/kernel_memory.h"

namespace tb {
namespace {

using test::KernelInput;
using test::KernelOutput;
using test::Sizes;

std::size_t unitBytes(const YCbCrShape& shape) { return shape.horizontal * shape.vertical + 2; }
std::size_t unitsBytes(const YCbCrShape& shape) {
  return ((shape.unitRows - 1) * shape.unitStride + shape.unitColumns) * unitBytes(shape);
}
std::size_t lumaBytes(const YCbCrShape& shape) {
  return (shape.lumaColumns - 1) * shape.lumaColumnStride + shape.lumaRows;
}
std::size_t chromaBytes(const YCbCrShape& shape) {
  return (shape.unitColumns - 1) * shape.chromaColumnStride + shape.unitRows;
}

// The units that cover rows x columns of luma; `padding` widens every stride.
YCbCrShape covering(std::size_t rows, std::size_t columns, std::size_t horizontal,
                    std::size_t vertical, std::size_t padding) {
  const std::size_t unitRows = (rows + vertical - 1) / vertical;
  const std::size_t unitColumns = (columns + horizontal - 1) / horizontal;
  return {unitRows, unitColumns, unitColumns + padding, horizontal,        vertical,
          rows,     columns,     rows + padding,        unitRows + padding};
}

std::string describe(const YCbCrShape& shape) {
  return std::to_string(shape.lumaRows) + " x " + std::to_string(shape.lumaColumns) +
         ", subsampled " + std::to_string(shape.horizontal) + " x " +
         std::to_string(shape.vertical) + ", unit stride " + std::to_string(shape.unitStride);
}

// Calls visit(unitByte, lumaRow, lumaColumn) for luma and chroma(unitByte, element) for each unit,
// rows of units from the first to the last.
template <class Luma, class Chroma>
void forEachUnit(const YCbCrShape& shape, const Luma& luma, const Chroma& chroma) {
  for (std::size_t unitRow = 0; unitRow < shape.unitRows; ++unitRow)
    for (std::size_t unitColumn = 0; unitColumn < shape.unitColumns; ++unitColumn) {
      const std::size_t unit = (unitRow * shape.unitStride + unitColumn) * unitBytes(shape);
      for (std::size_t k = 0; k < unitBytes(shape) - 2; ++k)
        luma(unit + k, unitRow * shape.vertical + k / shape.horizontal,
             unitColumn * shape.horizontal + k % shape.horizontal);
      chroma(unit + unitBytes(shape) - 2, unitRow + unitColumn * shape.chromaColumnStride);
    }
}

void expectSplit(const YCbCrShape& shape) {
  KernelInput units(unitsBytes(shape));
  KernelOutput y(lumaBytes(shape)), cb(chromaBytes(shape)), cr(chromaBytes(shape));
  KernelOutput expectedY = y, expectedCb = cb, expectedCr = cr;
  forEachUnit(
      shape,
      [&](std::size_t from, std::size_t row, std::size_t column) {
        if (row < shape.lumaRows && column < shape.lumaColumns)
          expectedY.data()[row + column * shape.lumaColumnStride] = units.data()[from];
      },
      [&](std::size_t from, std::size_t element) {
        expectedCb.data()[element] = units.data()[from];
        expectedCr.data()[element] = units.data()[from + 1];
      });

  splitYCbCrUnits(units.data(), y.data(), cb.data(), cr.data(), shape);

  ASSERT_TRUE(y == expectedY) << "Y of " << describe(shape);
  ASSERT_TRUE(cb == expectedCb) << "Cb of " << describe(shape);
  ASSERT_TRUE(cr == expectedCr) << "Cr of " << describe(shape);
}

void expectJoined(const YCbCrShape& shape) {
  KernelInput y(lumaBytes(shape)), cb(chromaBytes(shape)), cr(chromaBytes(shape));
  KernelOutput units(unitsBytes(shape)), expected(unitsBytes(shape));
  forEachUnit(
      shape,
      [&](std::size_t to, std::size_t row, std::size_t column) {
        expected.data()[to] = y.data()[row + column * shape.lumaColumnStride];
      },
      [&](std::size_t to, std::size_t element) {
        expected.data()[to] = cb.data()[element];
        expected.data()[to + 1] = cr.data()[element];
      });

  joinYCbCrUnits(y.data(), cb.data(), cr.data(), units.data(), shape);

  ASSERT_TRUE(units == expected) << describe(shape);
}

// TIFF's subsampling factors and one that only a damaged file has.
constexpr std::size_t kFactors[] = {1, 2, 3, 4};

class YCbCrUnitsSimd : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(YCbCrUnitsSimd);

TEST_P(YCbCrUnitsSimd, UnitsComeApartUnderEveryClipping) {
  for (const std::size_t horizontal : kFactors)
    for (const std::size_t vertical : kFactors)
      for (const std::size_t padding : Sizes{0, 3})
        for (const std::size_t rows : Sizes{1, 2, 3, 4, 5, 15, 16, 31, 64, 65, 127, 131, 260})
          for (const std::size_t columns : Sizes{1, 2, 3, 4, 5, 15, 16, 33, 70})
            ASSERT_NO_FATAL_FAILURE(
                expectSplit(covering(rows, columns, horizontal, vertical, padding)));
}

TEST_P(YCbCrUnitsSimd, UnitsFarOutsideTheLumaArrayStillYieldChroma) {
  YCbCrShape shape = covering(200, 40, 2, 2, 0);
  shape.lumaRows = 50;
  shape.lumaColumns = 9;
  ASSERT_NO_FATAL_FAILURE(expectSplit(shape));
}

TEST_P(YCbCrUnitsSimd, UnitsArePutTogether) {
  for (const std::size_t horizontal : kFactors)
    for (const std::size_t vertical : kFactors)
      for (const std::size_t padding : Sizes{0, 3})
        for (const std::size_t unitRows : Sizes{1, 2, 3, 8, 15, 16, 17, 31, 33, 64, 65, 70})
          for (const std::size_t unitColumns : Sizes{1, 2, 3, 5, 8, 15, 16, 17, 35})
            ASSERT_NO_FATAL_FAILURE(expectJoined(covering(
                unitRows * vertical, unitColumns * horizontal, horizontal, vertical, padding)));
}

TEST_P(YCbCrUnitsSimd, LaterRowStaysWhereRowsOfUnitsOverlap) {
  for (const std::size_t factor : kFactors) {
    YCbCrShape shape = covering(70 * factor, 40 * factor, factor, factor, 0);
    shape.unitStride -= 1;
    ASSERT_NO_FATAL_FAILURE(expectJoined(shape));
  }
}

TEST_P(YCbCrUnitsSimd, NoUnitsTouchNothing) {
  YCbCrShape shape = covering(4, 4, 2, 2, 0);
  shape.unitRows = 0;
  splitYCbCrUnits(nullptr, nullptr, nullptr, nullptr, shape);
  joinYCbCrUnits(nullptr, nullptr, nullptr, nullptr, shape);
}

}  // namespace
}  // namespace tb

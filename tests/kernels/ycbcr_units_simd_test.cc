// The kernels that take subsampled units apart and put them together, on every instruction set,
// against loops over single samples.

#include "hwy/tests/hwy_gtest.h"
#include "kernels/ycbcr_units.h"
#include "tests/support/kernel_memory.h"
#include "tests/support/plain_kernels.h"

namespace tb {
namespace {

namespace plain = test::plain;
using plain::covering;
using test::KernelInput;
using test::KernelOutput;
using test::Sizes;

void expectSplit(const YCbCrShape& shape) {
  KernelInput units(plain::unitsBytes(shape));
  KernelOutput y(plain::lumaBytes(shape)), cb(plain::chromaBytes(shape)), cr = cb;
  KernelOutput expectedY = y, expectedCb = cb, expectedCr = cr;
  plain::splitYCbCrUnits(units.data(), expectedY.data(), expectedCb.data(), expectedCr.data(),
                         shape);

  splitYCbCrUnits(units.data(), y.data(), cb.data(), cr.data(), shape);

  ASSERT_TRUE(y == expectedY) << "Y of " << plain::described(shape);
  ASSERT_TRUE(cb == expectedCb) << "Cb of " << plain::described(shape);
  ASSERT_TRUE(cr == expectedCr) << "Cr of " << plain::described(shape);
}

void expectJoined(const YCbCrShape& shape) {
  KernelInput y(plain::lumaBytes(shape)), cb(plain::chromaBytes(shape)),
      cr(plain::chromaBytes(shape));
  KernelOutput units(plain::unitsBytes(shape)), expected = units;
  plain::joinYCbCrUnits(y.data(), cb.data(), cr.data(), expected.data(), shape);

  joinYCbCrUnits(y.data(), cb.data(), cr.data(), units.data(), shape);

  ASSERT_TRUE(units == expected) << plain::described(shape);
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

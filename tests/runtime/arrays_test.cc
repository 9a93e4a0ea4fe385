// The embedded host's arrays: shapes, alignment, what can be read beyond the elements, and memory
// that belongs to someone else.
#include "runtime/arrays.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/arrays.h"

namespace tb::test {
namespace {

using runtime::wrapMemory;
using testing::ElementsAreArray;

constexpr std::size_t kPromisedBytes = 16;

Dimensions dimensionsOf(const vxArrayPtr& array) {
  const std::size_t* first = vxGetDimensions(array.get());
  return {first, first + vxGetNumberOfDimensions(array.get())};
}

std::vector<std::uint8_t> bytesBeyond(const vxArrayPtr& array) {
  const auto* data = static_cast<const std::uint8_t*>(vxGetData(array.get()));
  const std::size_t used = vxGetNumberOfElements(array.get()) * vxGetElementSize(array.get());
  return {data + used, data + used + kPromisedBytes};
}

struct Shape {
  const char* name;
  Dimensions asked, got;
};
class ArrayShape : public testing::TestWithParam<Shape> {};

TEST_P(ArrayShape, HasAtLeastTwoDimensionsAndNoTrailingOnes) {
  const auto& [name, asked, got] = GetParam();
  const vxArrayPtr array = matrix::detail::do_create_numeric(vxUINT16, asked);
  EXPECT_EQ(dimensionsOf(array), got);
  EXPECT_EQ(vxGetNumberOfElements(array.get()),
            std::accumulate(got.begin(), got.end(), std::size_t{1}, std::multiplies<>()));
}
INSTANTIATE_TEST_SUITE_P(
    Shapes, ArrayShape,
    testing::Values(Shape{"None", {}, {1, 1}}, Shape{"One", {3}, {3, 1}},
                    Shape{"Matrix", {3, 4}, {3, 4}}, Shape{"Cube", {2, 3, 4}, {2, 3, 4}},
                    Shape{"ScalarOfMany", {1, 1, 1, 1}, {1, 1}},
                    Shape{"ColumnOfMany", {5, 1, 1}, {5, 1}},
                    Shape{"OneInside", {2, 1, 3, 1}, {2, 1, 3}},
                    Shape{"Five", {2, 3, 1, 2, 2}, {2, 3, 1, 2, 2}},
                    Shape{"FourWithOnesBehind", {2, 1, 1, 2, 1, 1}, {2, 1, 1, 2}},
                    Shape{"Empty", {0, 0}, {0, 0}}, Shape{"EmptyDeep", {4, 0, 3}, {4, 0, 3}}),
    [](const auto& test) { return test.param.name; });

struct ClassCase {
  vxClassID id;
  const char* name;
  std::size_t elementSize;
};
class ArrayClass : public testing::TestWithParam<ClassCase> {};

TEST_P(ArrayClass, HasItsCodeNameAndElementSize) {
  const auto& [id, name, size] = GetParam();
  const vxArrayPtr array = zeros(id, {1, 1});
  EXPECT_EQ(vxGetClassID(array.get()), id);
  EXPECT_STREQ(vxGetClassName(array.get()), name);
  EXPECT_EQ(vxGetElementSize(array.get()), size);
}

TEST_P(ArrayClass, IsAlignedAndFollowedByZerosAtEverySize) {
  const vxClassID id = GetParam().id;
  if (id == vxCELL) GTEST_SKIP() << "the elements of a cell are not to be had";
  for (const std::size_t count :
       {0UL, 1UL, 2UL, 3UL, 7UL, 63UL, 64UL, 100UL, 119UL, 120UL, 121UL, 500UL, 3000UL, 70000UL}) {
    SCOPED_TRACE(count);
    const Dimensions dimensions{1, count};
    for (int turn = 0; turn < 2; ++turn) {  // the second is given memory used before
      const vxArrayPtr array = matrix::detail::do_create_uninitnumeric(id, dimensions);
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(vxGetData(array.get())) % 64, 0U);
      EXPECT_THAT(bytesBeyond(array), testing::Each(0));
      std::memset(vxGetWritableData(array.get()), 0xFF, count * GetParam().elementSize);
    }
  }
}

TEST_P(ArrayClass, IsZeroWhenCreatedAfterAnotherWasFilled) {
  const auto& [id, name, size] = GetParam();
  if (id == vxCELL) GTEST_SKIP() << "the elements of a cell are not to be had";
  for (const std::size_t count : {1UL, 100UL, 3000UL, 70000UL}) {
    const Dimensions dimensions{count, 1};
    vxArrayPtr array = matrix::detail::do_create_uninitnumeric(id, dimensions);
    std::memset(vxGetWritableData(array.get()), 0xFF, count * size);
    array = matrix::detail::do_create_numeric(id, dimensions);
    const auto* bytes = static_cast<const std::uint8_t*>(vxGetData(array.get()));
    EXPECT_EQ(std::count(bytes, bytes + count * size, 0), static_cast<long>(count * size));
  }
}
INSTANTIATE_TEST_SUITE_P(
    Classes, ArrayClass,
    testing::Values(ClassCase{vxCELL, "cell", sizeof(void*)}, ClassCase{vxLOGICAL, "logical", 1},
                    ClassCase{vxCHAR, "char", 2}, ClassCase{vxDOUBLE, "double", 8},
                    ClassCase{vxSINGLE, "single", 4}, ClassCase{vxINT8, "int8", 1},
                    ClassCase{vxUINT8, "uint8", 1}, ClassCase{vxINT16, "int16", 2},
                    ClassCase{vxUINT16, "uint16", 2}, ClassCase{vxINT32, "int32", 4},
                    ClassCase{vxUINT32, "uint32", 4}, ClassCase{vxINT64, "int64", 8},
                    ClassCase{vxUINT64, "uint64", 8}),
    [](const auto& test) { return test.param.name; });

TEST(ArrayScalar, IsTheFirstElementWhateverItsClass) {
  EXPECT_EQ(vxGetScalar(arrayOf<double>({1, 2}, {2.5, 3}).get()), 2.5);
  EXPECT_EQ(vxGetScalar(scalar<float>(-0.5F).get()), -0.5);
  EXPECT_EQ(vxGetScalar(scalar<std::int8_t>(-128).get()), -128);
  EXPECT_EQ(vxGetScalar(scalar<std::uint16_t>(65535).get()), 65535);
  EXPECT_EQ(vxGetScalar(scalar<std::int32_t>(-2147483647).get()), -2147483647);
  EXPECT_EQ(vxGetScalar(scalar<std::uint64_t>(1ULL << 53).get()), 9007199254740992.0);
  EXPECT_EQ(vxGetScalar(scalar<bool>(true).get()), 1);
  EXPECT_EQ(vxGetScalar(scalar<char16_t>(u'A').get()), 65);
}

TEST(ArrayScalar, IsZeroForWhatHoldsNoNumber) {
  constexpr const char* kNames[] = {"a"};
  EXPECT_EQ(vxGetScalar(zeros(vxDOUBLE, {0, 3}).get()), 0);
  EXPECT_EQ(vxGetScalar(zeros(vxCELL, {1, 1}).get()), 0);
  EXPECT_EQ(vxGetScalar(matrix::detail::do_create_struct(Dimensions{1, 1}, kNames).get()), 0);
}

TEST(ArrayLogicals, AreToBeHadOfLogicalArraysOnly) {
  const vxArrayPtr logical = zeros(vxLOGICAL, {2, 2});
  EXPECT_EQ(vxGetLogicals(logical.get()), vxGetWritableData(logical.get()));
  EXPECT_EQ(vxGetLogicals(zeros(vxUINT8, {2, 2}).get()), nullptr);
}

TEST(ArrayCreation, RefusesClassesWithoutElements) {
  for (const int id : {0, 1, 2, 5, 16, -1})
    EXPECT_THROW((void)matrix::detail::do_create_numeric(static_cast<vxClassID>(id), {}),
                 std::invalid_argument)
        << id;
}

TEST(ArrayCreation, RefusesSizesThatOverflow) {
  constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max();
  constexpr std::size_t kRoot = std::size_t{1} << (std::numeric_limits<std::size_t>::digits / 2);
  for (const Dimensions& dimensions :
       {Dimensions{kMost, 2}, Dimensions{kMost / 8 + 1, 1}, Dimensions{kRoot, kRoot},
        Dimensions{kMost, 1}, Dimensions{kRoot / 2, kRoot / 2, 4}}) {
    EXPECT_THROW((void)matrix::detail::do_create_numeric(vxDOUBLE, dimensions), std::bad_alloc);
    EXPECT_THROW((void)matrix::detail::do_create_cell(dimensions), std::bad_alloc);
  }
  EXPECT_TRUE(vxIsEmpty(zeros(vxDOUBLE, {kMost, kMost, 0}).get()));
}

// --- Cells and structs

TEST(CellArray, OwnsWhatIsPutIn) {
  const vxArrayPtr cell = zeros(vxCELL, {1, 2});
  EXPECT_EQ(vxGetCell(cell.get(), 0), nullptr);
  vxArray* const value = scalar(7.0).release();
  vxSetCell(cell.get(), 1, value);
  EXPECT_EQ(vxGetCell(cell.get(), 1), value);
  vxSetCell(cell.get(), 1, value);
  EXPECT_EQ(vxGetScalar(vxGetCell(cell.get(), 1)), 7);
  vxSetCell(cell.get(), 1, scalar(8.0).release());
  EXPECT_EQ(vxGetScalar(vxGetCell(cell.get(), 1)), 8);
}

TEST(CellArray, ReleasesWhatHasNoPlace) {
  const vxArrayPtr cell = zeros(vxCELL, {1, 2});
  const vxArrayPtr numbers = row({1, 2});
  vxSetCell(cell.get(), 2, scalar(7.0).release());  // a leak would show under AddressSanitizer
  vxSetCell(numbers.get(), 0, scalar(7.0).release());
  EXPECT_EQ(vxGetCell(cell.get(), 2), nullptr);
  EXPECT_EQ(vxGetCell(numbers.get(), 0), nullptr);
  EXPECT_EQ(vxGetScalar(numbers.get()), 1);
}

TEST(Containers, ShowZerosInsteadOfTheirPointers) {
  const vxArrayPtr cell = cellOfTexts({"a", "b"});
  const auto* bytes = static_cast<const std::uint8_t*>(vxGetData(cell.get()));
  EXPECT_THAT(std::vector<std::uint8_t>(bytes, bytes + kPromisedBytes), testing::Each(0));
  EXPECT_EQ(vxGetWritableData(cell.get()), nullptr);
}

TEST(StructArray, KeepsFieldsInOrderForEachElement) {
  constexpr const char* kNames[] = {"beta", "alpha"};
  const vxArrayPtr structure = matrix::detail::do_create_struct(Dimensions{1, 2}, kNames);
  vxSetField(structure.get(), 0, "alpha", scalar(1.0).release());
  vxSetField(structure.get(), 1, "beta", scalar(2.0).release());
  EXPECT_EQ(vxGetNumberOfFields(structure.get()), 2U);
  EXPECT_STREQ(vxGetFieldNameByNumber(structure.get(), 0), "beta");
  EXPECT_STREQ(vxGetFieldNameByNumber(structure.get(), 1), "alpha");
  EXPECT_EQ(vxGetScalar(vxGetField(structure.get(), 0, "alpha")), 1);
  EXPECT_EQ(vxGetScalar(vxGetField(structure.get(), 1, "beta")), 2);
  EXPECT_EQ(vxGetField(structure.get(), 0, "beta"), nullptr);
}

TEST(StructArray, ReleasesWhatHasNoPlace) {
  constexpr const char* kNames[] = {"a"};
  const vxArrayPtr structure = matrix::detail::do_create_struct(Dimensions{1, 1}, kNames);
  vxSetField(structure.get(), 0, "b", scalar(1.0).release());
  vxSetField(structure.get(), 1, "a", scalar(1.0).release());
  EXPECT_EQ(vxGetField(structure.get(), 0, "b"), nullptr);
  EXPECT_EQ(vxGetField(structure.get(), 1, "a"), nullptr);
  EXPECT_EQ(vxGetFieldNameByNumber(structure.get(), 1), nullptr);
  EXPECT_EQ(vxGetNumberOfFields(row({1}).get()), 0U);
}

// --- Memory of others

void countRelease(void* counter) { ++*static_cast<int*>(counter); }

TEST(WrappedMemory, IsUsedInPlaceAndReleasedOnce) {
  alignas(8) const double values[] = {1, 2, 3, 4};
  int released = 0;
  vxArrayPtr array = wrapMemory(vxDOUBLE, Dimensions{2, 2, 1}, values, countRelease, &released);
  EXPECT_EQ(vxGetData(array.get()), values);
  EXPECT_EQ(dimensionsOf(array), (Dimensions{2, 2}));
  EXPECT_EQ(released, 0);
  array.reset();
  EXPECT_EQ(released, 1);
}

TEST(WrappedMemory, IsCopiedWhenSixteenBytesCannotBeRead) {
  const std::vector<std::uint8_t> values = {1, 2, 3};  // read beyond would show under the sanitizer
  int released = 0;
  const vxArrayPtr array =
      wrapMemory(vxUINT8, Dimensions{1, 3}, values.data(), countRelease, &released);
  EXPECT_EQ(released, 1);
  EXPECT_NE(vxGetData(array.get()), values.data());
  EXPECT_THAT(elementsOf<std::uint8_t>(array), ElementsAreArray(values));
  EXPECT_THAT(bytesBeyond(array), testing::Each(0));
}

TEST(WrappedMemory, MayBeEmptyAndNull) {
  int released = 0;
  const vxArrayPtr array = wrapMemory(vxDOUBLE, Dimensions{0, 4}, nullptr, countRelease, &released);
  EXPECT_EQ(released, 1);
  EXPECT_TRUE(vxIsEmpty(array.get()));
  EXPECT_THAT(bytesBeyond(array), testing::Each(0));
}

TEST(WrappedMemory, IsNotReleasedWhenRefused) {
  const std::vector<double> values(4);
  int released = 0;
  EXPECT_THROW((void)wrapMemory(vxCELL, Dimensions{2, 2}, values.data(), countRelease, &released),
               std::invalid_argument);
  constexpr std::size_t kQuarter = std::numeric_limits<std::size_t>::max() / 4 + 1;
  EXPECT_THROW(
      (void)wrapMemory(vxDOUBLE, Dimensions{kQuarter, 2}, values.data(), countRelease, &released),
      std::bad_alloc);
  EXPECT_EQ(released, 0);
}

TEST(WrappedMemory, KeepsManyDimensions) {
  const std::vector<std::uint8_t> values(16);
  int released = 0;
  vxArrayPtr array =
      wrapMemory(vxUINT8, Dimensions{2, 2, 2, 2}, values.data(), countRelease, &released);
  EXPECT_EQ(dimensionsOf(array), (Dimensions{2, 2, 2, 2}));
  array.reset();
  EXPECT_EQ(released, 1);
}

// Arrays that one thread makes are released by others: the interpreter collects where it likes.
TEST(ArrayRelease, MayHappenOnAnotherThread) {
  for (int turn = 0; turn < 20; ++turn) {
    std::vector<vxArrayPtr> arrays;
    for (std::size_t size = 0; size < 300; ++size) arrays.push_back(zeros(vxUINT8, {size, size}));
    std::thread([&] { arrays.clear(); }).join();
  }
  EXPECT_EQ(vxGetScalar(scalar(3.0).get()), 3);
}

}  // namespace
}  // namespace tb::test

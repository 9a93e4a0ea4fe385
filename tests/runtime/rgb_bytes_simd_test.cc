// The kernels that put planes together as RGB bytes, on every instruction set.
#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "hwy/tests/hwy_gtest.h"
#include "runtime/rgb_bytes.h"
#include "tests/support/kernel_memory.h"

namespace tb {
namespace {

using test::KernelOutput;
using test::Sizes;

constexpr Sizes kCounts = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65, 200};

// Planes that end where the kernel must stop reading.
std::array<std::vector<std::int32_t>, 3> planesOf(std::size_t count, int least, int most) {
  std::minstd_rand random(static_cast<unsigned>(count));
  std::array<std::vector<std::int32_t>, 3> planes;
  for (auto& plane : planes)
    for (std::size_t i = 0; i < count; ++i)
      plane.push_back(least + static_cast<int>(random() >> 8) % (most - least + 1));
  return planes;
}

std::uint8_t* bytesOf(KernelOutput& output) {
  return reinterpret_cast<std::uint8_t*>(output.data());
}

void expectJoined(std::size_t count, int least, int most) {
  const auto planes = planesOf(count, least, most);
  KernelOutput rgb(3 * count), expected(3 * count);
  for (std::size_t i = 0; i < 3 * count; ++i)
    bytesOf(expected)[i] = static_cast<std::uint8_t>(planes[i % 3][i / 3]);
  runtime::joinRgbBytes(planes[0].data(), planes[1].data(), planes[2].data(), count, bytesOf(rgb));
  ASSERT_TRUE(rgb == expected) << count;
}

// How far a byte is from what it should be, which is not rounded.
double distance(std::uint8_t byte, double exact) {
  return std::abs(byte - std::clamp(exact, 0.0, 255.0));
}

void expectConverted(std::size_t count) {
  const auto planes = planesOf(count, 0, 255);
  KernelOutput rgb(3 * count), untouched(3 * count);
  runtime::joinRgbBytesFromYCbCr(planes[0].data(), planes[1].data(), planes[2].data(), count,
                                 bytesOf(rgb));
  for (std::size_t i = 0; i < count; ++i) {
    const double y = planes[0][i], cb = planes[1][i] - 128, cr = planes[2][i] - 128;
    std::uint8_t* pixel = bytesOf(rgb) + 3 * i;
    constexpr double kNearest = 0.5001;
    ASSERT_LE(distance(pixel[0], y + 1.402 * cr), kNearest);
    ASSERT_LE(distance(pixel[1], y - 0.344136286 * cb - 0.714136286 * cr), kNearest);
    ASSERT_LE(distance(pixel[2], y + 1.772 * cb), kNearest);
    std::copy_n(bytesOf(untouched) + 3 * i, 3, pixel);
  }
  ASSERT_TRUE(rgb == untouched) << count << ": bytes beyond the pixels were written";
}

class RgbBytes : public hwy::TestWithParamTarget {};
HWY_TARGET_INSTANTIATE_TEST_SUITE_P(RgbBytes);

TEST_P(RgbBytes, AreThePlanesInTurn) {
  for (const std::size_t count : kCounts) expectJoined(count, 0, 255);
}

TEST_P(RgbBytes, OfNegativeSamplesAreTheirLowBytes) {
  for (const std::size_t count : kCounts) expectJoined(count, -128, 127);
}

TEST_P(RgbBytes, FromYCbCrAreTheNearest) {
  for (const std::size_t count : kCounts) expectConverted(count);
}

}  // namespace
}  // namespace tb

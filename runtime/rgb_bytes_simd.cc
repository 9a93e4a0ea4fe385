#include "runtime/rgb_bytes.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "runtime/rgb_bytes_simd.cc"
#include "hwy/foreach_target.h"  // compiles this file once per instruction set
#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace tb::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// Calls body(d, i) for every i at which a whole vector of d begins, then for each rest element
// with a vector of one.
template <class Body>
HWY_INLINE void ForEachVector(std::size_t count, const Body& body) {
  const hn::ScalableTag<std::int32_t> d;
  const hn::CappedTag<std::int32_t, 1> one;
  std::size_t i = 0;
  for (; i + hn::Lanes(d) <= count; i += hn::Lanes(d)) body(d, i);
  for (; i < count; ++i) body(one, i);
}

template <class D>
HWY_INLINE auto LowByte(D d, hn::Vec<D> numbers) {
  const hn::Rebind<std::uint8_t, D> bytes;
  return hn::DemoteTo(bytes, hn::And(numbers, hn::Set(d, 0xFF)));
}

void JoinRgb(const std::int32_t* HWY_RESTRICT red, const std::int32_t* HWY_RESTRICT green,
             const std::int32_t* HWY_RESTRICT blue, std::size_t count,
             std::uint8_t* HWY_RESTRICT rgb) {
  ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
    const hn::Rebind<std::uint8_t, decltype(d)> bytes;
    hn::StoreInterleaved3(LowByte(d, hn::LoadU(d, red + i)), LowByte(d, hn::LoadU(d, green + i)),
                          LowByte(d, hn::LoadU(d, blue + i)), bytes, rgb + 3 * i);
  });
}

// Rounds to the nearest byte.
template <class D, class V>
HWY_INLINE auto NearestByte(D d, V real) {
  const hn::Rebind<std::uint8_t, D> bytes;
  (void)d;
  return hn::DemoteTo(bytes, hn::NearestInt(real));
}

void JoinRgbFromYCbCr(const std::int32_t* HWY_RESTRICT y, const std::int32_t* HWY_RESTRICT cb,
                      const std::int32_t* HWY_RESTRICT cr, std::size_t count,
                      std::uint8_t* HWY_RESTRICT rgb) {
  ForEachVector(count, [&](auto d, std::size_t i) HWY_ATTR {
    const hn::RebindToFloat<decltype(d)> reals;
    const hn::Rebind<std::uint8_t, decltype(d)> bytes;
    const auto middle = hn::Set(d, 128);
    const auto luma = hn::ConvertTo(reals, hn::LoadU(d, y + i));
    const auto blue = hn::ConvertTo(reals, hn::Sub(hn::LoadU(d, cb + i), middle));
    const auto red = hn::ConvertTo(reals, hn::Sub(hn::LoadU(d, cr + i), middle));
    const auto lessBlue = hn::NegMulAdd(blue, hn::Set(reals, 0.344136286F), luma);
    hn::StoreInterleaved3(
        NearestByte(d, hn::MulAdd(red, hn::Set(reals, 1.402F), luma)),
        NearestByte(d, hn::NegMulAdd(red, hn::Set(reals, 0.714136286F), lessBlue)),
        NearestByte(d, hn::MulAdd(blue, hn::Set(reals, 1.772F), luma)), bytes, rgb + 3 * i);
  });
}

}  // namespace tb::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tb {
namespace {
HWY_EXPORT(JoinRgb);
HWY_EXPORT(JoinRgbFromYCbCr);
}  // namespace

void runtime::joinRgbBytes(const std::int32_t* red, const std::int32_t* green,
                           const std::int32_t* blue, std::size_t count, std::uint8_t* rgb) {
  HWY_DYNAMIC_DISPATCH(JoinRgb)(red, green, blue, count, rgb);
}

void runtime::joinRgbBytesFromYCbCr(const std::int32_t* y, const std::int32_t* cb,
                                    const std::int32_t* cr, std::size_t count, std::uint8_t* rgb) {
  HWY_DYNAMIC_DISPATCH(JoinRgbFromYCbCr)(y, cb, cr, count, rgb);
}

}  // namespace tb
#endif

#include "fuzz/host_values.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <span>
#include <vector>

#include "fuzz/gateway_session.h"

namespace tb::fuzz {
namespace {

constexpr int kDeepest = 3;
constexpr std::size_t kMostElements = 1 << 14;
constexpr std::size_t kMostParts = 6;  // of a cell or struct

constexpr double kNumbers[] = {0,          -0.0,
                               1,          -1,
                               2,          3,
                               7,          8,
                               16,         255,
                               256,        0.5,
                               -0.5,       -0.999,
                               32768,      65535,
                               65536,      2147483647,
                               2147483648, 4294967295,
                               4294967296, 9007199254740993.0,
                               9.3e18,     1.9e19,
                               -9.3e18,    1e39,
                               -1e39,      1e300,
                               5e-324,     NAN,
                               INFINITY,   -INFINITY};

constexpr vxClassID kClasses[] = {vxLOGICAL, vxCHAR,  vxDOUBLE, vxDOUBLE, vxSINGLE,
                                  vxINT8,    vxUINT8, vxINT16,  vxUINT16, vxINT32,
                                  vxUINT32,  vxINT64, vxUINT64};

using Shape = std::vector<std::size_t>;

Shape anyShape(FuzzedDataProvider& input, std::size_t mostElements) {
  constexpr std::size_t kSides[] = {0, 1, 1, 1, 1, 2, 2, 3, 4, 6, 8, 16, 40, 256, 1000};
  Shape shape(input.ConsumeIntegralInRange<std::size_t>(0, 6), 1);
  std::size_t elements = 1;
  for (std::size_t& side : shape) {
    const std::size_t wanted = input.PickValueInArray(kSides);
    if (elements * wanted > mostElements) continue;
    side = wanted;
    elements *= wanted;
  }
  return shape;
}

// Fills `to` with bytes of the input over and over.
void fill(FuzzedDataProvider& input, unsigned char* to, std::size_t size) {
  const auto some =
      input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(0, 16));
  for (std::size_t i = 0; i < size && !some.empty(); ++i) to[i] = some[i % some.size()];
}

vxArrayPtr anyElements(FuzzedDataProvider& input) {
  const vxClassID classId = input.PickValueInArray(kClasses);
  vxArrayPtr array = matrix::detail::do_create_numeric(classId, anyShape(input, kMostElements));
  auto* to = static_cast<unsigned char*>(vxGetWritableData(array.get()));
  const std::size_t size = vxGetNumberOfElements(array.get()) * vxGetElementSize(array.get());
  if (classId == vxDOUBLE && input.ConsumeBool()) {
    for (std::size_t at = 0; at < size; at += sizeof(double)) {
      const double element = input.PickValueInArray(kNumbers);
      std::memcpy(to + at, &element, sizeof element);
    }
    return array;
  }
  fill(input, to, size);
  if (classId == vxLOGICAL)
    for (std::size_t i = 0; i < size; ++i) to[i] &= 1U;
  return array;
}

vxArrayPtr anyText(FuzzedDataProvider& input) {
  const bool isWide = input.ConsumeIntegralInRange(0, 3) == 0;
  const auto bytes =
      input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(0, 12));
  const std::size_t dimensions[] = {1, bytes.size()};
  vxArrayPtr text = matrix::detail::do_create_numeric(vxCHAR, dimensions);
  auto* units = static_cast<char16_t*>(vxGetWritableData(text.get()));
  std::ranges::transform(bytes, units, [isWide](unsigned char byte) {
    return static_cast<char16_t>(isWide ? byte * 257U : byte);
  });
  return text;
}

vxArrayPtr valueAt(FuzzedDataProvider& input, int depth);

vxArrayPtr anyCell(FuzzedDataProvider& input, int depth) {
  vxArrayPtr cell = matrix::detail::do_create_cell(anyShape(input, kMostParts));
  for (std::size_t i = 0; i < vxGetNumberOfElements(cell.get()); ++i)
    if (input.ConsumeBool()) vxSetCell(cell.get(), i, valueAt(input, depth + 1).release());
  return cell;
}

vxArrayPtr anyStruct(FuzzedDataProvider& input, int depth) {
  constexpr const char* kNames[] = {"a", "b", "ImageWidth"};
  const std::span names(kNames, input.ConsumeIntegralInRange<std::size_t>(0, std::size(kNames)));
  vxArrayPtr structure = matrix::detail::do_create_struct(anyShape(input, 2), names);
  for (std::size_t i = 0; i < vxGetNumberOfElements(structure.get()); ++i)
    for (const char* name : names)
      if (input.ConsumeBool())
        vxSetField(structure.get(), i, name, valueAt(input, depth + 1).release());
  return structure;
}

vxArrayPtr valueAt(FuzzedDataProvider& input, int depth) {
  switch (input.ConsumeIntegralInRange(0, depth < kDeepest ? 9 : 7)) {
    case 0:
    case 1:
      return number(input.PickValueInArray(kNumbers));
    case 2:
      return anyText(input);
    case 8:
      return anyCell(input, depth);
    case 9:
      return anyStruct(input, depth);
    default:
      return anyElements(input);
  }
}

}  // namespace

vxArrayPtr anyHostValue(FuzzedDataProvider& input) { return valueAt(input, 0); }

}  // namespace tb::fuzz

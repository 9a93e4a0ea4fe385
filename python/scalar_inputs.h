// 1-by-1 arrays for the inputs of a call, made once and used again by later calls: nearly every
// input is one, and making one anew costs more than all else that is done for it.
#pragma once

#include <array>
#include <cstring>
#include <utility>

#include "host/array.h"

namespace tb::python {

// For each of the first inputs one array of every class, made when it is first wanted.
class ScalarInputs {
 public:
  static constexpr std::size_t kInputs = 8;

  // The array of `classId`, numeric or logical, that belongs to the input at `index`, less than
  // kInputs. Its element becomes the `size` bytes at `value`, which are all of it.
  const vxArray* set(std::size_t index, vxClassID classId, const void* value, std::size_t size) {
    Scalar& scalar = scalars_[index][static_cast<std::size_t>(classId)];
    if (scalar.array == nullptr) scalar = created(classId);
    if (size == sizeof(double))  // nearly always, and then without a call
      std::memcpy(scalar.element, value, sizeof(double));
    else
      std::memcpy(scalar.element, value, size);
    return scalar.array.get();
  }

 private:
  struct Scalar {
    vxArrayPtr array;
    void* element = nullptr;
  };

  static Scalar created(vxClassID classId) {
    constexpr std::size_t kDimensions[] = {1, 1};
    vxArrayPtr array = matrix::detail::do_create_numeric(classId, kDimensions);
    void* const element = vxGetWritableData(array.get());
    return {std::move(array), element};
  }

  std::array<std::array<Scalar, vxUINT64 + 1>, kInputs> scalars_;
};

}  // namespace tb::python

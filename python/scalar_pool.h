// 1-by-1 arrays for reuse: nearly every argument is one, and making one anew costs more than all
// else that is done for it.
#pragma once

#include <array>
#include <boost/container/static_vector.hpp>
#include <cstring>
#include <utility>

#include "host/array.h"

namespace tb::python {

// Used with the interpreter's lock held. An array that is taken belongs to the taker.
class ScalarPool {
 public:
  // A 1-by-1 array of `classId`, numeric or logical, with the `size` bytes at `value`, which are
  // all of its element.
  vxArrayPtr take(vxClassID classId, const void* value, std::size_t size) {
    Kept& kept = kept_[static_cast<std::size_t>(classId)];
    vxArrayPtr scalar;
    if (kept.empty()) {
      scalar = matrix::detail::do_create_numeric(classId, kDimensions);
    } else {
      scalar = std::move(kept.back());
      kept.pop_back();
    }
    std::memcpy(vxGetWritableData(scalar.get()), value, size);
    return scalar;
  }

  // Keeps what take returned, or releases it when there are enough.
  void give(vxArrayPtr scalar) noexcept {
    Kept& kept = kept_[static_cast<std::size_t>(vxGetClassID(scalar.get()))];
    if (kept.size() < kept.capacity()) kept.push_back(std::move(scalar));
  }

 private:
  static constexpr std::array<std::size_t, 2> kDimensions = {1, 1};
  using Kept = boost::container::static_vector<vxArrayPtr, 4>;
  std::array<Kept, vxUINT64 + 1> kept_;
};

}  // namespace tb::python

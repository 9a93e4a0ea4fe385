#include "core/operation.h"

#include <utility>

namespace tb {

void storeOutput(int outputCount, vxArrayPtr* outputs, int slot, vxArrayPtr value) noexcept {
  if (slot < outputCount) outputs[slot] = std::move(value);
}

}  // namespace tb

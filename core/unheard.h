#pragma once

#include <cstddef>

#include "host/tiff_utilities.h"

namespace tb {

// Forgets, when it ends, what libtiff has said on this thread since it began: for questions whose
// answer is no error, and for work that is done a second time.
class Unheard {
 public:
  Unheard() noexcept = default;
  Unheard(const Unheard&) = delete;
  Unheard& operator=(const Unheard&) = delete;
  ~Unheard() { ZQTIFFforgetMessages(before_); }

 private:
  std::size_t before_ = ZQTIFFmessageCount();
};

}  // namespace tb

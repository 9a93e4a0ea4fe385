#pragma once

#include <tiffio.h>

namespace tb {

// While one lives libtiff's errors are not heard: for an attempt that is repeated another way when
// it fails, which then says the same thing.
class QuietErrors {
 public:
  QuietErrors() = default;
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;
  ~QuietErrors() { TIFFSetErrorHandler(handler_); }

 private:
  TIFFErrorHandler handler_ = TIFFSetErrorHandler(nullptr);
};

}  // namespace tb

#pragma once

#include <tiffio.h>

namespace tb {

// While one lives libtiff is not heard: for decoding a block in one of two ways, of which the other
// says the same thing.
class Silence {
 public:
  Silence() = default;
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() {
    TIFFSetErrorHandler(errorHandler_);
    TIFFSetWarningHandler(warningHandler_);
  }

 private:
  TIFFErrorHandler errorHandler_ = TIFFSetErrorHandler(nullptr);
  TIFFErrorHandler warningHandler_ = TIFFSetWarningHandler(nullptr);
};

}  // namespace tb

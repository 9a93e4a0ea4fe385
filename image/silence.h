#pragma once

#include <tiffio.h>

namespace tb {

// While one lives libtiff is not heard, by no thread of the process: for decoding a block once
// more, of which libtiff has said already what is wrong.
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

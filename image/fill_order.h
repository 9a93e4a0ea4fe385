#pragma once

#include <tiffio.h>

#include "core/image_metadata.h"

namespace tb {

// Whether libtiff turns round the bits of each byte that it reads from a file, for codecs that do
// not do so themselves.
bool hasOtherFillOrder(TIFF* tif);

// Lives while blocks of a directory are decoded, and has libtiff do that right whose bits lie in
// the other order than libtiff takes for its own (FillOrder).
//
// On a file that can be written libtiff turns the bits of fax data round, and its fax decoders,
// which are made for such data, do it again. From a mapped file libtiff copies such a block into a
// buffer that it does not make: after a block that it took from the map it has none.
class FillOrderScope {
 public:
  explicit FillOrderScope(const TiffImageMetaData_& record);
  FillOrderScope(const FillOrderScope&) = delete;
  FillOrderScope& operator=(const FillOrderScope&) = delete;
  ~FillOrderScope();

 private:
  TIFF* tif_;
  bool isTurnedTwice_ = false;
};

}  // namespace tb

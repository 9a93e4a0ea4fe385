#pragma once

#include <tiffio.h>

namespace tb {

// Lives while blocks of `tif` are decoded. On a file that can be written libtiff itself turns the
// bits of fax data round whose FillOrder is 2, and its fax decoders, which are made for such data,
// turn them round again.
class FaxBitOrder {
 public:
  explicit FaxBitOrder(TIFF* tif);
  FaxBitOrder(const FaxBitOrder&) = delete;
  FaxBitOrder& operator=(const FaxBitOrder&) = delete;
  ~FaxBitOrder();

 private:
  TIFF* tif_;
  bool isTurnedTwice_;
};

}  // namespace tb

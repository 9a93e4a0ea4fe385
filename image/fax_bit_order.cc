#include "image/fax_bit_order.h"

#include <cstdint>

#include "core/open_files.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

std::uint16_t defaulted(TIFF* tif, std::uint32_t tag) {
  std::uint16_t value = 0;
  (void)TIFFGetFieldDefaulted(tif, tag, &value);
  return value;
}

bool isFax(std::uint16_t compression) {
  return compression == COMPRESSION_CCITTRLE || compression == COMPRESSION_CCITTRLEW ||
         compression == COMPRESSION_CCITTFAX3 || compression == COMPRESSION_CCITTFAX4;
}

}  // namespace

FaxBitOrder::FaxBitOrder(TIFF* tif)
    : tif_(tif),
      isTurnedTwice_(!isReadOnly(tif) && isFax(defaulted(tif, TIFFTAG_COMPRESSION)) &&
                     defaulted(tif, TIFFTAG_FILLORDER) == FILLORDER_LSB2MSB && TIFFIsMSB2LSB(tif)) {
  if (isTurnedTwice_) ZQTIFFreverseBitsRead(tif, true);
}

FaxBitOrder::~FaxBitOrder() {
  if (isTurnedTwice_) ZQTIFFreverseBitsRead(tif_, false);
}

}  // namespace tb

#include "image/fill_order.h"

#include <fcntl.h>

#include <cstdint>

#include "core/field_guard.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

bool isFax(std::uint16_t compression) {
  return compression == COMPRESSION_CCITTRLE || compression == COMPRESSION_CCITTRLEW ||
         compression == COMPRESSION_CCITTFAX3 || compression == COMPRESSION_CCITTFAX4;
}

// libtiff enlarges a buffer of its own, but does not make one.
void makeReadBuffer(TIFF* tif) {
  constexpr tmsize_t kSize = 1024;
  (void)TIFFReadBufferSetup(tif, nullptr, kSize);
}

}  // namespace

bool hasOtherFillOrder(TIFF* tif) {
  const auto order = fieldOrDefault<std::uint16_t>(tif, TIFFTAG_FILLORDER);
  return (order == FILLORDER_MSB2LSB) != (TIFFIsMSB2LSB(tif) != 0);
}

FillOrderScope::FillOrderScope(const TiffImageMetaData_& record) : tif_(record.tif) {
  if (!hasOtherFillOrder(tif_)) return;
  if (record.mode == O_RDONLY) {
    if (record.compression != COMPRESSION_OJPEG) makeReadBuffer(tif_);  // it reads by itself
    return;
  }
  isTurnedTwice_ = isFax(record.compression) && TIFFIsMSB2LSB(tif_);
  if (isTurnedTwice_) ZQTIFFreverseBitsRead(tif_, true);
}

FillOrderScope::~FillOrderScope() {
  if (isTurnedTwice_) ZQTIFFreverseBitsRead(tif_, false);
}

}  // namespace tb

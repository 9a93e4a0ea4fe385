#include "image/fill_order.h"

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

// libtiff enlarges a buffer of its own, but does not make one.
void makeReadBuffer(TIFF* tif) {
  constexpr tmsize_t kSize = 1024;
  (void)TIFFReadBufferSetup(tif, nullptr, kSize);
}

}  // namespace

bool hasOtherFillOrder(TIFF* tif) {
  return (defaulted(tif, TIFFTAG_FILLORDER) == FILLORDER_MSB2LSB) != (TIFFIsMSB2LSB(tif) != 0);
}

FillOrderScope::FillOrderScope(TIFF* tif) : tif_(tif) {
  if (!hasOtherFillOrder(tif)) return;
  const std::uint16_t compression = defaulted(tif, TIFFTAG_COMPRESSION);
  if (isReadOnly(tif)) {
    if (compression != COMPRESSION_OJPEG) makeReadBuffer(tif);  // it reads the file by itself
    return;
  }
  isTurnedTwice_ = isFax(compression) && TIFFIsMSB2LSB(tif);
  if (isTurnedTwice_) ZQTIFFreverseBitsRead(tif, true);
}

FillOrderScope::~FillOrderScope() {
  if (isTurnedTwice_) ZQTIFFreverseBitsRead(tif_, false);
}

}  // namespace tb

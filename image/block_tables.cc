#include "image/block_tables.h"

#include "host/array.h"

namespace tb {

bool hasRoomForTables(TIFF* tif, std::uint32_t blockCount) {
  constexpr std::uint64_t kBytesPerBlock = 16, kMost = std::uint64_t{1} << 30;
  int isMissing = 0;
  (void)TIFFGetStrileByteCountWithErr(tif, 0, &isMissing);
  const std::uint64_t bytes = blockCount * kBytesPerBlock;
  if (isMissing == 0 || (bytes <= kMost && vxIsWithinMemoryLimit(bytes))) return true;
  TIFFErrorExtR(tif, "TIFFSetupStrips",
                "%s: The tables of %u strips or tiles would take %llu bytes", TIFFFileName(tif),
                blockCount, static_cast<unsigned long long>(bytes));
  return false;
}

}  // namespace tb

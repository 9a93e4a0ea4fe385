// Moving between directories, writing them, and the simple questions about the current one: each
// operation is one libtiff call between checks.
#include <algorithm>
#include <cstdint>
#include <span>

#include "core/arguments.h"
#include "core/directory_writes.h"
#include "core/errors.h"
#include "core/image_metadata.h"
#include "core/open_files.h"
#include "core/values.h"
#include "handlers/compression.h"
#include "handlers/directory_moves.h"
#include "handlers/handlers.h"

namespace tb {
namespace {

// libtiff counts from 0, the host from 1; 2^32 - 1 wraps to 0.
vxArrayPtr oneBased(std::uint32_t number) { return doubleScalar(number + 1U); }

std::uint16_t unpackSample(int inputCount, const vxArray* const* inputs,
                           const TiffImageMetaData_& record) {
  return unpack_tsample_t(inputCount, inputCount > 2 ? inputs[2] : nullptr, record);
}

std::span<const std::uint64_t> subDirectoryOffsets(TIFF* tif) {
  std::uint16_t count = 0;
  std::uint64_t* offsets = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets) || !offsets) return {};
  return {offsets, count};
}

}  // namespace

void TIFFGetVersion_handler(int outputCount, vxArrayPtr* outputs, int, const vxArray* const*,
                            s_tagbridge_op*) {
  const char* version = TIFFGetVersion();
  storeOutput(outputCount, outputs, 0, matrix::create(version ? version : ""));
}

void TIFFComputeStrip_handler(int outputCount, vxArrayPtr* outputs, int inputCount,
                              const vxArray* const* inputs, s_tagbridge_op*) {
  TIFF* tif = unpackTiffFileId(inputs[0]);
  const TiffImageMetaData_ record = imageMetadata(tif);
  std::uint32_t row = unpackRow(inputs[1]);
  if (row >= record.imageLength) row = record.imageLength - 1U;
  const std::uint16_t sample = unpackSample(inputCount, inputs, record);
  storeOutput(outputCount, outputs, 0, oneBased(computeStripNumber(record, row, sample)));
}

void TIFFComputeTile_handler(int outputCount, vxArrayPtr* outputs, int inputCount,
                             const vxArray* const* inputs, s_tagbridge_op*) {
  TIFF* tif = unpackTiffFileId(inputs[0]);
  const TiffImageMetaData_ record = imageMetadata(tif);
  std::uint32_t x = 0;
  std::uint32_t y = 0;
  unpackPixelXY(inputs[1], x, y);
  // To the width and length themselves, while computeStrip stops one short: libtiff judges them.
  x = std::min(x, record.imageWidth);
  y = std::min(y, record.imageLength);
  const std::uint16_t sample = unpackSample(inputCount, inputs, record);
  storeOutput(outputCount, outputs, 0, oneBased(TIFFComputeTile(tif, x, y, 0, sample)));
}

void TIFFCurrentDirectory_handler(int outputCount, vxArrayPtr* outputs, int,
                                  const vxArray* const* inputs, s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  storeOutput(outputCount, outputs, 0, oneBased(TIFFCurrentDirectory(tif)));
}

void TIFFIsTiled_handler(int outputCount, vxArrayPtr* outputs, int, const vxArray* const* inputs,
                         s_tagbridge_op*) {
  TIFF* tif = unpackTiffFileId(inputs[0]);
  storeOutput(outputCount, outputs, 0, logicalScalar(TIFFIsTiled(tif) == 1));
}

void TIFFLastDirectory_handler(int outputCount, vxArrayPtr* outputs, int,
                               const vxArray* const* inputs, s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  storeOutput(outputCount, outputs, 0, logicalScalar(TIFFLastDirectory(tif) != 0));
}

void TIFFNumberOfStrips_handler(int outputCount, vxArrayPtr* outputs, int,
                                const vxArray* const* inputs, s_tagbridge_op*) {
  TIFF* tif = unpackTiffFileId(inputs[0]);
  storeOutput(outputCount, outputs, 0, doubleScalar(TIFFNumberOfStrips(tif)));
}

void TIFFNumberOfTiles_handler(int outputCount, vxArrayPtr* outputs, int,
                               const vxArray* const* inputs, s_tagbridge_op*) {
  TIFF* tif = unpackTiffFileId(inputs[0]);
  storeOutput(outputCount, outputs, 0, doubleScalar(TIFFNumberOfTiles(tif)));
}

void TIFFReadDirectory_handler(int, vxArrayPtr*, int, const vxArray* const* inputs,
                               s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  // Past the last directory libtiff forgets where the current one stands in the file, and a later
  // rewrite would append a copy of it: so it is not asked.
  if (TIFFLastDirectory(tif) || !moveToNextDirectory(tif)) raise<Tiff::unableToReadDir>();
}

void TIFFRewriteDirectory_handler(int, vxArrayPtr*, int, const vxArray* const* inputs,
                                  s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  if (!rewriteDirectory(tif)) raise<Tiff::unableToWriteDir>();
}

void TIFFWriteDirectory_handler(int, vxArrayPtr*, int, const vxArray* const* inputs,
                                s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  if (!writeDirectory(tif)) raise<Tiff::unableToWriteCurrentDir>();
}

void TIFFSetDirectory_handler(int, vxArrayPtr*, int, const vxArray* const* inputs,
                              s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  const std::uint32_t number = unpackDirectoryNumber(inputs[1]);
  if (!moveToDirectory(tif, number)) raise<Tiff::unableToChangeDir>(number + 1U);
  validateCompressionScheme(tif);
}

void TIFFSetSubDirectory_handler(int, vxArrayPtr*, int, const vxArray* const* inputs,
                                 s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  const std::uint64_t wanted = unpackDirectoryOffset(inputs[1]);
  const std::span<const std::uint64_t> offsets = subDirectoryOffsets(tif);

  if (offsets.empty()) raise<Tiff::noSubDirectories>();
  if (std::ranges::find(offsets, wanted) == offsets.end()) raise<Tiff::noSuchSubDirectory>();
  if (!moveToSubDirectory(tif, wanted)) raise<Tiff::unableToChangeSubdir>(wanted);
  validateCompressionScheme(tif);
}

}  // namespace tb

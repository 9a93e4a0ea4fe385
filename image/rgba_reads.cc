// "readRGBAStrip", "readRGBATile" and "readRGBAImage": libtiff converts any photometric
// interpretation that it supports into a raster of 32-bit entries, bottom row first. Rasters are
// read straight into 4 x width x height uint8 arrays: on a little-endian machine the memory of both
// is the same, elsewhere the entries become components in place.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

#include "core/arguments.h"
#include "core/edits.h"
#include "core/errors.h"
#include "core/image_metadata.h"
#include "core/open_files.h"
#include "core/sample_depth.h"
#include "core/values.h"
#include "image/block_buffer.h"
#include "image/fill_order.h"
#include "image/handlers.h"
#include "image/rgba_blocks.h"

namespace tb {
namespace {

constexpr std::size_t kEntrySize = 4;

// libtiff reads some images as RGBA by having their codec decode to another form. It does not
// notice when the codec may not change, as after a write, and would then take more bytes from a
// buffer than it has; and it leaves the codec and the directory changed. Each of these classes
// makes the change itself, and undoes what can be undone.
//
// JPEG-compressed YCbCr: RGB for as long as the object lives. Encoded reads would fail otherwise.
class JpegAsRgb {
 public:
  explicit JpegAsRgb(const TiffImageMetaData_& record)
      : record_(record),
        switches_(record.photometric == PHOTOMETRIC_YCBCR &&
                  record.compression == COMPRESSION_JPEG &&
                  record.planarConfig == PLANARCONFIG_CONTIG &&
                  record.jpegColorMode != JPEGCOLORMODE_RGB),
        isReady_(!switches_ ||
                 TIFFSetField(record.tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB) != 0) {}
  JpegAsRgb(const JpegAsRgb&) = delete;
  JpegAsRgb& operator=(const JpegAsRgb&) = delete;
  ~JpegAsRgb() {
    // Nothing to be done about a failure: the mode was valid when it was read.
    if (switches_) (void)TIFFSetField(record_.tif, TIFFTAG_JPEGCOLORMODE, record_.jpegColorMode);
  }
  bool isReady() const { return isReady_; }

 private:
  const TiffImageMetaData_& record_;
  bool switches_;
  bool isReady_;
};

// LogL and LogLuv: 8 bits from now on. A codec that has begun to write cannot be turned back to
// what it was, nor BitsPerSample, and the maps of the directory must follow it.
class SgiLogAs8Bits {
 public:
  explicit SgiLogAs8Bits(const TiffImageMetaData_& record)
      : record_(record), before_(sampleDepth(record.tif)) {
    if (!isSgiLog()) return;
    const bool isSet = TIFFSetField(record.tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_8BIT) != 0;
    isReady_ = isSet && effectiveBitsPerSample(record.tif) == kBits;
    if (!isReady_ && record.sgiLogDataFmt >= 0) {
      (void)TIFFSetField(record.tif, TIFFTAG_SGILOGDATAFMT, record.sgiLogDataFmt);
    }
  }
  SgiLogAs8Bits(const SgiLogAs8Bits&) = delete;
  SgiLogAs8Bits& operator=(const SgiLogAs8Bits&) = delete;
  ~SgiLogAs8Bits() {
    if (sampleDepth(record_.tif) == before_) return;
    fitMapsToDepth(record_.tif, before_.bits);
    noteReadEdit(record_.tif, before_);
  }
  bool isReady() const { return isReady_; }

 private:
  static constexpr std::uint16_t kBits = 8;
  bool isSgiLog() const {
    return (record_.photometric == PHOTOMETRIC_LOGL || record_.photometric == PHOTOMETRIC_LOGLUV) &&
           (record_.compression == COMPRESSION_SGILOG ||
            record_.compression == COMPRESSION_SGILOG24);
  }

  const TiffImageMetaData_& record_;
  SampleDepth before_;
  bool isReady_ = true;
};

// What an RGBA read needs of the codec.
class CodecForRgba {
 public:
  explicit CodecForRgba(const TiffImageMetaData_& record)
      : mayDecode_(mayDecode(record.tif, "TIFFReadRGBAImage")),
        fillOrder_(record),
        jpeg_(record),
        sgiLog_(record) {}
  bool isReady() const { return mayDecode_ && jpeg_.isReady() && sgiLog_.isReady(); }

 private:
  bool mayDecode_;
  FillOrderScope fillOrder_;
  JpegAsRgb jpeg_;
  SgiLogAs8Bits sgiLog_;
};

// Rows that the file does not fill stay 0. `besides` are entries that are needed at the same time.
vxArrayPtr createRaster(const TiffImageMetaData_& record, std::uint32_t width, std::uint32_t height,
                        std::uint64_t besides = 0) {
  const std::size_t dimensions[] = {kEntrySize, width, height};
  requireMemoryForRgba(record, std::uint64_t{width} * height + besides);
  return matrix::detail::do_create_numeric(vxUINT8, dimensions);
}

std::uint32_t* entriesOf(const vxArrayPtr& raster) {
  return reinterpret_cast<std::uint32_t*>(writableDataOf(raster.get()));
}

// Lays the components of each entry out as the array has them.
void takeComponents(const vxArrayPtr& raster) {
  const std::size_t size = vxGetNumberOfElements(raster.get());
  std::byte* data = writableDataOf(raster.get());
  for (std::size_t place = 0; place < size; place += kEntrySize) {
    std::uint32_t entry = 0;
    std::memcpy(&entry, data + place, kEntrySize);
    const std::uint32_t components[] = {TIFFGetR(entry), TIFFGetG(entry), TIFFGetB(entry),
                                        TIFFGetA(entry)};
    std::ranges::transform(components, data + place, [](std::uint32_t component) {
      return static_cast<std::byte>(component);
    });
  }
}

void storeRaster(int outputCount, vxArrayPtr* outputs, vxArrayPtr raster) {
  if (std::endian::native != std::endian::little) takeComponents(raster);
  storeOutput(outputCount, outputs, 0, std::move(raster));
}

constexpr std::uint32_t roundDown(std::uint32_t value, std::uint32_t step) noexcept {
  return step == 0 ? value : value - value % step;
}

// libtiff divides by the strip's size, and past the image it computes a row count below zero: it is
// asked for strips and tiles of the image only.
RgbaRead readStrip(const TiffImageMetaData_& record, std::uint32_t row, std::uint32_t* raster) {
  if (record.imageWidth == 0 || record.rowsPerStrip == 0 || row >= record.imageLength)
    return RgbaRead::kFailed;
  return readRgbaBlock(record, {0, row}, raster);
}

RgbaRead readTile(const TiffImageMetaData_& record, std::uint32_t x, std::uint32_t y,
                  std::uint32_t* raster) {
  if (record.tileWidth == 0 || record.tileLength == 0) return RgbaRead::kFailed;
  if (x >= record.imageWidth || y >= record.imageLength) return RgbaRead::kFailed;
  return readRgbaBlock(record, {x, y}, raster);
}

// The blocks of an image of which nothing could be decoded. They are black, or what libtiff makes
// of zeros, next to others; when all are like that, there is no image.
class UndecodedBlocks {
 public:
  // Takes the outcome of a block's read; false when it failed.
  bool note(RgbaRead outcome, RgbaBlock block) {
    if (outcome == RgbaRead::kNothing) blocks_.push_back(block);
    if (outcome == RgbaRead::kDone) isAnyDecoded_ = true;
    return outcome != RgbaRead::kFailed;
  }
  bool isAnyDecoded() const { return isAnyDecoded_; }
  std::span<const RgbaBlock> blocks() const { return blocks_; }

 private:
  bool isAnyDecoded_ = false;
  std::vector<RgbaBlock> blocks_;
};

// Strips are read straight into their place: a strip's raster is as wide as the image.
bool readStrippedImage(const TiffImageMetaData_& record, std::uint32_t* image) {
  if (record.rowsPerStrip == 0) return false;
  const auto placeOf = [&](std::uint32_t row) {
    const std::size_t rows = std::min(record.imageLength - row, record.rowsPerStrip);
    return image + (record.imageLength - row - rows) * record.imageWidth;
  };
  UndecodedBlocks undecoded;
  for (std::uint64_t y = 0; y < record.imageLength; y += record.rowsPerStrip) {
    const auto row = static_cast<std::uint32_t>(y);
    if (!undecoded.note(readStrip(record, row, placeOf(row)), {0, row})) return false;
  }
  return undecoded.isAnyDecoded() &&
         std::ranges::all_of(undecoded.blocks(), [&](const RgbaBlock& strip) {
           return convertUndecodedBlock(record, strip, placeOf(strip.row));
         });
}

// Copies the part of a tile that belongs to the image. The raster's bottom row comes first, so the
// tile's padding below the image is at its start.
void placeTile(const TiffImageMetaData_& record, std::uint32_t x, std::uint32_t y,
               const std::uint32_t* tile, std::uint32_t* image) {
  const std::size_t rows = std::min(record.imageLength - y, record.tileLength);
  const std::size_t columns = std::min(record.imageWidth - x, record.tileWidth);
  const std::uint32_t* source = tile + (record.tileLength - rows) * record.tileWidth;
  std::uint32_t* target = image + (record.imageLength - y - rows) * record.imageWidth + x;
  for (std::size_t row = 0; row < rows; ++row) {
    std::memcpy(target, source, columns * kEntrySize);
    source += record.tileWidth;
    target += record.imageWidth;
  }
}

bool readTiledImage(const TiffImageMetaData_& record, std::uint32_t* image) {
  if (record.tileWidth == 0 || record.tileLength == 0) return false;
  BlockBuffer raster =
      BlockBuffer::zeroed(std::size_t{record.tileWidth} * record.tileLength, kEntrySize);
  auto* tile = reinterpret_cast<std::uint32_t*>(raster.bytes().data());
  UndecodedBlocks undecoded;
  // 64 bits, since the last step may pass 2^32.
  for (std::uint64_t y = 0; y < record.imageLength; y += record.tileLength) {
    for (std::uint64_t x = 0; x < record.imageWidth; x += record.tileWidth) {
      const auto column = static_cast<std::uint32_t>(x);
      const auto row = static_cast<std::uint32_t>(y);
      const RgbaRead outcome = readTile(record, column, row, tile);
      if (!undecoded.note(outcome, {column, row})) return false;
      if (outcome == RgbaRead::kDone) placeTile(record, column, row, tile, image);
    }
  }
  return undecoded.isAnyDecoded() &&
         std::ranges::all_of(undecoded.blocks(), [&](const RgbaBlock& block) {
           const bool done = convertUndecodedBlock(record, block, tile);
           if (done) placeTile(record, block.column, block.row, tile, image);
           return done;
         });
}

}  // namespace

void TIFFReadRGBAStrip_handler(int outputCount, vxArrayPtr* outputs, int,
                               const vxArray* const* inputs, s_tagbridge_op*) {
  const TiffImageMetaData_ record = imageMetadata(unpackTiffFileId(inputs[0]));
  if (TIFFIsTiled(record.tif)) raise<Tiff::strippedOperationOnTiledImage>();
  const std::uint32_t row =
      roundDown(unpackRow(inputs[1]), std::min(record.imageLength, record.rowsPerStrip));
  const CodecForRgba codec(record);
  vxArrayPtr raster = createRaster(record, record.imageWidth, record.rowsPerStrip);
  if (!codec.isReady() || readStrip(record, row, entriesOf(raster)) != RgbaRead::kDone) {
    raise<Tiff::stripReadErrorRGBA>(row + 1U);
  }
  storeRaster(outputCount, outputs, std::move(raster));
}

void TIFFReadRGBATile_handler(int outputCount, vxArrayPtr* outputs, int,
                              const vxArray* const* inputs, s_tagbridge_op*) {
  const TiffImageMetaData_ record = imageMetadata(unpackTiffFileId(inputs[0]));
  if (!TIFFIsTiled(record.tif)) raise<Tiff::tiledOperationOnStrippedImage>();
  std::uint32_t x = unpackRow(inputs[1]);
  std::uint32_t y = unpackRow(inputs[2]);
  x = roundDown(x, record.tileWidth);
  y = roundDown(y, record.tileLength);
  const CodecForRgba codec(record);
  vxArrayPtr raster = createRaster(record, record.tileWidth, record.tileLength);
  if (!codec.isReady() || readTile(record, x, y, entriesOf(raster)) != RgbaRead::kDone) {
    raise<Tiff::tileReadErrorRGBA>(y + 1U, x + 1U);
  }
  storeRaster(outputCount, outputs, std::move(raster));
}

void TIFFReadRGBAImage_handler(int outputCount, vxArrayPtr* outputs, int,
                               const vxArray* const* inputs, s_tagbridge_op*) {
  const TiffImageMetaData_ record = imageMetadata(unpackTiffFileId(inputs[0]));
  const std::uint64_t tile = std::uint64_t{record.tileWidth} * record.tileLength;
  vxArrayPtr raster = createRaster(record, record.imageWidth, record.imageLength, tile);
  const CodecForRgba codec(record);
  const bool complete = codec.isReady() && record.imageWidth != 0 && record.imageLength != 0 &&
                        (TIFFIsTiled(record.tif) ? readTiledImage(record, entriesOf(raster))
                                                 : readStrippedImage(record, entriesOf(raster)));
  if (!complete) raise<Tiff::imageReadErrorRGBA>();
  storeRaster(outputCount, outputs, std::move(raster));
}

}  // namespace tb

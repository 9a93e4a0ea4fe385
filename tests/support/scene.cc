#include "tests/support/scene.h"

#include <cstring>
#include <utility>

namespace tb::test {

Tags also(Tags tags, const Tags& more) {
  tags.insert(tags.end(), more.begin(), more.end());
  return tags;
}

namespace {

Tags imageTags(int photometric, int bits, int samples) {
  Tags tags{
      {TIFFTAG_PHOTOMETRIC, photometric}, {TIFFTAG_IMAGEWIDTH, 16}, {TIFFTAG_IMAGELENGTH, 16}};
  if (samples != 0)
    tags = also(tags, {{TIFFTAG_BITSPERSAMPLE, bits}, {TIFFTAG_SAMPLESPERPIXEL, samples}});
  return also(tags, {{TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG}});
}

}  // namespace

Tags stripTags(int photometric, int bits, int samples) {
  return also(imageTags(photometric, bits, samples), {{TIFFTAG_ROWSPERSTRIP, 16}});
}

Tags tileTags(int photometric, int bits, int samples) {
  return also(imageTags(photometric, bits, samples),
              {{TIFFTAG_TILEWIDTH, 16}, {TIFFTAG_TILELENGTH, 16}});
}

Tags tagsOf(const Layout& layout) {
  Tags tags{{TIFFTAG_PHOTOMETRIC, layout.photometric}, {TIFFTAG_BITSPERSAMPLE, layout.bits},
            {TIFFTAG_SAMPLESPERPIXEL, layout.samples}, {TIFFTAG_SAMPLEFORMAT, layout.format},
            {TIFFTAG_PLANARCONFIG, layout.planar},     {TIFFTAG_IMAGEWIDTH, layout.width},
            {TIFFTAG_IMAGELENGTH, layout.length},      {TIFFTAG_COMPRESSION, layout.compression}};
  if (layout.photometric <= PHOTOMETRIC_MINISBLACK && layout.samples > 1)
    tags = also(tags, {{TIFFTAG_EXTRASAMPLES, zeros(vxDOUBLE, {1, layout.samples - 1U})}});
  if (layout.photometric == PHOTOMETRIC_YCBCR)
    tags = also(
        tags, {{TIFFTAG_YCBCRSUBSAMPLING, row({1.0 * layout.horizontal, 1.0 * layout.vertical})}});
  if (layout.tiled())
    return also(tags,
                {{TIFFTAG_TILEWIDTH, layout.tileWidth}, {TIFFTAG_TILELENGTH, layout.tileLength}});
  return also(tags, {{TIFFTAG_ROWSPERSTRIP, layout.blockLength()}});
}

vxClassID classOf(const Layout& layout) {
  if (layout.bits == 1) return vxLOGICAL;
  if (layout.format == SAMPLEFORMAT_IEEEFP) return layout.bits == 64 ? vxDOUBLE : vxSINGLE;
  const bool isSigned = layout.format == SAMPLEFORMAT_INT;
  switch (layout.bits) {
    case 8:
      return isSigned ? vxINT8 : vxUINT8;
    case 16:
      return isSigned ? vxINT16 : vxUINT16;
    default:
      return isSigned ? vxINT32 : vxUINT32;
  }
}

namespace {

vxArrayPtr arrayOfBytes(vxClassID classId, const Dimensions& dimensions,
                        const std::vector<std::byte>& bytes) {
  vxArrayPtr array = zeros(classId, dimensions);
  std::memcpy(vxGetWritableData(array.get()), bytes.data(), bytes.size());
  return array;
}

// Samples of one component of a YCbCr block, every `down` rows and `across` columns.
vxArrayPtr component(const Layout& layout, const BlockPlace& place, std::uint32_t sample,
                     std::uint32_t down, std::uint32_t across) {
  std::vector<std::byte> bytes;
  for (std::uint32_t c = 0; c < place.columns; c += across)
    for (std::uint32_t r = 0; r < place.rows; r += down)
      bytes.push_back(static_cast<std::byte>(
          sampleBits(layout, place.firstRow + r, place.firstColumn + c, sample)));
  const std::size_t rows = (place.rows + down - 1) / down;
  const std::size_t columns = (place.columns + across - 1) / across;
  return arrayOfBytes(vxUINT8, {rows, columns}, bytes);
}

}  // namespace

std::vector<vxArrayPtr> arraysOf(const Layout& layout, std::uint32_t block) {
  const BlockPlace place = placeOf(layout, block);
  std::vector<vxArrayPtr> arrays;
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    arrays.push_back(component(layout, place, 0, 1, 1));
    arrays.push_back(component(layout, place, 1, layout.vertical, layout.horizontal));
    arrays.push_back(component(layout, place, 2, layout.vertical, layout.horizontal));
  } else {
    arrays.push_back(arrayOfBytes(classOf(layout),
                                  {place.rows, place.columns, layout.samplesPerBlock()},
                                  hostBytes(layout, block)));
  }
  return arrays;
}

void writeBlock(const Input& file, const Layout& layout, std::uint32_t block) {
  Inputs inputs{layout.tiled() ? "writeEncodedTile" : "writeEncodedStrip", file, block};
  for (vxArrayPtr& array : arraysOf(layout, block)) inputs.emplace_back(std::move(array));
  callGateway(0, inputs);
}

void writeBlocks(const Input& file, const Layout& layout) {
  for (std::uint32_t block = 0; block < blockCount(layout); ++block)
    writeBlock(file, layout, block);
}

std::filesystem::path Scene::nextPath() {
  return folder_ / (std::to_string(files_.size()) + ".tif");
}

const OpenedFile& Scene::open(const std::filesystem::path& path, const char* mode) {
  return *files_.emplace_back(std::make_unique<OpenedFile>(path, mode));
}

const OpenedFile& Scene::fresh(const Tags& tags, const char* mode) {
  const OpenedFile& file = open(nextPath(), mode);
  setFields(file, tags);
  return file;
}

const OpenedFile& Scene::written(const std::vector<Layout>& directories, const char* mode) {
  const std::filesystem::path path = nextPath();
  writeTiff(path, directories);
  return open(path, mode);
}

const OpenedFile& Scene::raw(const std::vector<RawEntry>& entries, const char* mode) {
  const std::filesystem::path path = nextPath();
  writeRawTiff(path, entries, std::vector<std::byte>(4096, std::byte{1}));
  return open(path, mode);
}

}  // namespace tb::test

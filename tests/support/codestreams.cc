#include "tests/support/codestreams.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace tb::test {
namespace {

constexpr auto kFailed = static_cast<OPJ_SIZE_T>(-1);

void require(bool done, const char* what) {
  if (!done) throw std::runtime_error(what);
}

std::uint32_t ceilDivide(std::uint32_t a, std::uint32_t b) { return (a + b - 1) / b; }

// --- A file in memory, which OpenJPEG reads or writes

struct Memory {
  Bytes bytes;
  std::size_t position = 0;
};

OPJ_SIZE_T readMemory(void* to, OPJ_SIZE_T size, void* data) {
  auto& memory = *static_cast<Memory*>(data);
  size = std::min(size, memory.bytes.size() - memory.position);
  if (size == 0) return kFailed;
  std::memcpy(to, memory.bytes.data() + memory.position, size);
  memory.position += size;
  return size;
}

OPJ_SIZE_T writeMemory(void* from, OPJ_SIZE_T size, void* data) {
  auto& memory = *static_cast<Memory*>(data);
  memory.bytes.resize(std::max(memory.bytes.size(), memory.position + size));
  std::memcpy(memory.bytes.data() + memory.position, from, size);
  memory.position += size;
  return size;
}

OPJ_BOOL seekMemory(OPJ_OFF_T position, void* data) {
  static_cast<Memory*>(data)->position = static_cast<std::size_t>(position);
  return OPJ_TRUE;
}

OPJ_OFF_T skipMemory(OPJ_OFF_T count, void* data) {
  static_cast<Memory*>(data)->position += static_cast<std::size_t>(count);
  return count;
}

using Codec = std::unique_ptr<opj_codec_t, void (*)(opj_codec_t*)>;
using Stream = std::unique_ptr<opj_stream_t, void (*)(opj_stream_t*)>;

Stream streamOver(Memory& memory, OPJ_BOOL reads) {
  Stream stream(opj_stream_default_create(reads), opj_stream_destroy);
  opj_stream_set_user_data(stream.get(), &memory, nullptr);
  opj_stream_set_user_data_length(stream.get(), memory.bytes.size());
  opj_stream_set_read_function(stream.get(), readMemory);
  opj_stream_set_write_function(stream.get(), writeMemory);
  opj_stream_set_seek_function(stream.get(), seekMemory);
  opj_stream_set_skip_function(stream.get(), skipMemory);
  return stream;
}

// --- Encoding

opj_image_cmptparm_t componentOf(const Coding& coding, std::uint32_t component) {
  const bool isSubsampled = component == 1 || component == 2;
  opj_image_cmptparm_t parameters{};
  parameters.dx = isSubsampled ? coding.dx : 1;
  parameters.dy = isSubsampled ? coding.dy : 1;
  parameters.w = ceilDivide(coding.width, parameters.dx);
  parameters.h = ceilDivide(coding.height, parameters.dy);
  parameters.x0 = coding.x0;
  parameters.y0 = coding.y0;
  parameters.prec = coding.precision;
  parameters.sgnd = coding.isSigned ? 1 : 0;
  return parameters;
}

OpjImage imageOf(const Coding& coding, const SampleAt& sampleAt) {
  std::vector<opj_image_cmptparm_t> parameters;
  for (std::uint32_t c = 0; c < coding.components; ++c)
    parameters.push_back(componentOf(coding, c));
  OpjImage image(opj_image_create(coding.components, parameters.data(), OPJ_CLRSPC_UNSPECIFIED));
  require(image != nullptr, "an image could not be made");
  image->x0 = coding.x0;
  image->y0 = coding.y0;
  image->x1 = coding.x0 + coding.width;
  image->y1 = coding.y0 + coding.height;
  for (std::uint32_t c = 0; c < coding.components; ++c)
    for (std::uint32_t row = 0; row < parameters[c].h; ++row)
      for (std::uint32_t column = 0; column < parameters[c].w; ++column)
        image->comps[c].data[row * parameters[c].w + column] = sampleAt(c, row, column);
  return image;
}

opj_cparameters_t parametersOf(const Coding& coding) {
  opj_cparameters_t parameters;
  opj_set_default_encoder_parameters(&parameters);
  parameters.numresolution = coding.resolutions;
  // The encoder wants a sample at least in the smallest.
  const std::uint32_t shorter = std::min(coding.width, coding.height);
  while (parameters.numresolution > 1 && (shorter >> (parameters.numresolution - 1)) == 0)
    --parameters.numresolution;
  parameters.irreversible = coding.compression > 0 ? 1 : 0;
  parameters.tcp_mct = coding.hasColourTransform ? 1 : 0;
  parameters.cp_disto_alloc = 1;
  parameters.tcp_numlayers = coding.layers;
  for (int layer = 0; layer < coding.layers; ++layer) {
    const float last = coding.compression;  // 0 is lossless
    parameters.tcp_rates[layer] =
        layer + 1 == coding.layers
            ? last
            : std::max(last, 2.0F) * static_cast<float>(1 << (coding.layers - layer));
  }
  if (coding.tileWidth != 0) {
    parameters.tile_size_on = OPJ_TRUE;
    parameters.cp_tdx = coding.tileWidth;
    parameters.cp_tdy = coding.tileHeight;
  }
  if (coding.precinct != 0) {
    parameters.csty |= 1;
    parameters.res_spec = 1;
    parameters.prcw_init[0] = parameters.prch_init[0] = coding.precinct;
  }
  if (coding.codeBlock != 0) parameters.cblockw_init = parameters.cblockh_init = coding.codeBlock;
  if (coding.tilePartsBy != 0) {
    parameters.tp_on = 1;
    parameters.tp_flag = coding.tilePartsBy;
    parameters.prog_order = coding.tilePartsBy == 'R' ? OPJ_RLCP : OPJ_LRCP;
  }
  return parameters;
}

// --- Blocks

// 0 and up, or two's complement.
int numberOf(std::uint64_t pattern, const Coding& coding) {
  const auto value = static_cast<int>(pattern & ((std::uint64_t{1} << coding.precision) - 1));
  const int half = 1 << (coding.precision - 1);
  return coding.isSigned && value >= half ? value - 2 * half : value;
}

}  // namespace

Bytes encodeCodestream(const Coding& coding, const SampleAt& sampleAt) {
  const OpjImage image = imageOf(coding, sampleAt);
  opj_cparameters_t parameters = parametersOf(coding);
  const Codec codec(opj_create_compress(coding.isInBoxes ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K),
                    opj_destroy_codec);
  require(opj_setup_encoder(codec.get(), &parameters, image.get()), "the coding is impossible");
  Memory memory;
  {
    const Stream stream = streamOver(memory, OPJ_STREAM_WRITE);
    require(opj_start_compress(codec.get(), image.get(), stream.get()) &&
                opj_encode(codec.get(), stream.get()) &&
                opj_end_compress(codec.get(), stream.get()),
            "a codestream could not be encoded");
  }
  return memory.bytes;
}

OpjImage decodeBarely(const Bytes& codestream) {
  Memory memory{codestream};
  const Stream stream = streamOver(memory, OPJ_STREAM_READ);
  const Codec codec(opj_create_decompress(OPJ_CODEC_J2K), opj_destroy_codec);
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  opj_image_t* header = nullptr;
  require(opj_setup_decoder(codec.get(), &parameters) &&
              opj_read_header(stream.get(), codec.get(), &header),
          "a header could not be read");
  OpjImage image(header);
  require(opj_decode(codec.get(), stream.get(), image.get()) &&
              opj_end_decompress(codec.get(), stream.get()),
          "a codestream cannot be decoded");
  return image;
}

std::vector<std::vector<int>> decodePlanes(const Bytes& codestream) {
  const OpjImage image = decodeBarely(codestream);
  std::vector<std::vector<int>> planes;
  for (const opj_image_comp_t* c = image->comps; c != image->comps + image->numcomps; ++c)
    planes.emplace_back(c->data, c->data + std::size_t{c->w} * c->h);
  return planes;
}

Coding codingOf(const Layout& layout, std::uint32_t block) {
  const BlockPlace place = placeOf(layout, block);
  Coding coding;
  coding.width = layout.blockWidth();
  coding.height = layout.tiled() ? layout.tileLength : place.rows;
  coding.components = layout.samplesPerBlock();
  coding.precision = layout.bits;
  coding.isSigned = layout.format == SAMPLEFORMAT_INT;
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    coding.dx = layout.horizontal;
    coding.dy = layout.vertical;
  }
  return coding;
}

Bytes codestreamOf(const Layout& layout, std::uint32_t block, const Recode& recode) {
  const BlockPlace place = placeOf(layout, block);
  Coding coding = codingOf(layout, block);
  if (recode) recode(coding);
  return encodeCodestream(coding, [&](std::uint32_t c, std::uint32_t row, std::uint32_t column) {
    if (c == 1 || c == 2) {
      row *= coding.dy;
      column *= coding.dx;
    }
    if (row >= place.rows || column >= place.columns) return 0;
    return numberOf(
        sampleBits(layout, place.firstRow + row, place.firstColumn + column, place.plane + c),
        coding);
  });
}

void writeCodestreams(const std::filesystem::path& path, const Layout& layout,
                      const std::vector<Bytes>& blocks, const char* mode) {
  const TiffHandle tif = openTiff(path, mode);
  require(tif != nullptr, "a file could not be made");
  setLayout(tif.get(), layout);
  for (std::uint32_t block = 0; block < blocks.size(); ++block) {
    Bytes bytes = blocks[block];  // libtiff takes it as writable
    const auto size = static_cast<tmsize_t>(bytes.size());
    require((layout.tiled() ? TIFFWriteRawTile(tif.get(), block, bytes.data(), size)
                            : TIFFWriteRawStrip(tif.get(), block, bytes.data(), size)) == size,
            "a block could not be written");
  }
  require(TIFFWriteDirectory(tif.get()) != 0, "a directory could not be written");
}

void writeJpeg2000(const std::filesystem::path& path, const Layout& layout, const Recode& recode,
                   const char* mode) {
  std::vector<Bytes> blocks;
  for (std::uint32_t block = 0; block < blockCount(layout); ++block)
    blocks.push_back(codestreamOf(layout, block, recode));
  writeCodestreams(path, layout, blocks, mode);
}

}  // namespace tb::test

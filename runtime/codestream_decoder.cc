#include "runtime/codestream_decoder.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

namespace tb::runtime {
namespace {

// --- A stream over bytes

struct ByteSource {
  CodestreamBytes bytes;
  std::size_t position = 0;
};

constexpr auto kEndOfStream = static_cast<OPJ_SIZE_T>(-1);

OPJ_SIZE_T readBytes(void* to, OPJ_SIZE_T count, void* data) {
  auto& source = *static_cast<ByteSource*>(data);
  const std::size_t size = std::min(count, source.bytes.size() - source.position);
  if (size == 0) return kEndOfStream;
  std::memcpy(to, source.bytes.data() + source.position, size);
  source.position += size;
  return size;
}

OPJ_OFF_T skipBytes(OPJ_OFF_T count, void* data) {
  auto& source = *static_cast<ByteSource*>(data);
  const std::size_t left = source.bytes.size() - source.position;
  if (count < 0 || static_cast<std::size_t>(count) > left) return -1;
  source.position += static_cast<std::size_t>(count);
  return count;
}

OPJ_BOOL seekByte(OPJ_OFF_T position, void* data) {
  auto& source = *static_cast<ByteSource*>(data);
  if (position < 0 || static_cast<std::size_t>(position) > source.bytes.size()) return OPJ_FALSE;
  source.position = static_cast<std::size_t>(position);
  return OPJ_TRUE;
}

struct StreamDeleter {
  void operator()(opj_stream_t* stream) const noexcept { opj_stream_destroy(stream); }
};
using Stream = std::unique_ptr<opj_stream_t, StreamDeleter>;

// `source` must outlive the stream.
Stream openStream(ByteSource& source) {
  constexpr std::size_t kMostBuffer = OPJ_J2K_STREAM_CHUNK_SIZE;
  Stream stream(opj_stream_create(std::min(source.bytes.size(), kMostBuffer), OPJ_STREAM_READ));
  if (stream == nullptr) throw std::bad_alloc();
  opj_stream_set_user_data(stream.get(), &source, nullptr);
  opj_stream_set_user_data_length(stream.get(), source.bytes.size());
  opj_stream_set_read_function(stream.get(), readBytes);
  opj_stream_set_skip_function(stream.get(), skipBytes);
  opj_stream_set_seek_function(stream.get(), seekByte);
  return stream;
}

// --- The decoder

struct CodecDeleter {
  void operator()(opj_codec_t* codec) const noexcept { opj_destroy_codec(codec); }
};
using Codec = std::unique_ptr<opj_codec_t, CodecDeleter>;

// Keeps the first of OpenJPEG's errors: those that follow are its consequences.
void keepFirst(const char* message, void* data) noexcept try {
  auto& kept = *static_cast<std::string*>(data);
  if (!kept.empty()) return;
  kept = message;
  while (!kept.empty() && kept.back() == '\n') kept.pop_back();
} catch (...) {
  // Without memory there is no text; OpenJPEG's frames must not be unwound.
}

Codec openCodec(std::string& failure) {
  Codec codec(opj_create_decompress(OPJ_CODEC_J2K));
  if (codec == nullptr) throw std::bad_alloc();
  opj_set_error_handler(codec.get(), keepFirst, &failure);
  opj_dparameters_t parameters;
  opj_set_default_decoder_parameters(&parameters);
  if (!opj_setup_decoder(codec.get(), &parameters) ||
      !opj_decoder_set_strict_mode(codec.get(), OPJ_TRUE)) {
    throw CodestreamError("OpenJPEG cannot be set up");
  }
  return codec;
}

void requireComponents(const opj_image_t& image, const CodestreamSize& size) {
  bool alike = image.numcomps == size.components.size();
  for (std::size_t c = 0; alike && c < image.numcomps; ++c) {
    const opj_image_comp_t& found = image.comps[c];
    const CodestreamComponent& expected = size.components[c];
    const CodestreamArea area = size.component(c);
    alike = found.w == area.width() && found.h == area.height() && found.dx == expected.dx &&
            found.dy == expected.dy && found.prec == expected.precision &&
            (found.sgnd != 0) == expected.isSigned;
  }
  if (!alike) throw CodestreamError("OpenJPEG has read another header");
}

void requireSamples(const opj_image_t& image) {
  for (std::size_t c = 0; c < image.numcomps; ++c) {
    if (image.comps[c].data == nullptr) throw CodestreamError("a component has no samples");
  }
}

}  // namespace

OpjImage decodeCodestream(CodestreamBytes codestream, const CodestreamSize& size) {
  std::string failure;
  ByteSource source{codestream};
  const Stream stream = openStream(source);
  const Codec codec = openCodec(failure);

  opj_image_t* header = nullptr;
  const bool hasHeader = opj_read_header(stream.get(), codec.get(), &header) != OPJ_FALSE;
  OpjImage image(header);
  if (hasHeader) requireComponents(*image, size);
  const bool isDecoded = hasHeader && opj_decode(codec.get(), stream.get(), image.get()) &&
                         opj_end_decompress(codec.get(), stream.get());
  if (!isDecoded) {
    throw CodestreamError(failure.empty() ? "OpenJPEG cannot decode it" : failure);
  }
  requireComponents(*image, size);
  requireSamples(*image);
  return image;
}

}  // namespace tb::runtime

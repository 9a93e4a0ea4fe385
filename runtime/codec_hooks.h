// Where a codec takes part in libtiff. libtiff's own codecs set members of its private struct, for
// which it has no public functions, and whose offsets differ between releases of one soname. Two
// short sequences of members have stayed the same since libtiff 4.0 and are mirrored here; where
// they lie in the struct is found in the libtiff that is loaded, on a handle made for that purpose.
#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <optional>

namespace tb::runtime {

// What libtiff calls at the steps of decoding and encoding. An `int` says
// whether a step has succeeded, which is anything but 0: a negative number is no failure.
struct CodecHooks {
  using OfHandle = int (*)(TIFF*);
  using OfPlane = int (*)(TIFF*, std::uint16_t plane);
  using OfBytes = int (*)(TIFF*, std::uint8_t* buffer, tmsize_t size, std::uint16_t plane);

  OfHandle fixUpTags;
  OfHandle setUpDecoding;
  OfPlane beforeDecoding;
  OfHandle setUpEncoding;
  int encodeStatus;
  OfPlane beforeEncoding;
  OfHandle afterEncoding;
  OfBytes decodeRow;
  OfBytes encodeRow;
  OfBytes decodeStrip;
  OfBytes encodeStrip;
  OfBytes decodeTile;
  OfBytes encodeTile;
  void (*close)(TIFF*);
  int (*seek)(TIFF*, std::uint32_t rows);
  void (*cleanUp)(TIFF*);
  std::uint32_t (*defaultStripRows)(TIFF*, std::uint32_t wanted);
  void (*defaultTileSize)(TIFF*, std::uint32_t* width, std::uint32_t* length);
  void* data;  // the codec's own
};

// The block that libtiff has read from the file and not decoded yet.
struct RawBuffer {
  std::uint8_t* start;
  tmsize_t size;
  tmsize_t offset;  // into the block, of what is loaded
  tmsize_t loaded;
  std::uint8_t* next;  // the first byte that is not decoded
  tmsize_t left;       // bytes from there on
};

// Byte offsets of the two into libtiff's struct, and access to them in any handle.
class CodecHookPlaces {
 public:
  CodecHookPlaces() = default;
  CodecHookPlaces(std::size_t hooks, std::size_t rawBuffer)
      : hooks_(hooks), rawBuffer_(rawBuffer) {}

  CodecHooks hooks(TIFF* tif) const noexcept;
  void setHooks(TIFF* tif, const CodecHooks& hooks) const noexcept;
  RawBuffer rawBuffer(TIFF* tif) const noexcept;

  bool operator==(const CodecHookPlaces&) const = default;

 private:
  std::size_t hooks_ = 0;
  std::size_t rawBuffer_ = 0;
};

// How the members are recognised. The hooks are those of the codec for uncompressed data, the only
// place that holds them; the raw buffer is one that the handle was just given.
struct HookFingerprints {
  bool (*isUncompressedCodec)(const CodecHooks& hooks);
  bool (*isFreshBuffer)(const RawBuffer& raw, const void* given, tmsize_t size);
};
extern const HookFingerprints kHookFingerprints;

// Nothing unless each of the two was found in exactly one place.
std::optional<CodecHookPlaces> findCodecHooks(
    const HookFingerprints& fingerprints = kHookFingerprints);

}  // namespace tb::runtime

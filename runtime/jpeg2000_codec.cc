// A block is decoded when its first bytes are asked for. Asked for as a whole, it goes straight
// into the caller's buffer; asked for in rows or other parts, it is kept, and a cursor walks
// through it.
#include "runtime/jpeg2000_codec.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <utility>
#include <vector>

#include "runtime/block_format.h"
#include "runtime/codestream_blocks.h"
#include "runtime/codestream_decoder.h"
#include "runtime/codestream_guard.h"
#include "runtime/memory.h"

namespace tb::runtime {
namespace {

constexpr char kDecoding[] = "JPEG2000Decode";

constinit CodecHookPlaces places;

// --- What a handle keeps between two calls of libtiff

struct DecodedBlock {
  bool isStarted = false;
  bool hasFailed = false;  // and libtiff was told
  BlockFormat format;
  std::uint64_t cursor = 0;      // bytes of the block that were handed out or skipped
  std::vector<std::byte> bytes;  // empty unless the block was asked for in parts
};

DecodedBlock* keptBy(TIFF* tif) noexcept {
  return static_cast<DecodedBlock*>(places.hooks(tif).data);
}

void keep(TIFF* tif, DecodedBlock* block) noexcept {
  CodecHooks hooks = places.hooks(tif);
  hooks.data = block;
  places.setHooks(tif, hooks);
}

// libtiff goes on with a handle that was cleaned up when it fails to load the next directory.
DecodedBlock& blockOf(TIFF* tif) {
  if (keptBy(tif) == nullptr) keep(tif, std::make_unique<DecodedBlock>().release());
  return *keptBy(tif);
}

// --- Failures. libtiff's C frames are below: nothing is thrown through them.

void tell(TIFF* tif, const char* reason) noexcept {
  const bool isTiled = TIFFIsTiled(tif) != 0;
  TIFFErrorExtR(tif, kDecoding, "%s: %s %u cannot be decoded: %s", TIFFFileName(tif),
                isTiled ? "Tile" : "Strip", isTiled ? TIFFCurrentTile(tif) : TIFFCurrentStrip(tif),
                reason);
}

// Runs a step; when it throws, tells libtiff why and returns false.
template <class Step>
bool succeeds(TIFF* tif, const Step& step) noexcept try {
  step();
  return true;
} catch (const std::bad_alloc&) {
  tell(tif, "there is not enough memory");
  return false;
} catch (const std::exception& error) {
  tell(tif, error.what());
  return false;
}

// --- Decoding

// Whether libtiff reverses the bits of each byte that it reads, which it does to every codec but
// its own of this kind.
bool reversesBits(TIFF* tif) {
  std::uint16_t fillOrder = FILLORDER_MSB2LSB;
  (void)TIFFGetFieldDefaulted(tif, TIFFTAG_FILLORDER, &fillOrder);
  return (fillOrder == FILLORDER_MSB2LSB) != (TIFFIsMSB2LSB(tif) != 0);
}

CodestreamBytes rawBytes(TIFF* tif) {
  const RawBuffer raw = places.rawBuffer(tif);
  if (raw.next == nullptr || raw.left <= 0) throw CodestreamError("there is no data");
  return {raw.next, static_cast<std::size_t>(raw.left)};
}

void decodeBytes(CodestreamBytes bytes, const BlockFormat& format, std::span<std::byte> block) {
  const CodestreamBytes codestream = findCodestream(bytes);
  const CodestreamSize size = readCodestreamSize(codestream);
  checkFormat(size, format);
  checkCodestream(codestream, size, memoryLimit());
  storeBlock(*decodeCodestream(codestream, size), format, block);
}

void decodeBlock(TIFF* tif, const BlockFormat& format, std::span<std::byte> block) {
  const CodestreamBytes bytes = rawBytes(tif);
  if (!reversesBits(tif)) return decodeBytes(bytes, format, block);
  // A copy, since libtiff may start the block once more without reading it again.
  std::vector<std::uint8_t> copy(bytes.begin(), bytes.end());
  TIFFReverseBits(copy.data(), static_cast<tmsize_t>(copy.size()));
  decodeBytes(copy, format, block);
}

void startBlock(TIFF* tif, DecodedBlock& block) {
  if (block.isStarted) return;
  block.format = blockFormat(tif);
  block.isStarted = true;
}

// Fills `part` with the block's bytes from the cursor on and moves it behind them.
void deliver(TIFF* tif, DecodedBlock& block, std::span<std::byte> part) {
  startBlock(tif, block);
  const std::uint64_t size = block.format.size();
  if (block.cursor > size || part.size() > size - block.cursor) {
    throw CodestreamError("more is asked for than it has");
  }
  if (part.size() == size) {
    decodeBlock(tif, block.format, part);
  } else {
    if (block.bytes.empty()) {
      if (size > memoryLimit()) throw std::bad_alloc();
      std::vector<std::byte> decoded(static_cast<std::size_t>(size));
      decodeBlock(tif, block.format, decoded);
      block.bytes = std::move(decoded);
    }
    std::memcpy(part.data(), block.bytes.data() + block.cursor, part.size());
  }
  block.cursor += part.size();
}

// --- The hooks

int beforeDecoding(TIFF* tif, std::uint16_t) noexcept {
  return succeeds(tif, [&] { blockOf(tif) = {}; });
}

int decode(TIFF* tif, std::uint8_t* buffer, tmsize_t size, std::uint16_t) noexcept {
  if (size <= 0) return size == 0;
  DecodedBlock* block = keptBy(tif);
  // A block that has failed stays so until it is started again: reading its rows one after the
  // other neither decodes it each time nor says so each time.
  if (block == nullptr || block->hasFailed) return 0;
  const std::span<std::byte> part(reinterpret_cast<std::byte*>(buffer),
                                  static_cast<std::size_t>(size));
  block->hasFailed = !succeeds(tif, [&] { deliver(tif, *block, part); });
  return block->hasFailed ? 0 : 1;
}

int seek(TIFF* tif, std::uint32_t rows) noexcept {
  DecodedBlock* block = keptBy(tif);
  const tmsize_t rowSize = TIFFScanlineSize(tif);
  if (block == nullptr || rowSize < 0) return 0;
  const auto step = static_cast<std::uint64_t>(rowSize);
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  if (step != 0 && rows > (kMost - block->cursor) / step) return 0;
  block->cursor += rows * step;
  return 1;
}

// This and not the step that sets encoding up, which libtiff leaves out after a read; and not the
// encoders, whose failure libtiff's own stub reports with a number that it takes for success.
int refuseEncoding(TIFF* tif, std::uint16_t) noexcept {
  TIFFErrorExtR(tif, "JPEG2000Encode", "%s: JPEG 2000 can be read but not written",
                TIFFFileName(tif));
  return 0;
}

void cleanUp(TIFF* tif) noexcept {
  const std::unique_ptr<DecodedBlock> block(keptBy(tif));
  keep(tif, nullptr);
}

// --- Tags

constexpr std::size_t kHeaderBytes = 4096;

std::uint32_t blockCount(TIFF* tif) {
  return TIFFIsTiled(tif) != 0 ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
}

// The first bytes of the first block that has any, as they lie in the file, at most so many; none
// where they do not lie in it.
std::vector<std::uint8_t> firstBytes(TIFF* tif, std::uint64_t most) {
  for (std::uint32_t block = 0; block < blockCount(tif); ++block) {
    const std::uint64_t count = std::min(TIFFGetStrileByteCount(tif, block), most);
    if (count == 0) continue;
    const std::uint64_t offset = TIFFGetStrileOffset(tif, block);
    const std::uint64_t fileSize = TIFFGetSizeProc(tif)(TIFFClientdata(tif));
    if (offset > fileSize || count > fileSize - offset) return {};
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(count));
    const auto size = static_cast<tmsize_t>(count);
    const tmsize_t read = TIFFIsTiled(tif) != 0 ? TIFFReadRawTile(tif, block, bytes.data(), size)
                                                : TIFFReadRawStrip(tif, block, bytes.data(), size);
    if (read == size) return bytes;
    return {};
  }
  return {};
}

bool takeSubsampling(TIFF* tif, const std::vector<std::uint8_t>& bytes) try {
  setSubsampling(tif, readCodestreamSize(findCodestream(bytes)));
  return true;
} catch (const CodestreamError&) {
  return false;  // reading the block will say what is wrong
}

// The size of a block in units depends on the subsampling, which the tag often leaves out. libtiff
// looks at the first block of a JPEG file for the same reason.
int fixUpTags(TIFF* tif) noexcept try {
  if (!isInUnits(tif)) return 1;
  // All of the block is only needed where other JP2 boxes come before that of the codestream.
  const std::vector<std::uint8_t> start = firstBytes(tif, kHeaderBytes);
  if (takeSubsampling(tif, start) || start.size() < kHeaderBytes) return 1;
  (void)takeSubsampling(tif, firstBytes(tif, memoryLimit()));
  return 1;
} catch (const std::exception&) {
  return 1;  // without memory the tag stays as it is
}

}  // namespace

int initialiseJpeg2000(TIFF* tif, int) noexcept {
  CodecHooks hooks = places.hooks(tif);
  hooks.fixUpTags = fixUpTags;
  hooks.beforeDecoding = beforeDecoding;
  hooks.decodeRow = hooks.decodeStrip = hooks.decodeTile = decode;
  hooks.seek = seek;
  hooks.beforeEncoding = refuseEncoding;
  hooks.cleanUp = cleanUp;
  hooks.data = nullptr;  // made when the first block is started
  places.setHooks(tif, hooks);
  return 1;
}

void setJpeg2000Places(const CodecHookPlaces& found) noexcept { places = found; }

}  // namespace tb::runtime

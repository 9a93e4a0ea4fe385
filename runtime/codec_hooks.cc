#include "runtime/codec_hooks.h"

#include <array>
#include <cstring>
#include <functional>
#include <memory>

namespace tb::runtime {
namespace {

template <class Members>
Members membersAt(TIFF* tif, std::size_t offset) noexcept {
  Members members;
  std::memcpy(&members, reinterpret_cast<const std::byte*>(tif) + offset, sizeof members);
  return members;
}

// --- Fingerprints

bool hasNoNull(const CodecHooks& hooks) {
  return hooks.fixUpTags != nullptr && hooks.setUpDecoding != nullptr &&
         hooks.beforeDecoding != nullptr && hooks.decodeRow != nullptr &&
         hooks.encodeRow != nullptr && hooks.close != nullptr && hooks.seek != nullptr &&
         hooks.defaultStripRows != nullptr && hooks.defaultTileSize != nullptr;
}

bool isUncompressedCodec(const CodecHooks& hooks) {
  return hasNoNull(hooks) && hooks.encodeStatus == 1 && hooks.data == nullptr &&
         hooks.setUpEncoding == hooks.setUpDecoding && hooks.afterEncoding == hooks.setUpDecoding &&
         hooks.beforeEncoding == hooks.beforeDecoding && hooks.decodeStrip == hooks.decodeRow &&
         hooks.decodeTile == hooks.decodeRow && hooks.encodeStrip == hooks.encodeRow &&
         hooks.encodeTile == hooks.encodeRow && hooks.encodeRow != hooks.decodeRow &&
         hooks.cleanUp == hooks.close;
}

bool isFreshBuffer(const RawBuffer& raw, const void* given, tmsize_t size) {
  return raw.start == given && raw.size == size && raw.offset == 0 && raw.loaded == 0 &&
         raw.next == given && raw.left == 0;
}

// --- The handle that is searched. It is open for writing: of one that is open for reading not all
// bytes are initialised. What it writes is dropped.

tmsize_t readNothing(thandle_t, void*, tmsize_t) { return 0; }
tmsize_t writeNowhere(thandle_t, void*, tmsize_t size) { return size; }
toff_t seekAnywhere(thandle_t, toff_t offset, int) { return offset; }
int closeNothing(thandle_t) { return 0; }
toff_t sizeOfNothing(thandle_t) { return 0; }

struct Closer {
  void operator()(TIFF* tif) const noexcept { TIFFClose(tif); }
};
using ScratchHandle = std::unique_ptr<TIFF, Closer>;

ScratchHandle openScratchHandle() {
  return ScratchHandle(TIFFClientOpen("codec hooks", "w", nullptr, readNothing, writeNowhere,
                                      seekAnywhere, closeNothing, sizeOfNothing, nullptr, nullptr));
}

// libtiff puts the name behind the struct, in the same allocation. 0 when it does not.
std::size_t structSize(TIFF* tif) {
  constexpr std::size_t kLargest = std::size_t{1} << 16;
  const auto* start = reinterpret_cast<const char*>(tif);
  const char* name = TIFFFileName(tif);
  if (!std::less<>{}(start, name) || !std::less<>{}(name, start + kLargest)) return 0;
  return static_cast<std::size_t>(name - start);
}

// The only offset at which the members are as they should be.
template <class Members, class Recognise>
std::optional<std::size_t> findOnly(TIFF* tif, const Recognise& recognise) {
  const std::size_t size = structSize(tif);
  std::optional<std::size_t> found;
  for (std::size_t offset = 0; offset + sizeof(Members) <= size; offset += alignof(Members)) {
    if (!recognise(membersAt<Members>(tif, offset))) continue;
    if (found) return std::nullopt;
    found = offset;
  }
  return found;
}

}  // namespace

const HookFingerprints kHookFingerprints{isUncompressedCodec, isFreshBuffer};

CodecHooks CodecHookPlaces::hooks(TIFF* tif) const noexcept {
  return membersAt<CodecHooks>(tif, hooks_);
}

void CodecHookPlaces::setHooks(TIFF* tif, const CodecHooks& hooks) const noexcept {
  std::memcpy(reinterpret_cast<std::byte*>(tif) + hooks_, &hooks, sizeof hooks);
}

RawBuffer CodecHookPlaces::rawBuffer(TIFF* tif) const noexcept {
  return membersAt<RawBuffer>(tif, rawBuffer_);
}

std::optional<CodecHookPlaces> findCodecHooks(const HookFingerprints& fingerprints) {
  std::array<std::byte, 100> buffer;  // outlives the handle that it is given to
  const auto bufferSize = static_cast<tmsize_t>(buffer.size());
  const ScratchHandle scratch = openScratchHandle();
  if (scratch == nullptr) return std::nullopt;
  if (TIFFWriteBufferSetup(scratch.get(), buffer.data(), bufferSize) == 0) return std::nullopt;

  const auto hooks = findOnly<CodecHooks>(scratch.get(), fingerprints.isUncompressedCodec);
  const auto raw = findOnly<RawBuffer>(scratch.get(), [&](const RawBuffer& candidate) {
    return fingerprints.isFreshBuffer(candidate, buffer.data(), bufferSize);
  });
  if (!hooks || !raw) return std::nullopt;
  return CodecHookPlaces(*hooks, *raw);
}

}  // namespace tb::runtime

#include "runtime/codec_registration.h"

#include <tiffio.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <utility>

#include "host/tiff_utilities.h"
#include "runtime/block_format.h"
#include "runtime/fork.h"
#include "runtime/jpeg2000_codec.h"

namespace tb::runtime {
namespace {

struct Scheme {
  std::uint16_t compression;
  const char* name;
};
constexpr Scheme kSchemes[] = {
    {kJpeg2000YCbCr, "JPEG 2000 YCbCr"}, {kJpeg2000Rgb, "JPEG 2000 RGB"}, {kJpeg2000, "JPEG 2000"}};

// Whether registration was tried; nothing else is read by the calls that find it done.
constinit std::atomic<bool> tried = false;
constinit std::mutex registrationLock;
const UsableAfterFork<registrationLock> registrationLockStaysUsable;
std::array<TIFFCodec*, std::size(kSchemes)> registered{};

void registerSchemes() {
  for (std::size_t k = 0; k < registered.size(); ++k) {
    const auto& [compression, name] = kSchemes[k];
    if (TIFFIsCODECConfigured(compression) != 0) continue;  // libtiff's own, or another library's
    registered[k] = TIFFRegisterCODEC(compression, name, initialiseJpeg2000);
  }
}

std::optional<CodecHookPlaces> findInLibtiff() { return findCodecHooks(); }

}  // namespace

void registerJpeg2000Codecs(std::optional<CodecHookPlaces> (*find)()) {
  if (tried.load(std::memory_order_acquire)) return;
  const std::lock_guard guard(registrationLock);
  if (tried.load(std::memory_order_relaxed)) return;
  if (const std::optional<CodecHookPlaces> places = find()) {
    setJpeg2000Places(*places);
    registerSchemes();
  }
  tried.store(true, std::memory_order_release);
}

}  // namespace tb::runtime

void registerJPEG2000Codecs() { tb::runtime::registerJpeg2000Codecs(tb::runtime::findInLibtiff); }

void unregisterJPEG2000Codecs() {
  using tb::runtime::registered;
  const std::lock_guard guard(tb::runtime::registrationLock);
  for (TIFFCodec*& codec : registered)
    if (TIFFCodec* const former = std::exchange(codec, nullptr)) TIFFUnRegisterCODEC(former);
  tb::runtime::tried.store(false, std::memory_order_release);
}

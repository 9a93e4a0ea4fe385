#include "runtime/open_object.h"

#include <cstdio>
#include <utility>

namespace tb::runtime {
namespace {

// What libtiff hands to the procedures: the object and where the next read or write begins.
struct Client {
  std::shared_ptr<FileObject> object;
  std::uint64_t position = 0;
};

Client& clientOf(thandle_t handle) { return *static_cast<Client*>(handle); }

tmsize_t readProcedure(thandle_t handle, void* buffer, tmsize_t size) {
  if (size <= 0) return 0;
  Client& client = clientOf(handle);
  const std::size_t count = client.object->read(
      client.position, {static_cast<std::byte*>(buffer), static_cast<std::size_t>(size)});
  client.position += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t writeProcedure(thandle_t handle, void* buffer, tmsize_t size) {
  if (size <= 0) return 0;
  Client& client = clientOf(handle);
  const std::size_t count = client.object->write(
      client.position, {static_cast<const std::byte*>(buffer), static_cast<std::size_t>(size)});
  client.position += count;
  return static_cast<tmsize_t>(count);
}

toff_t seekProcedure(thandle_t handle, toff_t offset, int whence) {
  Client& client = clientOf(handle);
  if (whence == SEEK_SET) client.position = offset;
  if (whence == SEEK_CUR) client.position += offset;
  if (whence == SEEK_END) client.position = client.object->size() + offset;
  return client.position;
}

toff_t sizeProcedure(thandle_t handle) { return clientOf(handle).object->size(); }

int closeProcedure(thandle_t handle) {
  const std::unique_ptr<Client> client(&clientOf(handle));
  return 0;
}

}  // namespace

TIFF* openObject(const NamedFileObject& named, const OpenMode& mode, TIFFOpenOptions* options) {
  if (mode.truncates && !named.object->clear()) throw FileObjectFailure();
  auto client = std::make_unique<Client>(Client{named.object});
  TIFF* tif = TIFFClientOpenExt(named.label.c_str(), mode.forLibtiff.c_str(), client.get(),
                                readProcedure, writeProcedure, seekProcedure, closeProcedure,
                                sizeProcedure, nullptr, nullptr, options);
  if (tif != nullptr) {
    (void)client.release();        // closeProcedure deletes it
    (void)TIFFSetFileno(tif, -1);  // there is no descriptor, and 0 would be standard input
  }
  if (named.object->hasFailed()) {
    if (tif != nullptr) TIFFClose(tif);
    throw FileObjectFailure();
  }
  return tif;
}

}  // namespace tb::runtime

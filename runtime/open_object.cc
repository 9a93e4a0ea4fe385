#include "runtime/open_object.h"

#include <cerrno>
#include <utility>

namespace tb::runtime {
namespace {

class ObjectSource final : public FileSource {
 public:
  explicit ObjectSource(std::shared_ptr<FileObject> object) : object_(std::move(object)) {}

  std::uint64_t size() noexcept override { return object_->size(); }

 private:
  ssize_t readSome(std::uint64_t offset, std::span<std::byte> buffer) noexcept override {
    return counted(object_->read(offset, buffer));
  }

  ssize_t writeSome(std::uint64_t offset, std::span<const std::byte> data) noexcept override {
    return counted(object_->write(offset, data));
  }

  // What was added stays behind the end of what is used.
  bool shorten(std::uint64_t) noexcept override { return false; }

  ssize_t counted(std::size_t count) const noexcept {
    if (count > 0 || !object_->hasFailed()) return static_cast<ssize_t>(count);
    errno = EIO;
    return -1;
  }

  std::shared_ptr<FileObject> object_;
};

}  // namespace

std::unique_ptr<FileSource> openObject(const NamedFileObject& named, const OpenMode& mode) {
  if (mode.truncates && !named.object->clear()) throw FileObjectFailure();
  return std::make_unique<ObjectSource>(named.object);
}

}  // namespace tb::runtime

// Files that are not in the file system: whoever has the bytes offers them under a name, by which
// tiffutils::UOpen opens them like a file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace tb::runtime {

// A file's bytes. The functions are called from inside the module, with libtiff's frames below
// them: they throw nothing, and after a failure the operation in progress ends with an error. Calls
// for one object follow one another.
class FileObject {
 public:
  virtual ~FileObject() = default;

  // Fills `bytes` from `offset` on, less only where the file ends. Returns how many bytes were
  // read; 0 after a failure.
  virtual std::size_t read(std::uint64_t offset, std::span<std::byte> bytes) noexcept = 0;

  // Stores `bytes` from `offset` on, where the file may have to grow. Returns how many were stored:
  // all of them, or 0 after a failure.
  virtual std::size_t write(std::uint64_t offset, std::span<const std::byte> bytes) noexcept = 0;

  // The number of bytes; 0 after a failure.
  virtual std::uint64_t size() noexcept = 0;

  // Drops all bytes, for a file that is written anew. Returns false after a failure.
  virtual bool clear() noexcept = 0;

  // Whether a function has failed since the owner last asked for the reason.
  virtual bool hasFailed() const noexcept = 0;
};

// What UOpen throws, instead of returning null, for an object that has failed: the module tries to
// open a file again after a while, and these failures do not pass.
class FileObjectFailure : public std::exception {
 public:
  const char* what() const noexcept override;
};

// Offers an object under a new name, which ends in `label`; libtiff's messages name it by the
// label. The object is shared: files that are open keep it when the name is gone.
std::u16string addFileObject(std::shared_ptr<FileObject> object, const std::string& label);
void removeFileObject(const std::u16string& name);

struct NamedFileObject {
  std::shared_ptr<FileObject> object;
  std::string label;
};

// The object of that name, nothing for any other text.
std::optional<NamedFileObject> findFileObject(const std::u16string& name);

}  // namespace tb::runtime

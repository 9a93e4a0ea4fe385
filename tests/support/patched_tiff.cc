#include "tests/support/patched_tiff.h"

#include <fstream>
#include <stdexcept>

namespace tb::test {
namespace {

class File {
 public:
  explicit File(const std::filesystem::path& path)
      : stream_(path, std::ios::in | std::ios::out | std::ios::binary) {}

  template <class T>
  T read(std::uint32_t offset) {
    T value{};
    stream_.seekg(offset).read(reinterpret_cast<char*>(&value), sizeof value);
    return value;
  }
  template <class T>
  void write(std::uint32_t offset, T value) {
    stream_.seekp(offset).write(reinterpret_cast<const char*>(&value), sizeof value);
  }

  std::uint32_t directory(std::uint32_t number) {
    std::uint32_t offset = read<std::uint32_t>(4);
    while (number-- > 0) offset = read<std::uint32_t>(linkOf(offset));
    return offset;
  }
  std::uint32_t entryCount(std::uint32_t directory) { return read<std::uint16_t>(directory); }
  std::uint32_t linkOf(std::uint32_t directory) {
    return directory + 2 + 12 * entryCount(directory);
  }

 private:
  std::fstream stream_;
};

}  // namespace

std::uint32_t offsetOf(const std::filesystem::path& path, std::uint32_t directory) {
  return File(path).directory(directory);
}

void renumberEntry(const std::filesystem::path& path, std::uint32_t directory, std::uint16_t tag,
                   std::uint16_t newTag) {
  File file(path);
  const std::uint32_t offset = file.directory(directory);
  for (std::uint32_t entry = 0; entry < file.entryCount(offset); ++entry) {
    const std::uint32_t place = offset + 2 + 12 * entry;
    if (file.read<std::uint16_t>(place) == tag) return file.write(place, newTag);
  }
  throw std::logic_error("there is no such entry");
}

void linkDirectory(const std::filesystem::path& path, std::uint32_t directory,
                   std::uint32_t offset) {
  File file(path);
  file.write(file.linkOf(file.directory(directory)), offset);
}

}  // namespace tb::test

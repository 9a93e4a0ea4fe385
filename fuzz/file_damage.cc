#include "fuzz/file_damage.h"

#include <algorithm>
#include <cstddef>
#include <random>
#include <utility>

namespace tb::fuzz {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kMostDirectories = 16;
constexpr std::uint64_t kMostEntries = 200;
constexpr std::uint64_t kOddValues[] = {
    0,     1,     2,     3,     4,      5,          6,       7,       8,          12,
    13,    16,    17,    32,    33,     64,         255,     256,     4096,       32773,
    32844, 34676, 65535, 65536, 100000, 0x7FFFFFFF, 1 << 24, 1 << 30, 0x80000000, 0xFFFFFFFF};
constexpr std::uint64_t kTags[] = {256, 257, 258, 259, 262,   273,   277, 278, 279, 284,
                                   317, 320, 322, 323, 324,   325,   330, 338, 339, 347,
                                   512, 513, 529, 530, 65000, 34675, 301, 340, 292};

// Where the numbers of a file stand, in its byte order and width.
class File {
 public:
  explicit File(Bytes& bytes)
      : bytes_(bytes),
        bigEndian_(bytes.size() > 4 && bytes[0] == 'M'),
        big_(bytes.size() > 4 && (bytes[2] == 43 || bytes[3] == 43)) {}

  std::uint64_t get(std::size_t at, std::size_t size) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i)
      if (at + i < bytes_.size()) value |= std::uint64_t{bytes_[at + i]} << (8 * place(i, size));
    return value;
  }
  void put(std::size_t at, std::size_t size, std::uint64_t value) {
    for (std::size_t i = 0; i < size; ++i)
      if (at + i < bytes_.size())
        bytes_[at + i] = static_cast<unsigned char>(value >> (8 * place(i, size)));
  }

  std::size_t firstLink() const { return big_ ? 8 : 4; }
  std::size_t wordSize() const { return big_ ? 8 : 4; }
  std::size_t countSize() const { return big_ ? 8 : 2; }
  std::size_t entrySize() const { return big_ ? 20 : 12; }

 private:
  std::size_t place(std::size_t i, std::size_t size) const { return bigEndian_ ? size - 1 - i : i; }

  Bytes& bytes_;
  bool bigEndian_, big_;
};

struct Places {
  std::vector<std::size_t> links, directories, entries;
};

Places placesOf(const File& file, std::size_t size) {
  Places places;
  places.links.push_back(file.firstLink());
  while (places.directories.size() < kMostDirectories) {
    const std::uint64_t offset = file.get(places.links.back(), file.wordSize());
    if (offset == 0 || offset >= size || std::ranges::count(places.directories, offset) > 0) break;
    const auto start = static_cast<std::size_t>(offset);
    places.directories.push_back(start);
    const auto count =
        static_cast<std::size_t>(std::min(file.get(start, file.countSize()), kMostEntries));
    for (std::size_t entry = 0; entry < count; ++entry)
      places.entries.push_back(start + file.countSize() + entry * file.entrySize());
    places.links.push_back(start + file.countSize() + count * file.entrySize());
  }
  return places;
}

template <class Values>
auto anyOf(const Values& values, std::minstd_rand& random) {
  return values[random() % std::size(values)];
}

void damageEntry(File& file, std::size_t at, std::minstd_rand& random) {
  const std::size_t count = at + 4;
  const std::size_t value = count + file.wordSize();
  switch (random() % 8) {
    case 0:
      return file.put(at, 2, anyOf(kTags, random));
    case 1:
      return file.put(at + 2, 2, random() % 19);
    case 2:
      return file.put(count, file.wordSize(), anyOf(kOddValues, random));
    case 3:
      return file.put(value, file.wordSize(), anyOf(kOddValues, random));
    case 4:
      return file.put(value, 2, file.get(value, 2) + 1);
    default:
      return file.put(value, 2, anyOf(kOddValues, random));
  }
}

}  // namespace

void damage(Bytes& bytes, std::uint32_t seed) {
  if (bytes.size() < 16) return;
  std::minstd_rand random(seed * 2654435761U + 1);
  random.discard(2);
  File file(bytes);
  const Places places = placesOf(file, bytes.size());
  switch (random() % 8) {
    case 0:
      bytes[random() % bytes.size()] ^= static_cast<unsigned char>(1U << random() % 8);
      return;
    case 1:
      bytes.resize(16 + random() % (bytes.size() - 15));
      return;
    case 2:
      if (places.directories.empty()) return;
      file.put(anyOf(places.links, random), file.wordSize(), anyOf(places.directories, random));
      return;
    default:
      if (!places.entries.empty()) damageEntry(file, anyOf(places.entries, random), random);
  }
}

void swapFields(Bytes& bytes, std::uint32_t seed) {
  if (bytes.size() < 16) return;
  std::minstd_rand random(seed * 2654435761U + 1);
  random.discard(2);
  const File file(bytes);
  const Places places = placesOf(file, bytes.size());
  if (places.entries.empty()) return;
  // Tag, type, count, value, the entry: where each begins in an entry, and its size.
  const std::size_t word = file.wordSize();
  const std::pair<std::size_t, std::size_t> parts[] = {
      {0, 2}, {2, 2}, {4, word}, {4 + word, word}, {0, file.entrySize()}};
  const auto [begin, size] = anyOf(parts, random);
  const std::size_t first = anyOf(places.entries, random) + begin;
  const std::size_t second = anyOf(places.entries, random) + begin;
  if (std::max(first, second) + size > bytes.size()) return;
  const auto at = [&bytes](std::size_t place) {
    return bytes.begin() + static_cast<std::ptrdiff_t>(place);
  };
  std::swap_ranges(at(first), at(first + size), at(second));
}

}  // namespace tb::fuzz

// The links of the directories as they lie in the file: each directory is a count of entries (2
// bytes, 8 in BigTIFF), the entries (12 or 20 bytes each) and the offset of the next directory (4
// or 8 bytes), 0 in the last. The offset of the first is in the header, at byte 4 or 8.
#include "core/directory_chain.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <initializer_list>
#include <optional>
#include <span>

#include "core/values.h"

namespace tb {
namespace {

class Links {
 public:
  explicit Links(TIFF* tif) : tif_(tif) {
    // Asked for a BigTIFF that is being written in the other byte order, libtiff says that it is
    // none; the header knows.
    constexpr std::uint64_t kBigTiff = 43;
    isBig_ = number(2, 2) == kBigTiff;
  }

  // The offset of the first directory, and that of the one after the directory at `offset`.
  // Nothing where the file cannot be read.
  std::optional<std::uint64_t> first() const { return number(isBig_ ? 8 : 4, linkSize()); }
  std::optional<std::uint64_t> after(std::uint64_t offset) const {
    const std::optional<std::uint64_t> entries = entryCount(offset);
    if (!entries) return {};
    return number(offset + countSize() + *entries * entrySize(), linkSize());
  }

  // Values of a tag, in the directory or elsewhere.
  struct Table {
    std::uint64_t count = 0;
    std::size_t width = 0;
    std::uint64_t offset = 0;
  };

  // The table of the first of `tags` that the directory at `offset` has, when its values are of a
  // type that libtiff stores numbers of bytes in.
  std::optional<Table> table(std::uint64_t offset,
                             std::initializer_list<std::uint64_t> tags) const {
    const std::uint64_t entries = entryCount(offset).value_or(0);
    for (std::uint64_t k = 0; k < entries; ++k) {
      const std::uint64_t entry = offset + countSize() + k * entrySize();
      const std::optional<std::uint64_t> tag = number(entry, 2);
      if (!tag) return {};
      if (std::ranges::find(tags, *tag) == tags.end()) continue;
      return tableOf(entry);
    }
    return {};
  }

  // Nothing when the file cannot be read or does not have as many.
  std::optional<std::vector<std::uint64_t>> values(const Table& table) const {
    thandle_t file = TIFFClientdata(tif_);
    if (table.count > TIFFGetSizeProc(tif_)(file) / table.width) return {};
    std::vector<unsigned char> bytes(countInMemory(table.count * table.width));
    if (!read(table.offset, bytes)) return {};
    std::vector<std::uint64_t> values(countInMemory(table.count));
    for (std::size_t k = 0; k < values.size(); ++k) {
      values[k] = numberIn(std::span(bytes).subspan(k * table.width, table.width));
    }
    return values;
  }

 private:
  std::optional<std::uint64_t> entryCount(std::uint64_t offset) const {
    const std::optional<std::uint64_t> entries = number(offset, countSize());
    return entries && *entries <= 0xFFFF ? entries : std::nullopt;
  }
  std::size_t linkSize() const { return isBig_ ? 8 : 4; }
  std::size_t countSize() const { return isBig_ ? 8 : 2; }
  std::size_t entrySize() const { return isBig_ ? 20 : 12; }

  std::optional<Table> tableOf(std::uint64_t entry) const {
    const std::uint64_t type = number(entry + 2, 2).value_or(0);
    Table table{number(entry + 4, linkSize()).value_or(0)};
    if (type == TIFF_SHORT) table.width = 2;
    if (type == TIFF_LONG) table.width = 4;
    if (type == TIFF_LONG8 && isBig_) table.width = 8;
    if (table.width == 0) return {};
    table.offset = entry + 4 + linkSize();
    if (table.count > linkSize() / table.width) {
      table.offset = number(table.offset, linkSize()).value_or(0);
    }
    return table;
  }

  bool read(std::uint64_t offset, std::span<unsigned char> bytes) const {
    thandle_t file = TIFFClientdata(tif_);
    const auto size = static_cast<tmsize_t>(bytes.size());
    return TIFFGetSeekProc(tif_)(file, offset, SEEK_SET) == offset &&
           TIFFGetReadProc(tif_)(file, bytes.data(), size) == size;
  }

  std::uint64_t numberIn(std::span<const unsigned char> bytes) const {
    std::uint64_t value = 0;
    for (std::size_t k = 0; k < bytes.size(); ++k) {
      value = value << 8U | bytes[TIFFIsBigEndian(tif_) ? k : bytes.size() - 1 - k];
    }
    return value;
  }

  std::optional<std::uint64_t> number(std::uint64_t offset, std::size_t size) const {
    unsigned char bytes[8] = {};
    const std::span<unsigned char> wanted = std::span(bytes).first(size);
    return read(offset, wanted) ? std::optional(numberIn(wanted)) : std::nullopt;
  }

  TIFF* tif_;
  bool isBig_ = false;
};

// Follows the chain until `found(offset)`, where it returns true, or its end, 0. Returns nothing
// for a chain that breaks or loops before. A loop is found by coming back to a directory that is
// remembered for twice as many steps as the one before it.
template <class Found>
std::optional<std::uint64_t> follow(TIFF* tif, Found found) {
  const Links links(tif);
  std::uint64_t remembered = 0;
  std::uint64_t steps = 0, stepsToRemember = 1;
  std::optional<std::uint64_t> offset = links.first();
  while (offset && *offset != 0 && !found(*offset)) {
    if (*offset == remembered) return {};
    if (++steps == stepsToRemember) {
      remembered = *offset;
      stepsToRemember *= 2;
    }
    offset = links.after(*offset);
  }
  return offset;
}

}  // namespace

bool chainEnds(TIFF* tif) {
  return follow(tif, [](std::uint64_t) { return false; }).has_value();
}

bool chainHolds(TIFF* tif, std::uint64_t offset) {
  return follow(tif, [=](std::uint64_t here) { return here == offset; }).value_or(0) != 0;
}

std::uint64_t offsetOfDirectory(TIFF* tif, std::uint32_t number) {
  return follow(tif, [=](std::uint64_t) mutable { return number-- == 0; }).value_or(0);
}

std::uint64_t offsetAfter(TIFF* tif, std::uint64_t offset) {
  return Links(tif).after(offset).value_or(0);
}

std::optional<std::vector<std::uint64_t>> storedByteCounts(TIFF* tif, std::uint64_t offset) {
  const Links links(tif);
  const auto offsets = links.table(offset, {TIFFTAG_STRIPOFFSETS, TIFFTAG_TILEOFFSETS});
  const auto byteCounts = links.table(offset, {TIFFTAG_STRIPBYTECOUNTS, TIFFTAG_TILEBYTECOUNTS});
  if (!offsets || !byteCounts || offsets->count != byteCounts->count) return {};
  return links.values(*byteCounts);
}

}  // namespace tb

// A directory is judged by its entries alone, before libtiff allocates for them: one or two short
// reads. Whatever is no directory is left to libtiff, which says what is wrong with it.
#include "runtime/directory_bounds.h"

#include <fcntl.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <optional>
#include <span>
#include <system_error>
#include <vector>

#include "host/tiff_utilities.h"
#include "runtime/messages.h"

namespace tb::runtime {
namespace {

constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
constexpr std::uint64_t kMostEntries = 4096;  // libtiff refuses directories of more
constexpr std::uint64_t kTableEntry = 16;     // an offset and a byte count in libtiff's tables

// Products and sums of what a file says stay at the largest number when they exceed it.
constexpr std::uint64_t times(std::uint64_t a, std::uint64_t b) noexcept {
  return b != 0 && a > kMost / b ? kMost : a * b;
}
constexpr std::uint64_t plus(std::uint64_t a, std::uint64_t b) noexcept {
  return a > kMost - b ? kMost : a + b;
}
constexpr std::uint64_t dividedUp(std::uint64_t a, std::uint64_t b) noexcept {
  return b == 0 ? a : a / b + (a % b != 0 ? 1 : 0);
}

// --- The layout of the two kinds of TIFF

struct Format {
  bool isBig;
  bool isBigEndian;

  std::size_t countSize() const noexcept { return isBig ? 8 : 2; }
  std::size_t entrySize() const noexcept { return isBig ? 20 : 12; }
  std::size_t valueOffset() const noexcept { return isBig ? 12 : 8; }
  std::size_t offsetSize() const noexcept { return isBig ? 8 : 4; }

  // The number in the first `size` bytes, 1, 2, 4 or 8.
  std::uint64_t number(std::span<const std::byte> bytes, std::size_t size) const noexcept {
    if (size == 2) return as<std::uint16_t>(bytes);
    if (size == 4) return as<std::uint32_t>(bytes);
    if (size == 8) return as<std::uint64_t>(bytes);
    return std::to_integer<std::uint64_t>(bytes[0]);
  }

 private:
  template <class T>
  std::uint64_t as(std::span<const std::byte> bytes) const noexcept {
    std::array<std::byte, sizeof(T)> ordered;
    std::ranges::copy(bytes.first(sizeof(T)), ordered.begin());
    if (isBigEndian != (std::endian::native == std::endian::big)) std::ranges::reverse(ordered);
    return std::bit_cast<T>(ordered);
  }
};

struct Entry {
  std::uint16_t tag;
  std::uint16_t type;
  std::uint64_t count;
  std::uint64_t valueOrOffset;  // the first value where they are in the entry, else their offset
  std::size_t width;            // of a value
  bool isInline;

  std::uint64_t size() const noexcept { return times(count, width); }
};

// 0 for an unknown type.
std::size_t widthOf(std::uint16_t type) noexcept {
  if (type > TIFF_IFD8) return 0;
  return static_cast<std::size_t>(TIFFDataWidth(static_cast<TIFFDataType>(type)));
}

Entry entryOf(std::span<const std::byte> bytes, Format format) noexcept {
  Entry entry{};
  entry.tag = static_cast<std::uint16_t>(format.number(bytes, 2));
  entry.type = static_cast<std::uint16_t>(format.number(bytes.subspan(2), 2));
  entry.count = format.number(bytes.subspan(4), format.offsetSize());
  entry.width = widthOf(entry.type);
  entry.isInline = entry.size() <= format.offsetSize();
  entry.valueOrOffset =
      format.number(bytes.subspan(format.valueOffset()),
                    entry.isInline && entry.count > 0 ? entry.width : format.offsetSize());
  return entry;
}

// The entries of the directory at `offset`; none when there is no directory.
std::vector<Entry> entriesAt(FileSource& source, std::uint64_t offset, Format format) {
  std::array<std::byte, 1024> start;  // most directories are shorter
  const std::size_t have = source.readAt(offset, start, format.countSize());
  if (have < format.countSize()) return {};
  const std::uint64_t said = format.number(start, format.countSize());
  if (said > kMostEntries) return {};
  const auto count = static_cast<std::size_t>(said);
  const std::size_t bytes = count * format.entrySize();
  std::vector<std::byte> longer;
  std::span<const std::byte> table = std::span(start).first(have).subspan(format.countSize());
  if (bytes > table.size()) {
    longer.resize(bytes);
    if (source.readAt(offset + format.countSize(), longer) < bytes) return {};
    table = longer;
  }
  std::vector<Entry> entries;
  entries.reserve(count);
  for (std::size_t at = 0; at < bytes; at += format.entrySize())
    entries.push_back(entryOf(table.subspan(at), format));
  return entries;
}

// --- What they take

// Values that lie partly outside the file are not loaded.
std::uint64_t tagBytes(std::span<const Entry> entries, std::uint64_t fileSize) noexcept {
  std::uint64_t sum = 0;
  for (const Entry& entry : entries) {
    const std::uint64_t size = entry.isInline ? 0 : entry.size();
    if (plus(entry.valueOrOffset, size) <= fileSize) sum = plus(sum, size);
  }
  return sum;
}

class Tags {
 public:
  Tags(std::span<const Entry> entries, FileSource& source, Format format) noexcept
      : entries_(entries), source_(source), format_(format) {}

  // The first entry of a tag; libtiff ignores others.
  const Entry* find(std::uint16_t tag) const noexcept {
    const auto found = std::ranges::find(entries_, tag, &Entry::tag);
    return found == entries_.end() ? nullptr : &*found;
  }

  // A tag's first value, taken as an unsigned integer; `otherwise` without such a tag.
  std::uint64_t value(std::uint16_t tag, std::uint64_t otherwise) const noexcept {
    const Entry* entry = find(tag);
    if (entry == nullptr || entry->size() == 0) return otherwise;
    if (entry->isInline) return entry->valueOrOffset;
    std::array<std::byte, 8> bytes{};
    if (source_.readAt(entry->valueOrOffset, bytes) < entry->width) return otherwise;
    return format_.number(bytes, entry->width);
  }

 private:
  std::span<const Entry> entries_;
  FileSource& source_;
  Format format_;
};

// The blocks of an image of `length` rows. The tables of all of them are made at once when they
// were left to be written later, which entries of zeros stand for.
std::uint64_t deferredBlocks(const Tags& tags, bool isTiled, std::uint64_t length) noexcept {
  const std::uint64_t planes =
      tags.value(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) == PLANARCONFIG_CONTIG
          ? 1
          : tags.value(TIFFTAG_SAMPLESPERPIXEL, 1);
  if (!isTiled) return times(dividedUp(length, tags.value(TIFFTAG_ROWSPERSTRIP, length)), planes);
  const std::uint64_t across =
      dividedUp(tags.value(TIFFTAG_IMAGEWIDTH, 0), tags.value(TIFFTAG_TILEWIDTH, 1));
  const std::uint64_t down = dividedUp(length, tags.value(TIFFTAG_TILELENGTH, 1));
  const std::uint64_t deep =
      dividedUp(tags.value(TIFFTAG_IMAGEDEPTH, 1), tags.value(TIFFTAG_TILEDEPTH, 1));
  return times(times(across, down), times(deep, planes));
}

// The strips into which libtiff cuts uncompressed ones: one undivided strip into pieces of about
// 8 KiB, strips of 2 GiB into pieces of 512 MiB.
std::uint64_t choppedStrips(const Tags& tags, std::uint64_t length) noexcept {
  constexpr std::uint64_t kSmallPiece = 8192, kLargePiece = 512 << 20, kLargestWhole = 0x7FFFFFFF;
  constexpr std::uint64_t kMostBits = 64;
  if (tags.value(TIFFTAG_COMPRESSION, COMPRESSION_NONE) != COMPRESSION_NONE) return 0;
  const std::uint64_t bits =
      times(times(tags.value(TIFFTAG_IMAGEWIDTH, 0), tags.value(TIFFTAG_SAMPLESPERPIXEL, 1)),
            tags.value(TIFFTAG_BITSPERSAMPLE, kMostBits));
  const std::uint64_t rowBytes = std::max(dividedUp(bits, 8), std::uint64_t{1});
  const std::uint64_t rows = tags.value(TIFFTAG_ROWSPERSTRIP, length);
  const bool isUndivided = rows >= length;
  if (!isUndivided && times(rows, rowBytes) <= kLargestWhole) return 0;
  const std::uint64_t piece = isUndivided ? kSmallPiece : kLargePiece;
  return dividedUp(length, std::max(piece / rowBytes, std::uint64_t{1}));
}

// Blocks of which libtiff makes tables of its own, whatever the size of the file, on a handle that
// can write.
std::uint64_t blocksMade(const Tags& tags) noexcept {
  const bool isTiled = tags.find(TIFFTAG_TILEWIDTH) != nullptr;
  const std::uint64_t length = tags.value(TIFFTAG_IMAGELENGTH, 0);
  const Entry* offsets = tags.find(isTiled ? TIFFTAG_TILEOFFSETS : TIFFTAG_STRIPOFFSETS);
  if (offsets == nullptr) return 0;
  if (offsets->type == 0 && offsets->count == 0) return deferredBlocks(tags, isTiled, length);
  return isTiled ? 0 : choppedStrips(tags, length);
}

bool fits(FileSource& source, std::uint64_t offset, Format format, bool forWriting) {
  const std::vector<Entry> entries = entriesAt(source, offset, format);
  const std::uint64_t tables =
      forWriting ? times(blocksMade(Tags(entries, source, format)), kTableEntry) : 0;
  // The file's size is asked for only where it matters.
  if (plus(tagBytes(entries, kMost), tables) <= kDirectoryMemory) return true;
  const std::uint64_t size = source.size();
  return plus(tagBytes(entries, size), tables) <= std::max(kDirectoryMemory, times(size, 4));
}

bool fitsOrSaysWhy(FileSource& source, const char* name, std::uint64_t offset, Format format,
                   bool forWriting) {
  if (fits(source, offset, format, forWriting)) return true;
  sayError("TIFFReadDirectory",
           "%s: The directory at offset %llu would take far more memory than the file's size "
           "accounts for",
           name, static_cast<unsigned long long>(offset));
  return false;
}

struct FirstDirectory {
  std::uint64_t offset;
  Format format;
};

// Nothing when the header is none.
std::optional<FirstDirectory> firstDirectory(std::span<const std::byte> header) noexcept {
  constexpr std::uint64_t kClassic = 42, kBig = 43;
  constexpr std::size_t kClassicHeader = 8, kBigHeader = 16;
  if (header.size() < kClassicHeader) return std::nullopt;
  Format format{false, header[0] == std::byte{'M'}};
  const std::uint64_t version = format.number(header.subspan(2), 2);
  format.isBig = version == kBig;
  if (version != kClassic && (version != kBig || header.size() < kBigHeader)) return std::nullopt;
  return FirstDirectory{format.number(header.subspan(format.isBig ? 8 : 4), format.offsetSize()),
                        format};
}

}  // namespace

bool firstDirectoryFits(FileSource& source, const std::string& name, bool forWriting) {
  std::array<std::byte, 16> header;
  const std::size_t have = source.readAt(0, header);
  const auto first = firstDirectory(std::span(header).first(have));
  return !first || fitsOrSaysWhy(source, name.c_str(), first->offset, first->format, forWriting);
}

}  // namespace tb::runtime

bool ZQTIFFdirectoryFits(TIFF* tif, std::uint64_t offset) {
  tb::runtime::FileSource* source = tb::runtime::sourceOf(tif);
  if (source == nullptr) return true;
  const tb::runtime::Format format{TIFFIsBigTIFF(tif) != 0, TIFFIsBigEndian(tif) != 0};
  return tb::runtime::fitsOrSaysWhy(*source, TIFFFileName(tif), offset, format,
                                    TIFFGetMode(tif) != O_RDONLY);
}

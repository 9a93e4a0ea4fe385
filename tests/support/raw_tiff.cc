#include "tests/support/raw_tiff.h"

#include <algorithm>
#include <fstream>
#include <utility>

namespace tb::test {
namespace {

constexpr std::size_t kEntryLength = 12;
constexpr std::size_t kInlineLength = 4;

using Bytes = std::vector<std::byte>;

void append(Bytes& to, std::uint64_t value, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) to.push_back(static_cast<std::byte>(value >> (8 * i)));
}

void append(Bytes& to, const Bytes& from) { to.insert(to.end(), from.begin(), from.end()); }

Bytes valueBytes(const RawEntry& entry) {
  Bytes bytes;
  for (const std::uint32_t value : entry.values)
    append(bytes, value, static_cast<std::size_t>(TIFFDataWidth(entry.type)));
  bytes.resize(std::max((bytes.size() + 1) / 2 * 2, kInlineLength));
  return bytes;
}

// The directory as it stands at `start`, with the values that follow it.
Bytes directoryBytes(const std::vector<RawEntry>& entries, std::size_t start) {
  const std::size_t outsideStart = start + 2 + kEntryLength * entries.size() + 4;
  Bytes bytes, outside;
  append(bytes, entries.size(), 2);
  for (const RawEntry& entry : entries) {
    const Bytes value = valueBytes(entry);
    append(bytes, entry.tag, 2);
    append(bytes, static_cast<std::uint64_t>(entry.type), 2);
    append(bytes, entry.values.size(), 4);
    if (value.size() == kInlineLength) {
      append(bytes, value);
    } else {
      append(bytes, outsideStart + outside.size(), 4);
      append(outside, value);
    }
  }
  append(bytes, 0, 4);  // no further directory
  append(bytes, outside);
  return bytes;
}

}  // namespace

void writeRawTiff(const std::filesystem::path& path, const std::vector<RawEntry>& entries,
                  const std::vector<std::byte>& data) {
  const std::size_t directoryStart = kDataOffset + (data.size() + 1) / 2 * 2;
  Bytes bytes;
  append(bytes, 0x002A4949, 4);
  append(bytes, directoryStart, 4);
  append(bytes, data);
  bytes.resize(directoryStart);
  append(bytes, directoryBytes(entries, directoryStart));
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

std::vector<RawEntry> rawGray(std::uint32_t width, std::uint32_t length) {
  return {{TIFFTAG_IMAGEWIDTH, TIFF_LONG, {width}},
          {TIFFTAG_IMAGELENGTH, TIFF_LONG, {length}},
          {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {8}},
          {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_NONE}},
          {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_MINISBLACK}},
          {TIFFTAG_STRIPOFFSETS, TIFF_LONG, {kDataOffset}},
          {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, {1}},
          {TIFFTAG_ROWSPERSTRIP, TIFF_LONG, {length}},
          {TIFFTAG_STRIPBYTECOUNTS, TIFF_LONG, {width * length}}};
}

std::vector<RawEntry> rawOldJpeg(std::uint32_t width, std::uint32_t length) {
  std::vector<RawEntry> entries = rawGray(width, length);
  replaceEntry(entries, {TIFFTAG_COMPRESSION, TIFF_SHORT, {COMPRESSION_OJPEG}});
  replaceEntry(entries, {TIFFTAG_PHOTOMETRIC, TIFF_SHORT, {PHOTOMETRIC_YCBCR}});
  replaceEntry(entries, {TIFFTAG_SAMPLESPERPIXEL, TIFF_SHORT, {3}});
  replaceEntry(entries, {TIFFTAG_BITSPERSAMPLE, TIFF_SHORT, {8, 8, 8}});
  removeEntry(entries, TIFFTAG_STRIPBYTECOUNTS);
  return entries;
}

void replaceEntry(std::vector<RawEntry>& entries, RawEntry entry) {
  removeEntry(entries, entry.tag);
  const auto place = std::ranges::upper_bound(entries, entry.tag, {}, &RawEntry::tag);
  entries.insert(place, std::move(entry));
}

void removeEntry(std::vector<RawEntry>& entries, std::uint16_t tag) {
  std::erase_if(entries, [tag](const RawEntry& entry) { return entry.tag == tag; });
}

}  // namespace tb::test

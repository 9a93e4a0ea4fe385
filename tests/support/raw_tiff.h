// TIFF files that libtiff would not write: a directory of any entries, right or wrong.
#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace tb::test {

// An entry of a directory: its type (TIFF_SHORT, ...) and its values, each written in as many bytes
// as the type has. Values that do not fit the entry follow the directory.
struct RawEntry {
  std::uint16_t tag;
  TIFFDataType type;
  std::vector<std::uint32_t> values;
};

// Where the `data` of writeRawTiff starts in the file.
inline constexpr std::uint32_t kDataOffset = 8;

// Writes a little-endian classic TIFF: the header, `data`, and one directory of the entries as they
// are given, which libtiff expects in ascending order of tag.
void writeRawTiff(const std::filesystem::path& path, const std::vector<RawEntry>& entries,
                  const std::vector<std::byte>& data = {});

// The entries of an 8-bit gray image of one uncompressed strip.
std::vector<RawEntry> rawGray(std::uint32_t width, std::uint32_t length);

// The entries of an image of one strip in old-style JPEG, without the strip's byte count.
std::vector<RawEntry> rawOldJpeg(std::uint32_t width, std::uint32_t length);

// Puts an entry in place of the one with its tag, or at its place in the order; drops an entry.
void replaceEntry(std::vector<RawEntry>& entries, RawEntry entry);
void removeEntry(std::vector<RawEntry>& entries, std::uint16_t tag);

}  // namespace tb::test

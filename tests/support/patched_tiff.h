// Classic TIFF files in the byte order of the machine that are spoilt after they were written.
#pragma once

#include <cstdint>
#include <filesystem>

namespace tb::test {

// The offset of a directory of the main chain, counted from 0.
std::uint32_t offsetOf(const std::filesystem::path& path, std::uint32_t directory);

// Gives an entry of a directory another tag; the entry must be there.
void renumberEntry(const std::filesystem::path& path, std::uint32_t directory, std::uint16_t tag,
                   std::uint16_t newTag);

// Lets the chain go on at `offset` behind a directory.
void linkDirectory(const std::filesystem::path& path, std::uint32_t directory,
                   std::uint32_t offset);

}  // namespace tb::test

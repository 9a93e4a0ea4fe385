// Damage to TIFF files that keeps them TIFF files: most random bytes would end in the first check.
#pragma once

#include <cstdint>
#include <vector>

namespace tb::fuzz {

// Changes `bytes`, a TIFF or BigTIFF file of either byte order, in one place that `seed` chooses:
// an entry of a directory, a pointer to a directory, a byte, or the end of the file.
void damage(std::vector<unsigned char>& bytes, std::uint32_t seed);

// Exchanges a part of two entries of its directories that `seed` chooses: tags, types, counts,
// values, or all of it.
void swapFields(std::vector<unsigned char>& bytes, std::uint32_t seed);

}  // namespace tb::fuzz

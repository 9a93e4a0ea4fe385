// Arrays for sequences of operations: what a tag or a block takes, and anything else.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/array.h"

namespace tb::fuzz {

// What getField says of the current directory, 0 for what it does not say.
struct BlockLayout {
  explicit BlockLayout(const vxArray* file);

  bool tiled;
  double width, length, bits, compression, photometric, samples, rowsPerStrip, planar, tileWidth,
      tileLength, format;

  // Whether a block that is written comes back as it was.
  bool lossless() const;

  // Whether blocks can be read and not written.
  bool isReadOnly() const;
};

// An array of a class with elements, filled from `seed`; logicals are 0 or 1.
vxArrayPtr filledArray(vxClassID classId, const std::vector<std::size_t>& dimensions,
                       std::uint32_t seed);

// Any class, any small shape, cells and structs among them.
vxArrayPtr anyArray(FuzzedDataProvider& input);

// A tag that setField knows, or another number.
int anyTag(FuzzedDataProvider& input);

// A value that a tag may well accept in the file's current directory.
vxArrayPtr valueForTag(const vxArray* file, int tag, FuzzedDataProvider& input);

// Whether the tag says how the data are laid out and encoded, or where sub-directories are: a
// directory in which it was changed may be one that cannot be read.
bool isLayoutTag(int tag);

// Whether the tag is text that comes back as it was set.
bool isTextTag(int tag);

// The array, or Y, Cb and Cr, that a strip or tile takes whole; small arrays that do not fit when
// the block is large.
std::vector<vxArrayPtr> arraysForBlock(const BlockLayout& layout, std::uint32_t block,
                                       std::uint32_t seed);

// Whether an array has as many rows and columns as the block.
bool isWholeBlock(const BlockLayout& layout, std::uint32_t block, const vxArray* array);

// The class, the size and the first element or characters of an array, for people.
std::string described(const vxArray* array);

}  // namespace tb::fuzz

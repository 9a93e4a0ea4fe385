#pragma once

#include <cstddef>

namespace tb {

// Where rows x columns pixels of `samples` interleaved samples lie in a row-major block and in
// column-major planes: sample s of pixel (row, column) is element column*samples + s of block row
// `row`, and element row + column*columnStride + s*planeStride of the planes. A kernel touches
// those elements and nothing else, so a block wider or longer than what is copied and an array
// taller than the block need no treatment of their own; a count of zero copies nothing.
struct BlockShape {
  std::size_t rows;          // rows to copy
  std::size_t columns;       // pixels of each row to copy
  std::size_t samples;       // interleaved samples of a pixel
  std::size_t blockStride;   // bytes from one block row to the next
  std::size_t columnStride;  // elements from one array column to the next
  std::size_t planeStride;   // elements from one array plane to the next
};

}  // namespace tb

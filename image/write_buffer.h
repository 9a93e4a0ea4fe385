// From column-major host arrays to a block as libtiff encodes it. The buffer is as large as the
// block; what the arrays do not cover is left as it is, so that it has to be 0, and nothing is
// written past its end however the directory's settings contradict each other.
#pragma once

#include <cstddef>
#include <span>

#include "core/image_metadata.h"
#include "image/write_checks.h"

namespace tb {

// Lays out one block: the first array's rows and columns up to the block's size, after the warning
// dataLengthExceedsRowsPerStrip or dataLengthExceedsTileLength, then dataWidthExceedsImageWidth or
// dataWidthExceedsTileWidth(block size, array size) where the array is larger.
// Raises unhandledBitsPerSample(bitsPerSample) unless samples have 1, 8, 16, 32 or 64 bits.
void fillWriteBuffer(InputImages images, std::span<std::byte> buffer,
                     const TiffImageMetaData_& record);

// Whether fillWriteBuffer writes every byte of a buffer of so many bytes.
bool fillsWholeBuffer(InputImages images, std::size_t bufferSize, const TiffImageMetaData_& record);

// The three ways of laying out the first `rows` x `columns` elements.

// Interleaves the planes of the third dimension pixel by pixel.
// Raises unhandledBitsPerSample(bitsPerSample) unless samples have 8, 16, 32 or 64 bits.
void fillWriteBufferNotLogical(const vxArray* image, std::span<std::byte> buffer,
                               const TiffImageMetaData_& record, std::size_t rows,
                               std::size_t columns);

// Packs eight elements to a byte, most significant bit first, each row from a byte boundary on.
// Columns of the array are taken to be `rows` elements apart, also when the array has more rows
// than the block: that is the rule for 1-bit data.
void fillWriteBufferLogical(const vxArray* image, std::span<std::byte> buffer,
                            const TiffImageMetaData_& record, std::size_t rows,
                            std::size_t columns);

// Joins Y, Cb and Cr to units of h*v luma bytes, one Cb and one Cr. Unit rows are
// blockWidth div h units apart, rounded down although a reader rounds up; luma positions past the
// array wrap around to its start.
void fillWriteBufferYCbCr(InputImages images, std::span<std::byte> buffer,
                          const TiffImageMetaData_& record, std::size_t rows, std::size_t columns);

}  // namespace tb

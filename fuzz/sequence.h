// A sequence of operations on one file, written down as bytes: a header, which chooses the file,
// its damage and the access mode, and steps of equal length, so that a step can be taken out or
// moved and the others stay what they are.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tb::fuzz {

inline constexpr std::size_t kHeaderLength = 12;
inline constexpr std::size_t kStepLength = 16;
inline constexpr std::size_t kMostSteps = 60;

// Runs the sequence and closes the file. Aborts with a message on standard error when a failed
// operation changed the handle, when something that was written is not read back, or when libtiff
// alone no longer reads a directory that was not edited. A file that was damaged first has no such
// claims.
//
// TAGBRIDGE_FUZZ_OFF leaves out, parted by commas:
// - a row of the table of steps (setField, reopen, ...) or cleanup, or one in files that are open
// in
//   a mode (setField@r+);
// - a tag (tag:259, tag:259@r+), a starting file (file:jpeg), a mode (mode:a);
// - damage: every starting file is whole; limit: files may grow; memory: no call has little memory;
// - integers: the numbers of blocks are doubles;
// - check:move, check:read, check:file, check:decoded, check:values.
// TAGBRIDGE_FUZZ_TRACE=1 prints every call and what came of it.
void runSequence(std::span<const std::uint8_t> bytes);

// The same on a file that is new, in a mode that the header chooses, with steps only that store
// something: far more of them do than of those of any kind.
void runWrites(std::span<const std::uint8_t> bytes);

}  // namespace tb::fuzz

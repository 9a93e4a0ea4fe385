#include "runtime/held_writes.h"

#include <algorithm>
#include <iterator>

namespace tb::runtime {

void HeldWrites::add(std::uint64_t offset, std::span<const std::byte> data) {
  const bool continues = !pieces_.empty() && pieces_.back().end() == offset;
  if (!continues) pieces_.push_back({offset, {}, {}});
  Piece& last = pieces_.back();
  last.bytes.insert(last.bytes.end(), data.begin(), data.end());
  last.replaced.resize(last.bytes.size());
  const auto isCovered = [&](const Piece& piece) {
    return piece.offset >= offset && piece.end() <= last.end();
  };
  const auto earlier = std::prev(pieces_.end());
  pieces_.erase(std::remove_if(pieces_.begin(), earlier, isCovered), earlier);
}

void HeldWrites::show(std::uint64_t offset, std::span<std::byte> buffer) const noexcept {
  for (const Piece& piece : pieces_) {
    const std::uint64_t first = std::max(offset, piece.offset);
    const std::uint64_t last = std::min(offset + buffer.size(), piece.end());
    if (first >= last) continue;
    const auto start = piece.bytes.begin() + static_cast<std::ptrdiff_t>(first - piece.offset);
    std::copy_n(start, last - first, buffer.begin() + static_cast<std::ptrdiff_t>(first - offset));
  }
}

HeldWrites::Made HeldWrites::make(const Read& read, const Write& write) noexcept try {
  // Room for what is replaced was made when the writes were held: nothing can fail for want of it.
  for (std::size_t made = 0; made < pieces_.size(); ++made) {
    Piece& piece = pieces_[made];
    const bool isKnown = read(piece.offset, piece.replaced);
    if (isKnown && write(piece.offset, piece.bytes)) continue;
    // A write that failed may have been made in part.
    bool isUndone = true;
    for (std::size_t k = isKnown ? made + 1 : made; k-- > 0;)
      isUndone &= write(pieces_[k].offset, pieces_[k].replaced);
    return isUndone ? Made::kNone : Made::kSome;
  }
  return Made::kAll;
} catch (...) {
  return Made::kSome;
}

}  // namespace tb::runtime

#include "runtime/held_writes.h"

#include <algorithm>
#include <iterator>

namespace tb::runtime {

void HeldWrites::add(std::uint64_t offset, std::span<const std::byte> data) {
  pieces_.push_back({offset, {data.begin(), data.end()}, std::vector<std::byte>(data.size())});
  const auto isCovered = [&](const Piece& piece) {
    return piece.offset >= offset && piece.offset + piece.bytes.size() <= offset + data.size();
  };
  const auto last = std::prev(pieces_.end());
  const auto kept = std::remove_if(pieces_.begin(), last, isCovered);
  pieces_.erase(kept, last);
}

void HeldWrites::show(std::uint64_t offset, std::span<std::byte> buffer) const noexcept {
  for (const Piece& piece : pieces_) {
    const std::uint64_t first = std::max(offset, piece.offset);
    const std::uint64_t last = std::min(offset + buffer.size(), piece.offset + piece.bytes.size());
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

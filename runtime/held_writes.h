#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace tb::runtime {

// Writes to bytes that a file has already, held back until all of them can be made.
class HeldWrites {
 public:
  // Each returns whether all bytes were transferred.
  using Read = std::function<bool(std::uint64_t offset, std::span<std::byte> buffer)>;
  using Write = std::function<bool(std::uint64_t offset, std::span<const std::byte> data)>;

  // `fileSize` is the length of the file before the first write, in bytes.
  explicit HeldWrites(std::uint64_t fileSize) noexcept : fileSize_(fileSize) {}
  std::uint64_t fileSize() const noexcept { return fileSize_; }

  // Holds a write, and drops those that it covers: libtiff empties a link before it sets it anew,
  // and a disk that fails in between would leave the chain of directories cut. Writes that continue
  // one another become one, as libtiff writes some tables a number at a time. Throws
  // std::bad_alloc.
  void add(std::uint64_t offset, std::span<const std::byte> data);

  // Puts what is held over `buffer`, which was read from the file at `offset`.
  void show(std::uint64_t offset, std::span<std::byte> buffer) const noexcept;

  // Makes the writes in their order. When one fails, what the others had replaced is put back, and
  // none is made; unless that fails as well.
  enum class Made { kAll, kNone, kSome };
  Made make(const Read& read, const Write& write) noexcept;

 private:
  struct Piece {
    std::uint64_t offset;
    std::vector<std::byte> bytes;
    std::vector<std::byte> replaced;

    std::uint64_t end() const noexcept { return offset + bytes.size(); }
  };

  std::uint64_t fileSize_;
  std::vector<Piece> pieces_;
};

}  // namespace tb::runtime

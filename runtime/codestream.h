// The first bytes of a JPEG 2000 codestream: the boxes that may surround it, and the marker segment
// SIZ, which says what it holds. All numbers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

namespace tb::runtime {

using CodestreamBytes = std::span<const std::uint8_t>;

// Why a codestream is not decoded. The text ends a sentence that names the strip or tile.
class CodestreamError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Takes numbers from the front of bytes; throws CodestreamError where they end.
class CodestreamReader {
 public:
  explicit CodestreamReader(CodestreamBytes bytes) noexcept : bytes_(bytes) {}

  std::uint8_t byte() { return static_cast<std::uint8_t>(number(1)); }
  std::uint16_t word() { return static_cast<std::uint16_t>(number(2)); }
  std::uint32_t longWord() { return static_cast<std::uint32_t>(number(4)); }
  std::uint64_t number(std::size_t size);
  CodestreamBytes take(std::size_t size);
  // The body of a marker segment: its length, which counts itself, comes first.
  CodestreamBytes takeSegment();

  CodestreamBytes rest() const noexcept { return bytes_; }

 private:
  CodestreamBytes bytes_;
};

namespace marker {
inline constexpr std::uint16_t kStart = 0xFF4F;
inline constexpr std::uint16_t kSize = 0xFF51;
inline constexpr std::uint16_t kCodingStyle = 0xFF52;
inline constexpr std::uint16_t kComponentCodingStyle = 0xFF53;
inline constexpr std::uint16_t kTilePart = 0xFF90;
inline constexpr std::uint16_t kData = 0xFF93;
inline constexpr std::uint16_t kEnd = 0xFFD9;
}  // namespace marker

struct CodestreamComponent {
  std::uint8_t precision;  // bits
  bool isSigned;
  std::uint32_t dx, dy;  // one sample for so many columns and rows of the grid

  bool operator==(const CodestreamComponent&) const = default;
};

// A part of the grid, or of a component: columns from x0 to before x1, rows likewise.
struct CodestreamArea {
  std::uint64_t x0, y0, x1, y1;

  std::uint64_t width() const noexcept { return x1 > x0 ? x1 - x0 : 0; }
  std::uint64_t height() const noexcept { return y1 > y0 ? y1 - y0 : 0; }
};

// `area` with every coordinate divided, rounded up.
CodestreamArea divided(const CodestreamArea& area, std::uint64_t x, std::uint64_t y) noexcept;

// What SIZ says.
struct CodestreamSize {
  CodestreamArea image;
  CodestreamArea firstTile;  // not cut by the image
  std::vector<CodestreamComponent> components;

  std::uint64_t tilesAcross() const noexcept;
  std::uint64_t tileCount() const noexcept;
  CodestreamArea tile(std::uint64_t number) const noexcept;
  CodestreamArea component(std::size_t number) const noexcept;
};

// The codestream in a block, which is one or a JP2 file with one. It may end before it should.
CodestreamBytes findCodestream(CodestreamBytes block);

// Reads SIZ; the sizes are in range, there is at least one component, and the first tile lies in
// the image. `rest`, unless null, gets what follows.
CodestreamSize readCodestreamSize(CodestreamBytes codestream, CodestreamBytes* rest = nullptr);

}  // namespace tb::runtime

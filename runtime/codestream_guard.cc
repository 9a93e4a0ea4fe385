#include "runtime/codestream_guard.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "runtime/codestream_style.h"

namespace tb::runtime {
namespace {

// SOT with its body, and SOD.
constexpr std::size_t kTilePartHeader = 14;

// Bytes that OpenJPEG keeps for a sample while it decodes, for a tile of the codestream, and for a
// component of each tile; upper bounds.
constexpr std::uint64_t kBytesPerSample = 8;
constexpr std::uint64_t kBytesPerTile = 8192;
constexpr std::uint64_t kBytesPerTileComponent = 1536;

// The marker segments that OpenJPEG knows, besides those that are read here. It does not skip an
// unknown one by its length, as it should, but looks for the next known marker inside it: there
// could be another coding style than the one that was found here.
bool isOtherKnownSegment(std::uint16_t found) {
  constexpr std::uint16_t kKnown[] = {0xFF50, 0xFF55, 0xFF57, 0xFF58, 0xFF59, 0xFF5C,
                                      0xFF5D, 0xFF5E, 0xFF5F, 0xFF60, 0xFF61, 0xFF63,
                                      0xFF64, 0xFF74, 0xFF75, 0xFF77, 0xFF78};
  return std::ranges::find(kKnown, found) != std::end(kKnown);
}

// Reads the segments of a main or tile-part header up to and including the marker that ends it, and
// hands the bodies of coding styles to `take(marker, segment)`.
template <class Take>
void readHeader(CodestreamReader& reader, std::uint16_t end, const Take& take) {
  for (std::uint16_t found = reader.word(); found != end; found = reader.word()) {
    const bool isStyle = found == marker::kCodingStyle || found == marker::kComponentCodingStyle;
    if (!isStyle && !isOtherKnownSegment(found)) {
      throw CodestreamError("there is an unknown marker in a header");
    }
    const CodestreamBytes segment = reader.takeSegment();
    if (isStyle) take(found, segment);
  }
}

void readStyle(CodingStyle& style, std::uint16_t found, CodestreamBytes segment) {
  if (found == marker::kCodingStyle)
    style.readForAll(segment);
  else
    style.readForOne(segment);
}

struct Tile {
  unsigned parts = 0;                  // so many were seen
  unsigned announced = 0;              // so many there should be; 0 where none of them says it
  TileCost cost;                       // the highest that its headers led to
  std::unique_ptr<CodingStyle> style;  // its own, where it has one
};

struct TilePart {
  std::size_t tile;
  unsigned number;
  unsigned announced;
  CodestreamBytes bytes;  // from behind SOT
};

class TileParts {
 public:
  TileParts(const CodestreamSize& size, const CodingStyle& style, std::uint64_t mostPackets)
      : size_(size),
        style_(style),
        mostPackets_(mostPackets),
        tiles_(static_cast<std::size_t>(size.tileCount())) {}

  // Reads the tile-parts, the first of which begins behind its marker, and the end marker.
  void read(CodestreamReader& reader) {
    for (std::uint16_t found = marker::kTilePart; found != marker::kEnd; found = reader.word()) {
      if (found != marker::kTilePart) throw CodestreamError("a tile has another size than it says");
      readPart(takePart(reader));
    }
  }

  // Throws unless all tiles are complete; returns what the codestream takes.
  TileCost total() const {
    TileCost total;
    for (const Tile& tile : tiles_) {
      if (tile.parts == 0) throw CodestreamError("a tile is missing");
      if (tile.announced != 0 && tile.parts != tile.announced) {
        throw CodestreamError("a part of a tile is missing");
      }
      total.packets += tile.cost.packets;
      total.bytes = std::max(total.bytes, tile.cost.bytes);  // one tile is decoded at a time
    }
    if (total.packets > mostPackets_) throw CodestreamError("it has more packets than bytes");
    return total;
  }

 private:
  TilePart takePart(CodestreamReader& reader) const {
    CodestreamReader segment(reader.takeSegment());
    const std::size_t tile = segment.word();
    const std::uint32_t length = segment.longWord();
    const unsigned number = segment.byte(), announced = segment.byte();
    if (tile >= tiles_.size()) throw CodestreamError("there is a tile too many");
    if (length == 0) return {tile, number, announced, takeLastPart(reader)};
    if (length < kTilePartHeader) throw CodestreamError("a tile is shorter than its header");
    constexpr std::size_t kSegment = 12;
    return {tile, number, announced, reader.take(length - kSegment)};
  }

  // A part without a length goes up to the end marker: data never hold such a pair of bytes, and
  // what follows the marker may be padding.
  static CodestreamBytes takeLastPart(CodestreamReader& reader) {
    CodestreamReader header(reader.rest());
    readHeader(header, marker::kData, [](std::uint16_t, CodestreamBytes) {});
    const CodestreamBytes data = header.rest();
    constexpr std::uint8_t kEnd[] = {0xFF, 0xD9};
    const auto end = std::search(data.begin(), data.end(), std::begin(kEnd), std::end(kEnd));
    if (end == data.end()) throw CodestreamError("its data ends too early");
    const std::size_t headerSize = reader.rest().size() - data.size();
    return reader.take(headerSize + static_cast<std::size_t>(end - data.begin()));
  }

  void readPart(const TilePart& part) {
    Tile& tile = tiles_[part.tile];
    if (part.number != tile.parts) throw CodestreamError("the parts of a tile are out of order");
    if (part.announced != 0) tile.announced = part.announced;
    bool isNew = tile.parts++ == 0;
    CodestreamReader reader(part.bytes);
    readHeader(reader, marker::kData, [&](std::uint16_t found, CodestreamBytes segment) {
      if (tile.style == nullptr) tile.style = std::make_unique<CodingStyle>(style_);
      readStyle(*tile.style, found, segment);
      isNew = true;
    });
    if (!isNew) return;
    const TileCost cost = tileCost(size_, size_.tile(part.tile),
                                   tile.style != nullptr ? *tile.style : style_, mostPackets_);
    tile.cost = {std::max(tile.cost.packets, cost.packets), std::max(tile.cost.bytes, cost.bytes)};
  }

  const CodestreamSize& size_;
  const CodingStyle& style_;
  std::uint64_t mostPackets_;
  std::vector<Tile> tiles_;
};

void requireMemory(std::uint64_t bytes, std::uint64_t memoryLimit) {
  if (bytes > memoryLimit) throw CodestreamError("decoding it needs more memory than is allowed");
}

// What the planes need, whatever the coding.
std::uint64_t planeBytes(const CodestreamSize& size, std::uint64_t memoryLimit) {
  std::uint64_t bytes = 0;
  for (std::size_t c = 0; c < size.components.size(); ++c) {
    const CodestreamArea area = size.component(c);
    // Sizes have 31 bits: neither a product nor the sum wraps before it is refused.
    requireMemory(area.width() * area.height(), memoryLimit / kBytesPerSample);
    bytes += area.width() * area.height() * kBytesPerSample;
    requireMemory(bytes, memoryLimit);
  }
  return bytes;
}

}  // namespace

void checkCodestream(CodestreamBytes codestream, const CodestreamSize& size,
                     std::uint64_t memoryLimit) {
  // What no machine has, so that no number of bytes wraps.
  constexpr std::uint64_t kMostMemory = std::uint64_t{1} << 48;
  memoryLimit = std::min(memoryLimit, kMostMemory);
  const std::uint64_t planes = planeBytes(size, memoryLimit);
  // Before anything is kept for each tile.
  if (size.tileCount() > codestream.size() / kTilePartHeader) {
    throw CodestreamError("it has more tiles than its data can hold");
  }
  CodestreamBytes rest;
  (void)readCodestreamSize(codestream, &rest);
  CodestreamReader reader(rest);
  CodingStyle style(size.components.size());
  readHeader(reader, marker::kTilePart, [&](std::uint16_t found, CodestreamBytes segment) {
    readStyle(style, found, segment);
  });
  if (!style.isRead()) throw CodestreamError("its header has no coding style");

  TileParts parts(size, style, codestream.size());
  parts.read(reader);
  const std::uint64_t tiles =
      size.tileCount() * (kBytesPerTile + size.components.size() * kBytesPerTileComponent);
  requireMemory(planes + tiles + parts.total().bytes, memoryLimit);
}

}  // namespace tb::runtime

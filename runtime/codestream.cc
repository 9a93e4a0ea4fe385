#include "runtime/codestream.h"

#include <algorithm>
#include <limits>

namespace tb::runtime {
namespace {

constexpr std::uint32_t kSignatureBox = 0x6A502020;   // "jP  "
constexpr std::uint32_t kCodestreamBox = 0x6A703263;  // "jp2c"
constexpr std::size_t kMostTiles = 65535;

constexpr std::uint64_t quotientUp(std::uint64_t a, std::uint64_t b) noexcept {
  return b == 0 ? 0 : a / b + (a % b != 0 ? 1 : 0);
}

bool startsWithCodestream(CodestreamBytes block) {
  return block.size() >= 2 && CodestreamReader(block).word() == marker::kStart;
}

bool startsWithBoxes(CodestreamBytes block) {
  if (block.size() < 8) return false;
  CodestreamReader reader(block);
  return reader.longWord() == 12 && reader.longWord() == kSignatureBox;
}

// The length of a box's contents; its own length counts the header.
std::uint64_t contentLength(CodestreamReader& reader, std::uint32_t boxLength) {
  constexpr std::uint32_t kToTheEnd = 0, kLongLength = 1;
  if (boxLength == kToTheEnd) return reader.rest().size();
  const bool isLong = boxLength == kLongLength;
  const std::uint64_t length = isLong ? reader.number(8) : boxLength;
  const std::uint64_t header = isLong ? 16 : 8;
  if (length < header) throw CodestreamError("a JP2 box is shorter than its header");
  return length - header;
}

CodestreamBytes findCodestreamBox(CodestreamBytes block) {
  CodestreamReader reader(block);
  while (!reader.rest().empty()) {
    const std::uint32_t length = reader.longWord();
    const std::uint32_t type = reader.longWord();
    const std::uint64_t content = contentLength(reader, length);
    if (type == kCodestreamBox) {
      return reader.take(
          static_cast<std::size_t>(std::min<std::uint64_t>(content, reader.rest().size())));
    }
    if (content > reader.rest().size()) break;
    (void)reader.take(static_cast<std::size_t>(content));
  }
  throw CodestreamError("its JP2 boxes hold no codestream");
}

std::vector<CodestreamComponent> readComponents(CodestreamReader& reader) {
  constexpr std::uint16_t kMost = 16384;
  const std::uint16_t count = reader.word();
  if (count == 0 || count > kMost || reader.rest().size() != std::size_t{count} * 3) {
    throw CodestreamError("the number of components in its header is wrong");
  }
  std::vector<CodestreamComponent> components;
  components.reserve(count);
  for (std::uint16_t i = 0; i < count; ++i) {
    const std::uint8_t depth = reader.byte();
    const std::uint8_t dx = reader.byte(), dy = reader.byte();
    if (dx == 0 || dy == 0) throw CodestreamError("a component has no samples");
    components.push_back(
        {static_cast<std::uint8_t>((depth & 0x7F) + 1), (depth & 0x80) != 0, dx, dy});
  }
  return components;
}

void checkAreas(const CodestreamSize& size) {
  // OpenJPEG computes coordinates as signed numbers.
  constexpr std::uint64_t kMost = std::numeric_limits<std::int32_t>::max();
  const auto& [image, tile, components] = size;
  if (image.width() == 0 || image.height() == 0 || image.x1 > kMost || image.y1 > kMost) {
    throw CodestreamError("the image size in its header is wrong");
  }
  const bool coversOrigin = tile.x0 <= image.x0 && tile.y0 <= image.y0 && tile.x1 > image.x0 &&
                            tile.y1 > image.y0 && tile.width() > 0 && tile.height() > 0;
  if (!coversOrigin || size.tileCount() > kMostTiles) {
    throw CodestreamError("the tile size in its header is wrong");
  }
}

}  // namespace

std::uint64_t CodestreamReader::number(std::size_t size) {
  std::uint64_t value = 0;
  for (const std::uint8_t next : take(size)) value = value << 8 | next;
  return value;
}

CodestreamBytes CodestreamReader::take(std::size_t size) {
  if (size > bytes_.size()) throw CodestreamError("its data ends too early");
  const CodestreamBytes taken = bytes_.first(size);
  bytes_ = bytes_.subspan(size);
  return taken;
}

CodestreamBytes CodestreamReader::takeSegment() {
  const std::uint16_t length = word();
  if (length < 2) throw CodestreamError("a marker segment has no length");
  return take(length - 2U);
}

CodestreamArea divided(const CodestreamArea& area, std::uint64_t x, std::uint64_t y) noexcept {
  return {quotientUp(area.x0, x), quotientUp(area.y0, y), quotientUp(area.x1, x),
          quotientUp(area.y1, y)};
}

std::uint64_t CodestreamSize::tilesAcross() const noexcept {
  // At least the first, which lies in the image.
  return std::max<std::uint64_t>(quotientUp(image.x1 - firstTile.x0, firstTile.width()), 1);
}

std::uint64_t CodestreamSize::tileCount() const noexcept {
  return tilesAcross() * quotientUp(image.y1 - firstTile.y0, firstTile.height());
}

CodestreamArea CodestreamSize::tile(std::uint64_t number) const noexcept {
  const std::uint64_t x = number % tilesAcross() * firstTile.width();
  const std::uint64_t y = number / tilesAcross() * firstTile.height();
  return {std::max(firstTile.x0 + x, image.x0), std::max(firstTile.y0 + y, image.y0),
          std::min(firstTile.x1 + x, image.x1), std::min(firstTile.y1 + y, image.y1)};
}

CodestreamArea CodestreamSize::component(std::size_t number) const noexcept {
  return divided(image, components[number].dx, components[number].dy);
}

CodestreamBytes findCodestream(CodestreamBytes block) {
  if (startsWithCodestream(block)) return block;
  if (startsWithBoxes(block)) return findCodestreamBox(block);
  throw CodestreamError("it holds no JPEG 2000 codestream");
}

CodestreamSize readCodestreamSize(CodestreamBytes codestream, CodestreamBytes* rest) {
  CodestreamReader reader(codestream);
  if (reader.word() != marker::kStart || reader.word() != marker::kSize) {
    throw CodestreamError("its header does not begin with the size");
  }
  CodestreamReader segment(reader.takeSegment());
  (void)segment.word();  // capabilities: OpenJPEG knows what it can decode
  std::uint64_t numbers[8];
  for (std::uint64_t& number : numbers) number = segment.longWord();
  const auto [x1, y1, x0, y0, tileWidth, tileHeight, tileX, tileY] = numbers;
  CodestreamSize size{.image = {x0, y0, x1, y1},
                      .firstTile = {tileX, tileY, tileX + tileWidth, tileY + tileHeight},
                      .components = readComponents(segment)};
  checkAreas(size);
  if (rest != nullptr) *rest = reader.rest();
  return size;
}

}  // namespace tb::runtime

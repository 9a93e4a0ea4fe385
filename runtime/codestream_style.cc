#include "runtime/codestream_style.h"

#include <algorithm>

namespace tb::runtime {
namespace {

constexpr std::uint8_t kOwnPrecincts = 1;

ComponentStyle readStyle(CodestreamReader& reader, bool ownPrecincts) {
  ComponentStyle style;
  const unsigned levels = reader.byte();
  const unsigned width = reader.byte() + 2U, height = reader.byte() + 2U;
  (void)reader.word();  // how code-blocks are coded, and the wavelet
  if (levels >= kMostResolutions) throw CodestreamError("it has too many resolutions");
  if (width > 10 || height > 10 || width + height > 12) {
    throw CodestreamError("its code-blocks are too large");
  }
  style.resolutions = static_cast<std::uint8_t>(levels + 1);
  style.blockWidth = static_cast<std::uint8_t>(width);
  style.blockHeight = static_cast<std::uint8_t>(height);
  for (std::size_t r = 0; r < style.resolutions; ++r) {
    const std::uint8_t sizes = ownPrecincts ? reader.byte() : std::uint8_t{0xFF};
    style.precinctWidth[r] = sizes & 0xF;
    style.precinctHeight[r] = sizes >> 4;
    // A precinct of a resolution lies in bands of half its size.
    if (r > 0 && (style.precinctWidth[r] == 0 || style.precinctHeight[r] == 0)) {
      throw CodestreamError("it has empty precincts");
    }
  }
  return style;
}

// How many cells of 2^exponent there are between two coordinates.
constexpr std::uint64_t cellsBetween(std::uint64_t start, std::uint64_t end,
                                     unsigned exponent) noexcept {
  if (start >= end) return 0;
  return ((end - 1) >> exponent) - (start >> exponent) + 1;
}

std::uint64_t precinctsOf(const CodestreamArea& area, const ComponentStyle& style, std::size_t r) {
  return cellsBetween(area.x0, area.x1, style.precinctWidth[r]) *
         cellsBetween(area.y0, area.y1, style.precinctHeight[r]);
}

// Those of the three bands of a resolution, and of the one band of the smallest. A precinct cuts
// code-blocks that are larger.
std::uint64_t codeBlocksOf(const CodestreamArea& area, const ComponentStyle& style, std::size_t r) {
  const unsigned halved = r > 0 ? 1 : 0, bands = r > 0 ? 3 : 1;
  const unsigned width = std::min<unsigned>(style.blockWidth + halved, style.precinctWidth[r]);
  const unsigned height = std::min<unsigned>(style.blockHeight + halved, style.precinctHeight[r]);
  return bands * cellsBetween(area.x0, area.x1, width) * cellsBetween(area.y0, area.y1, height);
}

// Upper bounds for OpenJPEG 2.5 on a 64-bit machine, its allocator's part included.
constexpr std::uint64_t kBytesPerPrecinct = 1024;
constexpr std::uint64_t kBytesPerCodeBlock = 640;

}  // namespace

void CodingStyle::readForAll(CodestreamBytes segment) {
  CodestreamReader reader(segment);
  const bool ownPrecincts = (reader.byte() & kOwnPrecincts) != 0;
  (void)reader.byte();  // the order of packets
  layers_ = reader.word();
  (void)reader.byte();  // the colour transform
  if (layers_ == 0) throw CodestreamError("it has no layers");
  std::ranges::fill(components_, readStyle(reader, ownPrecincts));
  isRead_ = true;
}

void CodingStyle::readForOne(CodestreamBytes segment) {
  CodestreamReader reader(segment);
  const std::size_t component = components_.size() <= 256 ? reader.byte() : reader.word();
  const bool ownPrecincts = (reader.byte() & kOwnPrecincts) != 0;
  if (component >= components_.size()) throw CodestreamError("it styles a component it has not");
  components_[component] = readStyle(reader, ownPrecincts);
}

TileCost tileCost(const CodestreamSize& size, const CodestreamArea& tile, const CodingStyle& style,
                  std::uint64_t mostPackets) {
  TileCost cost;
  std::uint64_t mostPrecincts = 0, mostResolutions = 0;
  for (std::size_t c = 0; c < size.components.size(); ++c) {
    const ComponentStyle& component = style.components()[c];
    const CodestreamArea whole = divided(tile, size.components[c].dx, size.components[c].dy);
    for (std::size_t r = 0; r < component.resolutions; ++r) {
      const std::uint64_t scale = std::uint64_t{1} << (component.resolutions - 1U - r);
      const CodestreamArea area = divided(whole, scale, scale);
      const std::uint64_t precincts = precinctsOf(area, component, r);
      if (precincts > (mostPackets - cost.packets) / style.layers()) {
        throw CodestreamError("it has more packets than bytes");
      }
      cost.packets += precincts * style.layers();
      cost.bytes +=
          precincts * kBytesPerPrecinct + codeBlocksOf(area, component, r) * kBytesPerCodeBlock;
      mostPrecincts = std::max(mostPrecincts, precincts);
    }
    mostResolutions = std::max<std::uint64_t>(mostResolutions, component.resolutions);
  }
  // OpenJPEG notes for each packet that could be whether it was read.
  cost.bytes += (style.layers() + std::uint64_t{1}) * mostPrecincts * mostResolutions *
                size.components.size() * sizeof(std::int16_t);
  return cost;
}

}  // namespace tb::runtime

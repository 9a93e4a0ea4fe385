// How the components of a codestream are cut: the marker segments COD and COC, and what follows
// from them for a tile.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "runtime/codestream.h"

namespace tb::runtime {

inline constexpr std::size_t kMostResolutions = 33;

// Of one component. Sizes are exponents of two; resolution 0 is the smallest.
struct ComponentStyle {
  std::uint8_t resolutions = 1;
  std::uint8_t blockWidth = 6, blockHeight = 6;
  std::array<std::uint8_t, kMostResolutions> precinctWidth{}, precinctHeight{};
};

// Of all components.
class CodingStyle {
 public:
  explicit CodingStyle(std::size_t components) : components_(components) {}

  // Take the body of a COD or COC segment. What comes later replaces what came before, whichever
  // of the two it is, as in OpenJPEG.
  void readForAll(CodestreamBytes segment);
  void readForOne(CodestreamBytes segment);

  bool isRead() const noexcept { return isRead_; }
  std::uint32_t layers() const noexcept { return layers_; }
  const std::vector<ComponentStyle>& components() const noexcept { return components_; }

 private:
  std::vector<ComponentStyle> components_;
  std::uint32_t layers_ = 1;
  bool isRead_ = false;
};

// What decoding a tile takes beside its samples.
struct TileCost {
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;  // of OpenJPEG's structures, rounded up
};

// Throws CodestreamError as soon as there are more than `mostPackets`.
TileCost tileCost(const CodestreamSize& size, const CodestreamArea& tile, const CodingStyle& style,
                  std::uint64_t mostPackets);

}  // namespace tb::runtime

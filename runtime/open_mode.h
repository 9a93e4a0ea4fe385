// The access mode of a file: r, r+, w or a, followed by flags of libtiff's.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tb::runtime {

struct OpenMode {
  std::string forLibtiff;  // the access with the flags that are passed on
  int flags;               // of open(2); never with O_TRUNC
  bool truncates;
  bool maps;            // libtiff will ask for a map
  std::string dropped;  // flags that are not passed on
};

// Those of the flags that say how a new file is made.
inline constexpr std::string_view kOnlyForNewFiles = "48bl";

// Nothing for a text that is no mode.
std::optional<OpenMode> parseOpenMode(std::string_view text);

}  // namespace tb::runtime

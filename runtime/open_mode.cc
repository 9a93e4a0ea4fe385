#include "runtime/open_mode.h"

#include <fcntl.h>

#include <algorithm>

namespace tb::runtime {
namespace {

struct Access {
  std::string_view text;
  int flags;
  bool truncates;
};

// The longer first, since one starts with the other.
constexpr Access kAccesses[] = {
    {"r+", O_RDWR, false},
    {"r", O_RDONLY, false},
    {"w", O_RDWR | O_CREAT, true},
    {"a", O_RDWR | O_CREAT, false},
};

// Byte order, bit order, mapping, splitting of large strips, size of offsets.
constexpr std::string_view kPassedOn = "blBLHMmCc48";

// Deferred loading of the block tables and a directory left unread end in crashes inside libtiff
// on later calls, and nothing of the module needs them.
constexpr std::string_view kDropped = "DOh";

bool contains(std::string_view letters, char letter) {
  return letters.find(letter) != std::string_view::npos;
}

}  // namespace

std::optional<OpenMode> parseOpenMode(std::string_view text) {
  const auto* access = std::ranges::find_if(
      kAccesses, [&](const Access& candidate) { return text.starts_with(candidate.text); });
  if (access == std::end(kAccesses)) return std::nullopt;

  OpenMode mode{
      std::string(access->text), access->flags, access->truncates, access->flags == O_RDONLY, {}};
  for (const char flag : text.substr(access->text.size())) {
    // libtiff maps only files that are only read, and the last of these letters holds.
    if (access->flags == O_RDONLY && (flag == 'm' || flag == 'M')) mode.maps = flag == 'M';
    if (contains(kPassedOn, flag))
      mode.forLibtiff.push_back(flag);
    else if (contains(kDropped, flag))
      mode.dropped.push_back(flag);
    else
      return std::nullopt;
  }
  return mode;
}

}  // namespace tb::runtime

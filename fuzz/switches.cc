#include "fuzz/switches.h"

#include <cstdlib>
#include <set>
#include <string>

namespace tb::fuzz {
namespace {

std::set<std::string, std::less<>> namesIn(const char* list) {
  std::set<std::string, std::less<>> names;
  std::string name;
  for (; list != nullptr && *list != '\0'; ++list) {
    if (*list != ',') {
      name += *list;
      continue;
    }
    names.insert(name);
    name.clear();
  }
  names.insert(name);
  return names;
}

}  // namespace

bool isOff(std::string_view name) {
  static const auto names = namesIn(std::getenv("TAGBRIDGE_FUZZ_OFF"));
  return names.contains(name);
}

bool isTraced() {
  static const bool traced = std::getenv("TAGBRIDGE_FUZZ_TRACE") != nullptr;
  return traced;
}

}  // namespace tb::fuzz

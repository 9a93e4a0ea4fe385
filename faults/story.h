// What the calls of a work came to, so that two turns of it can be compared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tb::faults {

struct Step {
  std::string operation;  // empty for the cleanup
  std::string error;
  std::size_t warnings = 0;
  std::uint64_t outputs = 0;  // a hash of their classes, sizes and elements

  bool operator==(const Step&) const = default;
};
using Story = std::vector<Step>;

// The calls through fuzz/gateway_session.h are told to `story` while the latest of these lives.
class Telling {
 public:
  explicit Telling(Story& story);
  Telling(const Telling&) = delete;
  Telling& operator=(const Telling&) = delete;
  ~Telling();

 private:
  Story* before_;
};

// Whether somebody was told where the story first is another than the undisturbed one: by an error
// of that call, or by more warnings. A story that ends early is no other.
bool isNoticed(const Story& undisturbed, const Story& story);

// That place, for people.
std::string firstDifference(const Story& undisturbed, const Story& story);

}  // namespace tb::faults

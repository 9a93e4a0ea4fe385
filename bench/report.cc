#include "bench/report.h"

#include <fmt/format.h>

#include <cstdio>

namespace tb::bench {

void report(const std::string& table, const std::string& what, double value) {
  fmt::print("{{\"table\": \"{}\", \"what\": \"{}\", \"value\": {:.6g}}}\n", table, what, value);
  std::fflush(stdout);
}

void report(const std::string& table, const ImageSpec& spec, double value) {
  fmt::print(
      "{{\"table\": \"{}\", \"samples\": \"{}\", \"compression\": \"{}\", \"blocks\": \"{}\", "
      "\"width\": {}, \"length\": {}, \"value\": {:.6g}}}\n",
      table, spec.samples, spec.compression, spec.blocks(), spec.width, spec.length, value);
  std::fflush(stdout);
}

}  // namespace tb::bench

// What the benchmarks have measured, as one JSON object a line for bench/run.py.
#pragma once

#include <string>

#include "bench/image_files.h"

namespace tb::bench {

// Reports a value for the table `table`: what it means is the table's affair. No text may need
// escaping in JSON.
void report(const std::string& table, const std::string& what, double value);

// The same for an image, described by its parts.
void report(const std::string& table, const ImageSpec& spec, double value);

}  // namespace tb::bench

// Makes the file of one image for the Python benchmarks and prints its path:
// make_image FOLDER SAMPLES COMPRESSION tiles|strips BLOCK_LENGTH WIDTH LENGTH
#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>

#include "bench/image_files.h"

namespace {

std::uint32_t numberOf(const char* text) { return static_cast<std::uint32_t>(std::stoul(text)); }

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 8) {
    fmt::print(stderr,
               "usage: {} FOLDER SAMPLES COMPRESSION tiles|strips BLOCK_LENGTH WIDTH LENGTH\n",
               argv[0]);
    return EXIT_FAILURE;
  }
  const tb::bench::ImageSpec spec{
      argv[2],           argv[3],           std::string_view(argv[4]) == "tiles",
      numberOf(argv[5]), numberOf(argv[6]), numberOf(argv[7])};
  fmt::print("{}\n", tb::bench::imageFile(argv[1], spec).string());
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  fmt::print(stderr, "{}: {}\n", argv[0], error.what());
  return EXIT_FAILURE;
}

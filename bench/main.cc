#include "bench/main.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "bench/module_calls.h"
#include "host/errors.h"
#include "runtime/catalog.h"

namespace tb::bench {

ImageSpec Session::fit(ImageSpec spec) const {
  constexpr std::uint32_t kSmall = 300;
  if (!small) return spec;
  spec.width = std::min(spec.width, kSmall);
  spec.length = std::min(spec.length, kSmall);
  return spec;
}

void Session::forEach(const std::vector<ImageSpec>& specs,
                      void (*measure)(Session& session, const ImageSpec& spec)) {
  for (const ImageSpec& spec : specs) {
    if (spec.name().find(text) != std::string::npos) measure(*this, fit(spec));
  }
}

TemporaryImage::TemporaryImage(const std::filesystem::path& folder, const ImageSpec& spec)
    : path_(imageFile(folder, spec)) {}

TemporaryImage::TemporaryImage(const std::filesystem::path& path,
                               void (*make)(const std::filesystem::path&, const ImageSpec&),
                               const ImageSpec& spec)
    : path_(path) {
  make(path, spec);
}

TemporaryImage::~TemporaryImage() {
  std::error_code ignored;
  std::filesystem::remove(path_, ignored);
}

const char* readOperation(const ImageSpec& spec) {
  return spec.tiled ? "readEncodedTile" : "readEncodedStrip";
}

Comparison compareReadsOfOpenFile(Session& session, const ImageSpec& spec) {
  const TemporaryImage image(session.folder, spec);
  const test::TiffHandle opened = openTiff(image.path(), "r");
  const std::uint32_t count = blockCount(opened.get());
  std::vector<std::byte> buffer(blockSize(opened.get()));
  const ModuleFile file(session.module, image.path(), "r");
  Operation read(file, readOperation(spec));
  return compare(
      session.effort,
      [&] {
        for (std::uint32_t block = 0; block < count; ++block) read(block);
      },
      [&] {
        for (std::uint32_t block = 0; block < count; ++block) {
          readBlock(opened.get(), block, buffer);
        }
      });
}

}  // namespace tb::bench

namespace {

// Errors are told while the module is loaded: an exception that it threw must not outlive it.
int runTelling(tb::bench::Session& session) try {
  tb::bench::run(session);
  return EXIT_SUCCESS;
} catch (const foundation::core::except::IMsgIDException& error) {
  fmt::print(stderr, "{}\n", tb::runtime::messageText(error.message()));
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 3 || argc > 4) {
    fmt::print(stderr, "usage: {} smoke|quick|full|large FOLDER [TEXT]\n", argv[0]);
    return EXIT_FAILURE;
  }
  const std::string_view effort(argv[1]);
  tb::bench::Session session{
      tb::bench::loadModule(), tb::bench::effortOf(effort), argv[2],
      effort == "smoke",       effort == "large",           argc == 4 ? argv[3] : ""};
  return runTelling(session);
} catch (const std::exception& error) {
  fmt::print(stderr, "{}: {}\n", argv[0], error.what());
  return EXIT_FAILURE;
}

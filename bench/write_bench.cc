// Writes of ready blocks through the module beside a loop of libtiff calls that takes them from
// memory as they are to be encoded. Each turn makes a file with its directory, opens it, writes all
// blocks and closes it. Prints ratios.
#include <algorithm>
#include <filesystem>
#include <vector>

#include "bench/image_files.h"
#include "bench/main.h"
#include "bench/module_calls.h"
#include "bench/report.h"
#include "bench/timing.h"

namespace tb::bench {
namespace {

// Some blocks of an image, as the host has them and as libtiff takes them.
struct ReadyBlocks {
  std::vector<vxArrayPtr> arrays;
  std::vector<std::vector<std::byte>> encodable;
};

constexpr std::uint32_t kReadyBlocks = 8;

ReadyBlocks readyBlocks(Session& session, ImageSpec spec) {
  spec.compression = "none";
  const TemporaryImage image(session.folder, spec);
  // "c", since libtiff cuts a single large strip into pieces otherwise.
  const ModuleFile file(session.module, image.path(), "rc");
  Operation read(file, readOperation(spec));
  const test::TiffHandle tif = openTiff(image.path(), "rc");
  ReadyBlocks blocks;
  for (std::uint32_t block = 0; block < std::min(kReadyBlocks, blockCount(tif.get())); ++block) {
    read(block);
    blocks.arrays.push_back(read.takeResult());
    readBlock(tif.get(), block, blocks.encodable.emplace_back(blockSize(tif.get())));
  }
  return blocks;
}

// Images of whole blocks only, since the last one would otherwise differ from the ready ones.
ImageSpec wholeBlocks(ImageSpec spec) {
  spec.length = std::max(spec.length / spec.blockLength, 1U) * spec.blockLength;
  if (spec.tiled) spec.width = std::max(spec.width / spec.blockLength, 1U) * spec.blockLength;
  return spec;
}

void measureWrite(Session& session, const ImageSpec& fitted) {
  const ImageSpec spec = wholeBlocks(fitted);
  ReadyBlocks blocks = readyBlocks(session, spec);
  const TemporaryImage image(session.folder / "written.tif", makeEmptyImage, spec);
  const std::uint32_t count = blockCount(openTiff(image.path(), "rc").get());
  const std::size_t ready = blocks.arrays.size();
  const Comparison times = compare(
      session.effort,
      [&] {
        makeEmptyImage(image.path(), spec);
        const ModuleFile file(session.module, image.path(), "r+");
        Operation write(file, spec.tiled ? "writeEncodedTile" : "writeEncodedStrip", 0);
        for (std::uint32_t block = 0; block < count; ++block) {
          write(block, blocks.arrays[block % ready].get());
        }
      },
      [&] {
        makeEmptyImage(image.path(), spec);
        const test::TiffHandle file = openTiff(image.path(), "r+");
        for (std::uint32_t block = 0; block < count; ++block) {
          writeBlock(file.get(), block, blocks.encodable[block % ready]);
        }
      });
  report("write", spec, times.ours / times.reference);
}

std::vector<ImageSpec> writes() {
  std::vector<ImageSpec> specs;
  for (const char* samples : {"u8", "rgb", "rgb-planes", "u16", "f32", "f64", "1bit"}) {
    specs.push_back({samples, "none", true, 256});
    for (const std::uint32_t rows : {256U, 16U}) specs.push_back({samples, "none", false, rows});
  }
  const std::vector<ImageSpec> compressed = {
      {"u8", "packbits", true, 256}, {"u8", "lzw", true, 256},      {"rgb", "lzw", false, 16},
      {"u8", "deflate", true, 256},  {"f32", "deflate", false, 16}, {"u8", "jpeg", true, 256},
      {"rgb", "jpeg", false, 16},    {"1bit", "group4", false, 256}};
  for (ImageSpec spec : compressed) {
    spec.length = 1024;  // the time goes to the encoder
    specs.push_back(spec);
  }
  return specs;
}

}  // namespace

void run(Session& session) { session.forEach(writes(), measureWrite); }

}  // namespace tb::bench

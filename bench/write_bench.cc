// Writes of ready blocks through the module beside a loop of libtiff calls that takes them from
// memory as they are to be encoded. The blocks of a file are written over and over, so that neither
// the file system nor the directory has a part in it. Prints ratios.
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
  const ModuleFile file(session.module, image.path(), "r");
  Operation read(file, spec.tiled ? "readEncodedTile" : "readEncodedStrip");
  const TiffHandle tif = openTiff(image.path(), "r");
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

void measureWrite(Session& session, const ImageSpec& image) {
  const ImageSpec spec = wholeBlocks(image);
  const TemporaryImage oursImage(session.folder / "ours.tif", makeEmptyImage, spec);
  const TemporaryImage floorImage(session.folder / "floor.tif", makeEmptyImage, spec);
  ReadyBlocks blocks = readyBlocks(session, spec);
  const ModuleFile file(session.module, oursImage.path(), "r+");
  Operation write(file, spec.tiled ? "writeEncodedTile" : "writeEncodedStrip", 0);
  const TiffHandle floor = openTiff(floorImage.path(), "r+");
  const std::uint32_t count = blockCount(floor.get());
  const std::size_t ready = blocks.arrays.size();
  const Comparison times = compare(
      session.effort,
      [&] {
        for (std::uint32_t block = 0; block < count; ++block) {
          write(block, blocks.arrays[block % ready].get());
        }
      },
      [&] {
        for (std::uint32_t block = 0; block < count; ++block) {
          writeBlock(floor.get(), block, blocks.encodable[block % ready]);
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

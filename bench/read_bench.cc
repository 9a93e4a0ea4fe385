// Reads through the module beside what they cannot be faster than: one block beside a memcpy of
// its bytes, all blocks of an image beside a loop of libtiff calls that decodes each block into one
// and the same buffer. Prints ratios; bench/run.py makes tables of them.
#include <algorithm>
#include <cstring>
#include <exception>
#include <filesystem>
#include <vector>

#include "bench/image_files.h"
#include "bench/main.h"
#include "bench/module_calls.h"
#include "bench/page_buffer.h"
#include "bench/report.h"
#include "bench/timing.h"

namespace tb::bench {
namespace {

using Specs = std::vector<ImageSpec>;

// --- One block again and again

void measureWholeCall(Session& session, const ImageSpec& spec) {
  const TemporaryImage image(session.folder, spec);
  const ModuleFile file(session.module, image.path(), "r");
  Operation read(file, readOperation(spec));
  const std::size_t bytes = blockSize(openTiff(image.path(), "r").get());
  const PageBuffer from(bytes), to(bytes);
  const Comparison times = compare(
      session.effort, [&] { read(1); },
      [&] {
        std::memcpy(to.data(), from.data(), bytes);
        keepWrites();
      });
  report("whole call", spec, times.reference / times.ours);
}

Specs repeatedReads() {
  Specs specs;
  for (const char* samples : {"u8", "u16", "u32", "f64"}) {
    specs.push_back({samples, "none", true, 256, 512, 512});
    // More than one strip: libtiff would cut a single one into small pieces.
    for (const std::uint32_t rows : {1U, 16U, 256U}) {
      specs.push_back({samples, "none", false, rows, 4096, 4 * rows});
    }
  }
  return specs;
}

// --- All blocks

// Opening and closing belong to a turn: a file is seldom read twice, and it is then that its pages
// are mapped.
void measureRead(Session& session, const ImageSpec& spec) {
  const TemporaryImage image(session.folder, spec);
  const test::TiffHandle opened = openTiff(image.path(), "r");
  const std::uint32_t count = blockCount(opened.get());
  std::vector<std::byte> buffer(blockSize(opened.get()));
  const Comparison times = compare(
      session.effort,
      [&] {
        const ModuleFile file(session.module, image.path(), "r");
        Operation read(file, readOperation(spec), spec.samples == "ycbcr" ? 3 : 1);
        for (std::uint32_t block = 0; block < count; ++block) read(block);
      },
      [&] {
        const test::TiffHandle file = openTiff(image.path(), "r");
        for (std::uint32_t block = 0; block < count; ++block) readBlock(file.get(), block, buffer);
      });
  report("read", spec, times.ours / times.reference);
}

void measureReadAgain(Session& session, const ImageSpec& spec) {
  const Comparison times = compareReadsOfOpenFile(session, spec);
  report("read again", spec, times.ours / times.reference);
}

Specs uncompressedReads() {
  Specs specs;
  for (const char* samples : {"u8", "rgb", "rgb-planes", "u16", "f32", "f64", "1bit"}) {
    specs.push_back({samples, "none", true, 256});
    for (const std::uint32_t rows : {256U, 16U, 1U})
      specs.push_back({samples, "none", false, rows});
  }
  specs.push_back({"u8", "none", false, 4096});  // read in pieces of about 8 KB
  return specs;
}

Specs compressedReads() {
  return {{"u8", "packbits", true, 256},   {"rgb", "packbits", false, 16},
          {"u16", "packbits", false, 256}, {"1bit", "packbits", true, 256},
          {"u8", "lzw", true, 256},        {"rgb", "lzw", false, 16},
          {"u16", "lzw", false, 256},      {"u8", "deflate", true, 256},
          {"rgb", "deflate", false, 16},   {"f32", "deflate", true, 256},
          {"u8", "jpeg", true, 256},       {"rgb", "jpeg", false, 16},
          {"ycbcr", "jpeg", true, 256},    {"1bit", "group4", true, 256},
          {"1bit", "group4", false, 16},   {"1bit", "group4", false, 256}};
}

Specs oddReads() {
  Specs specs = {{"u8", "none", true, 256},   {"rgb", "none", true, 256},
                 {"u16", "none", false, 16},  {"f64", "none", false, 256},
                 {"1bit", "none", false, 16}, {"u8", "lzw", false, 16}};
  for (ImageSpec& spec : specs) {
    spec.width = 4099;
    spec.length = 4001;
  }
  return specs;
}

// --- RGBA

void readRGBABlocks(TIFF* tif, const ImageSpec& spec, std::vector<std::uint32_t>& raster) {
  for (std::uint32_t row = 0; row < spec.length; row += spec.blockLength) {
    if (!spec.tiled) {
      TIFFReadRGBAStrip(tif, row, raster.data());
      continue;
    }
    for (std::uint32_t column = 0; column < spec.width; column += spec.blockLength) {
      TIFFReadRGBATile(tif, column, row, raster.data());
    }
  }
}

void measureRGBA(Session& session, const ImageSpec& spec) {
  const TemporaryImage image(session.folder, spec);
  std::vector<std::uint32_t> raster(std::size_t{spec.blockLength} *
                                    (spec.tiled ? spec.blockLength : spec.width));
  const Comparison times = compare(
      session.effort,
      [&] {
        const ModuleFile file(session.module, image.path(), "r");
        Operation read(file, "readRGBAImage");
        read();
      },
      [&] { readRGBABlocks(openTiff(image.path(), "r").get(), spec, raster); });
  report("rgba", spec, times.ours / times.reference);
}

Specs rgbaReads() {
  return {
      {"u8", "none", true, 256},     {"u8", "none", false, 16},    {"rgb", "none", true, 256},
      {"rgb", "none", false, 16},    {"rgb", "none", false, 256},  {"rgb", "lzw", true, 256},
      {"rgb", "deflate", false, 16}, {"ycbcr", "jpeg", true, 256}, {"1bit", "group4", false, 16}};
}

}  // namespace

void run(Session& session) {
  session.forEach(repeatedReads(), measureWholeCall);
  session.forEach(uncompressedReads(), measureRead);
  session.forEach(compressedReads(), measureRead);
  session.forEach(oddReads(), measureRead);
  session.forEach(uncompressedReads(), measureReadAgain);
  session.forEach(rgbaReads(), measureRGBA);
}

}  // namespace tb::bench

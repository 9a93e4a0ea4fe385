// Reads of JPEG 2000 tiles through the module beside OpenJPEG alone on the same codestreams, which
// then lie in memory and are left as planes. Prints ratios; bench/run.py makes tables of them.
#include <algorithm>
#include <stdexcept>
#include <vector>

#include "bench/image_files.h"
#include "bench/main.h"
#include "bench/module_calls.h"
#include "bench/picture.h"
#include "bench/report.h"
#include "bench/timing.h"
#include "tests/support/codestreams.h"

namespace tb::bench {
namespace {

// What is stored under the name of the samples: "rgb" is lossy with the colour transform, "ycbcr"
// has halved columns of colours and becomes RGB, the others are lossless.
test::Layout layoutOf(const ImageSpec& spec) {
  const bool isGray = spec.samples == "u8" || spec.samples == "u16";
  test::Layout layout;
  layout.width = spec.width;
  layout.length = spec.length;
  layout.bits = spec.samples == "u16" ? 16 : 8;
  layout.samples = isGray ? 1 : 3;
  layout.photometric = isGray ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB;
  layout.compression = spec.samples == "ycbcr" ? test::kJpeg2000YCbCr : test::kJpeg2000;
  layout.tileWidth = layout.tileLength = spec.blockLength;
  return layout;
}

test::Coding codingOf(const ImageSpec& spec) {
  test::Coding coding = test::codingOf(layoutOf(spec), 0);
  coding.resolutions = 6;
  coding.dx = spec.samples == "ycbcr" ? 2 : 1;
  coding.hasColourTransform = spec.samples == "rgb";
  coding.compression = spec.samples == "rgb" || spec.samples == "ycbcr" ? 8 : 0;
  return coding;
}

test::Bytes encodedTile(const ImageSpec& spec, std::uint32_t tile) {
  const test::Layout layout = layoutOf(spec);
  const test::BlockPlace place = test::placeOf(layout, tile);
  const auto sampleAt = [&](std::uint32_t component, std::uint32_t row, std::uint32_t column) {
    std::uint16_t sample = 0;
    const PictureRow pixel{.row = place.firstRow + row,
                           .column = place.firstColumn + column,
                           .pixels = 1,
                           .firstSample = component,
                           .samples = 1};
    paintRow(pixel, layout.bits, false, reinterpret_cast<std::byte*>(&sample));
    return int{sample};
  };
  return test::encodeCodestream(codingOf(spec), sampleAt);
}

std::vector<test::Bytes> encodedTiles(const ImageSpec& spec) {
  std::vector<test::Bytes> tiles;
  for (std::uint32_t tile = 0; tile < test::blockCount(layoutOf(spec)); ++tile)
    tiles.push_back(encodedTile(spec, tile));
  return tiles;
}

void makeFile(const std::filesystem::path& path, const ImageSpec& spec) {
  test::writeCodestreams(path, layoutOf(spec), encodedTiles(spec));
}

void measure(Session& session, const ImageSpec& spec) {
  const TemporaryImage image(session.folder / (spec.name() + ".tif"), makeFile, spec);
  const std::vector<test::Bytes> tiles = encodedTiles(spec);
  const ModuleFile file(session.module, image.path(), "r");
  Operation read(file, "readEncodedTile");
  const Comparison times = compare(
      session.effort,
      [&] {
        for (std::uint32_t tile = 0; tile < tiles.size(); ++tile) read(tile);
      },
      [&] {
        for (const test::Bytes& tile : tiles) (void)test::decodeBarely(tile);
      });
  report("jpeg2000", spec, times.ours / times.reference);
}

}  // namespace

void run(Session& session) {
  std::vector<ImageSpec> specs;
  for (const char* samples : {"u8", "u16", "rgb", "ycbcr"})
    for (const std::uint32_t tile : {256U, 1024U})
      specs.push_back({samples, "jpeg2000", true, tile, 1024, 1024});
  session.forEach(specs, measure);
}

}  // namespace tb::bench

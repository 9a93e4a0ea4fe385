// Files of every kind that the setters allow: written through the module, read back through it and
// through libtiff alone. What must work is said by rules of the test's own, so that a combination
// which is refused by mistake is found as well.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <iostream>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/scene.h"

namespace tb::test {
namespace {

using Bytes = std::vector<std::byte>;

struct Sample {
  std::uint16_t bits, format;
};
// The sample layouts that an array class holds.
constexpr Sample kSamples[] = {{1, 1},  {8, 1},  {8, 2},  {16, 1}, {16, 2},
                               {32, 1}, {32, 2}, {32, 3}, {64, 3}};
constexpr std::uint16_t kCompressions[] = {
    COMPRESSION_NONE,   COMPRESSION_CCITTFAX3,     COMPRESSION_CCITTFAX4, COMPRESSION_LZW,
    COMPRESSION_JPEG,   COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS,  COMPRESSION_DEFLATE,
    COMPRESSION_SGILOG, COMPRESSION_SGILOG24};
constexpr std::uint16_t kPlanarConfigs[] = {PLANARCONFIG_CONTIG, PLANARCONFIG_SEPARATE};
constexpr const char* kModes[] = {"wl", "wb", "wl8", "wb8"};

struct Size {
  std::uint32_t width, length;
};
// A multiple of the blocks, and not.
constexpr Size kSizes[] = {{64, 64}, {67, 37}};

struct Photometric {
  const char* name;
  std::uint16_t photometric, samples;
  std::uint16_t horizontal = 1, vertical = 1;
};
void PrintTo(const Photometric& value, std::ostream* out) { *out << value.name; }

constexpr Photometric kPhotometrics[] = {{"MinIsWhite", PHOTOMETRIC_MINISWHITE, 1},
                                         {"MinIsBlack", PHOTOMETRIC_MINISBLACK, 1},
                                         {"GrayWithTwoExtras", PHOTOMETRIC_MINISBLACK, 3},
                                         {"Rgb", PHOTOMETRIC_RGB, 3},
                                         {"Palette", PHOTOMETRIC_PALETTE, 1},
                                         {"Separated", PHOTOMETRIC_SEPARATED, 4},
                                         {"YCbCr444", PHOTOMETRIC_YCBCR, 3},
                                         {"YCbCr422", PHOTOMETRIC_YCBCR, 3, 2, 1},
                                         {"YCbCr420", PHOTOMETRIC_YCBCR, 3, 2, 2},
                                         {"YCbCr411", PHOTOMETRIC_YCBCR, 3, 4, 1},
                                         {"CieLab", PHOTOMETRIC_CIELAB, 3}};

bool isFax(std::uint16_t compression) {
  return compression == COMPRESSION_CCITTFAX3 || compression == COMPRESSION_CCITTFAX4;
}
bool isLog(std::uint16_t compression) {
  return compression == COMPRESSION_SGILOG || compression == COMPRESSION_SGILOG24;
}

// Whether the combination can be written and comes back exactly.
bool mustBeExact(const Layout& layout) {
  const std::uint16_t photometric = layout.photometric;
  if (layout.compression == COMPRESSION_JPEG || isLog(layout.compression)) return false;
  if (isFax(layout.compression) && layout.bits != 1) return false;
  if (layout.bits == 1 && (layout.samples != 1 || photometric == PHOTOMETRIC_PALETTE)) return false;
  if (layout.format == SAMPLEFORMAT_INT && photometric > PHOTOMETRIC_MINISBLACK) return false;
  if (layout.planar == PLANARCONFIG_SEPARATE && layout.samples == 1) return false;
  if (photometric == PHOTOMETRIC_PALETTE || photometric == PHOTOMETRIC_CIELAB)
    return layout.format == SAMPLEFORMAT_UINT && layout.bits <= 16 && layout.bits >= 8;
  if (photometric == PHOTOMETRIC_YCBCR)
    return layout.bits == 8 && layout.planar == PLANARCONFIG_CONTIG &&
           (layout.tiled() || layout.width % layout.horizontal == 0);
  return true;
}

// Palette images must have a colour map; CIELab of 32-bit floats and the like are refused before.
void setColorMap(const OpenedFile& file, const Layout& layout) {
  if (layout.photometric != PHOTOMETRIC_PALETTE || layout.bits > 16) return;
  call("setField", file, TIFFTAG_COLORMAP, zeros(vxDOUBLE, {std::size_t{1} << layout.bits, 3}));
}

bool isModuleError(const std::function<void()>& act) {
  try {
    act();
  } catch (const foundation::core::except::IMsgIDException&) {
    return true;
  }
  return false;
}

class RoundTrip : public testing::TestWithParam<Photometric> {
 protected:
  // All layouts of a photometric interpretation in the product.
  static std::vector<Layout> layouts() {
    std::vector<Layout> all;
    for (const auto& [bits, format] : kSamples)
      for (const std::uint16_t compression : kCompressions)
        for (const std::uint16_t planar : kPlanarConfigs)
          for (const auto& [width, length] : kSizes)
            for (const std::uint32_t tile : {0U, 32U})
              all.push_back({.width = width,
                             .length = length,
                             .bits = bits,
                             .samples = GetParam().samples,
                             .format = format,
                             .planar = planar,
                             .photometric = GetParam().photometric,
                             .compression = compression,
                             .rowsPerStrip = tile == 0 ? 16U : 0U,
                             .tileWidth = tile,
                             .tileLength = tile,
                             .horizontal = GetParam().horizontal,
                             .vertical = GetParam().vertical});
    return all;
  }

  // Writes the file; false when a setter or the write refuses.
  bool write(const Layout& layout, const char* mode) const {
    const OpenedFile file(path_, mode);
    return !isModuleError([&] {
      setFields(file, tagsOf(layout));
      setColorMap(file, layout);
      writeBlocks(file, layout);
      call("writeDirectory", file);
    });
  }

  // Compares every block with what was written, or for lossy schemes with what libtiff delivers.
  void expectBlocks(const Layout& layout) const {
    const OpenedFile file(path_, "rc");
    const TiffHandle tif = openTiff(path_, "rc");
    ASSERT_NE(tif, nullptr);
    for (std::uint32_t block = 0; block < blockCount(layout); ++block) {
      const std::vector<vxArrayPtr> written = arraysOf(layout, block);
      const char* operation = layout.tiled() ? "readEncodedTile" : "readEncodedStrip";
      const std::vector<vxArrayPtr> read =
          callFor(static_cast<int>(written.size()), operation, file, block);
      for (std::size_t plane = 0; plane < written.size(); ++plane) {
        ASSERT_EQ(vxGetClassID(read[plane].get()), vxGetClassID(written[plane].get()));
        ASSERT_EQ(dimensionsOf(read[plane]), dimensionsOf(written[plane]));
        if (!mustBeExact(layout)) continue;
        ASSERT_TRUE(bytesOf(read[plane]) == bytesOf(written[plane])) << block;
      }
      if (mustBeExact(layout)) expectSameInLibtiff(tif.get(), layout, block);
    }
  }

  static void expectSameInLibtiff(TIFF* tif, const Layout& layout, std::uint32_t block) {
    if (layout.photometric == PHOTOMETRIC_YCBCR) return;  // its padding wraps round
    const Bytes raw = readBlock(tif, block);
    Bytes expected = blockBytes(layout, block, 0);
    expected.resize(raw.size());
    ASSERT_TRUE(raw == expected) << block;
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "file.tif";
};

TEST_P(RoundTrip, WhatTheSettersAllowComesBack) {
  int ran = 0, exact = 0, refused = 0;
  for (const Layout& layout : layouts())
    for (const char* mode : kModes) {
      SCOPED_TRACE(testing::Message()
                   << layout.bits << " bits, format " << layout.format << ", scheme "
                   << layout.compression << ", planar " << layout.planar << ", " << layout.width
                   << " x " << layout.length << (layout.tiled() ? ", tiles, " : ", strips, ")
                   << mode);
      if (!write(layout, mode)) {
        ASSERT_FALSE(mustBeExact(layout))
            << "refused: " << testing::PrintToString(reportedErrors());
        ++refused;
        continue;
      }
      ++ran;
      exact += mustBeExact(layout) ? 1 : 0;
      expectBlocks(layout);
      if (HasFatalFailure()) return;
    }
  std::cout << ran << " combinations ran, " << exact << " of them exact, " << refused
            << " were refused\n";
  EXPECT_GT(exact, 0);
}

INSTANTIATE_TEST_SUITE_P(Photometrics, RoundTrip, testing::ValuesIn(kPhotometrics),
                         [](const auto& test) { return std::string(test.param.name); });

// --- LogL and LogLuv: lossy, and set up by their codec. Not in the other byte order: there libtiff
// swaps the bytes of the floats before its encoder reads them, and spoils them.

struct LogKind {
  const char* name;
  std::uint16_t photometric, compression;
  std::size_t samples;
};
void PrintTo(const LogKind& value, std::ostream* out) { *out << value.name; }

class LogRoundTrip : public testing::TestWithParam<LogKind> {};

TEST_P(LogRoundTrip, LuminanceComesBackWithinTheEncodingsPrecision) {
  const auto& [name, photometric, compression, samples] = GetParam();
  Scene scene;
  for (const char* mode : {"w", "w8"})  // in the other byte order they come out swapped
    for (const bool tiled : {false, true}) {
      const OpenedFile& file =
          scene.fresh(also((tiled ? tileTags : stripTags)(photometric, 0, 0),
                           {{TIFFTAG_COMPRESSION, compression}, {TIFFTAG_SGILOGDATAFMT, 0}}),
                      mode);
      const vxArrayPtr pixels = image<float>(16, 16, samples, [](auto r, auto c, auto s) {
        return 0.25F + 0.01F * static_cast<float>(r + 2 * c) + 0.02F * static_cast<float>(s);
      });
      call(tiled ? "writeEncodedTile" : "writeEncodedStrip", file, 0, pixels);
      call("writeDirectory", file);
      const std::filesystem::path path = TIFFFileName(file.handle());
      call("close", file);

      const OpenedFile again(path, "r");
      call("setField", again, TIFFTAG_SGILOGDATAFMT, 0);
      const vxArrayPtr read = call(tiled ? "readEncodedTile" : "readEncodedStrip", again, 0);
      ASSERT_EQ(dimensionsOf(read), dimensionsOf(pixels));
      const std::vector<float> expected = elementsOf<float>(pixels),
                               actual = elementsOf<float>(read);
      // Luminance is the only plane of LogL and the second of LogLuv's XYZ.
      const std::size_t first = samples == 1 ? 0 : 256;
      for (std::size_t i = first; i < first + 256; ++i)
        ASSERT_NEAR(actual[i] / expected[i], 1, 0.02) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, LogRoundTrip,
    testing::Values(LogKind{"LogL", PHOTOMETRIC_LOGL, COMPRESSION_SGILOG, 1},
                    LogKind{"LogLuv", PHOTOMETRIC_LOGLUV, COMPRESSION_SGILOG, 3},
                    LogKind{"LogLuv24", PHOTOMETRIC_LOGLUV, COMPRESSION_SGILOG24, 3}),
    [](const auto& test) { return std::string(test.param.name); });

// --- JPEG: lossy, but close

class JpegRoundTrip : public testing::TestWithParam<Photometric> {};

TEST_P(JpegRoundTrip, SmoothImagesComeBackNearly) {
  const Layout layout{.width = 64,
                      .length = 64,
                      .samples = GetParam().samples,
                      .photometric = GetParam().photometric,
                      .compression = COMPRESSION_JPEG,
                      .tileWidth = 64,
                      .tileLength = 64,
                      .horizontal = GetParam().horizontal,
                      .vertical = GetParam().vertical};
  Scene scene;
  const OpenedFile& file = scene.fresh(tagsOf(layout));
  const auto smooth = [](std::size_t rows, std::size_t columns, std::size_t planes) {
    return image<std::uint8_t>(rows, columns, planes, [=](auto r, auto c, auto s) {
      return static_cast<std::uint8_t>(40 + 100 * r / rows + 60 * c / columns + 20 * s);
    });
  };
  Inputs inputs{"writeEncodedTile", file, 0};
  std::vector<vxArrayPtr> written;
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    const std::size_t rows = 64U / layout.vertical, columns = 64U / layout.horizontal;
    written.push_back(smooth(64, 64, 1));
    written.push_back(smooth(rows, columns, 1));
    written.push_back(smooth(rows, columns, 1));
  } else {
    written.push_back(smooth(64, 64, layout.samples));
  }
  for (const vxArrayPtr& array : written) inputs.emplace_back(array);
  callGateway(0, inputs);
  call("writeDirectory", file);
  call("setDirectory", file, 0);

  const auto read = callFor(static_cast<int>(written.size()), "readEncodedTile", file, 0);
  for (std::size_t plane = 0; plane < written.size(); ++plane) {
    const auto expected = elementsOf<std::uint8_t>(written[plane]);
    const auto actual = elementsOf<std::uint8_t>(read[plane]);
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
      ASSERT_NEAR(actual[i], expected[i], 12) << "array " << plane << ", element " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, JpegRoundTrip,
                         testing::Values(Photometric{"Gray", PHOTOMETRIC_MINISBLACK, 1},
                                         Photometric{"Rgb", PHOTOMETRIC_RGB, 3},
                                         Photometric{"YCbCr444", PHOTOMETRIC_YCBCR, 3},
                                         Photometric{"YCbCr420", PHOTOMETRIC_YCBCR, 3, 2, 2}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace tb::test

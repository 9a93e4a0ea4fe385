#include "fuzz/sequence_values.h"

#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <string_view>

#include "fuzz/gateway_session.h"
#include "runtime/block_format.h"

namespace tb::fuzz {
namespace {

constexpr double kMostElements = 1 << 18;

constexpr vxClassID kClasses[] = {vxDOUBLE, vxUINT8,  vxUINT16, vxSINGLE, vxLOGICAL, vxINT8,
                                  vxINT32,  vxUINT32, vxINT16,  vxUINT64, vxINT64,   vxCHAR};

enum class Kind { kNumber, kText, kReals, kBytes, kColorMap, kTransfer, kInkNames };

// `numbers` are those to choose from, or the counts of elements.
struct TagChoice {
  int tag;
  Kind kind;
  std::vector<double> numbers;
};

const std::vector<TagChoice>& tagChoices() {
  using enum Kind;
  static const std::vector<TagChoice> choices = {
      {TIFFTAG_IMAGEWIDTH, kNumber, {1, 5, 16, 20, 32, 40, 100, 1000, 70000, 4e9}},
      {TIFFTAG_IMAGELENGTH, kNumber, {1, 5, 16, 20, 32, 40, 100, 1000, 70000, 4e9}},
      {TIFFTAG_BITSPERSAMPLE, kNumber, {1, 8, 8, 16, 32, 64, 4}},
      {TIFFTAG_COMPRESSION,
       kNumber,
       {1, 1, 3, 4, 5, 5, 7, 7, 8, 8, 32773, 32946, 34676, 34677, 6, 50001}},
      {TIFFTAG_PHOTOMETRIC, kNumber, {0, 1, 1, 2, 3, 4, 5, 6, 8, 10, 32844, 32845, 9}},
      {TIFFTAG_SAMPLESPERPIXEL, kNumber, {1, 1, 2, 3, 3, 4, 5, 0}},
      {TIFFTAG_ROWSPERSTRIP, kNumber, {1, 7, 8, 16, 20, 100, 4294967295}},
      {TIFFTAG_PLANARCONFIG, kNumber, {1, 2}},
      {TIFFTAG_PREDICTOR, kNumber, {1, 2, 2, 3, 4}},
      {TIFFTAG_TILEWIDTH, kNumber, {16, 16, 32, 48, 4096}},
      {TIFFTAG_TILELENGTH, kNumber, {16, 16, 32, 48, 4096}},
      {TIFFTAG_SAMPLEFORMAT, kNumber, {1, 1, 2, 3, 3, 0, 4}},
      {TIFFTAG_SUBIFD, kNumber, {0, 1, 1, 2, 3, 65535}},
      {TIFFTAG_YCBCRSUBSAMPLING, kReals, {2}},
      {TIFFTAG_JPEGCOLORMODE, kNumber, {0, 1, 1}},
      {TIFFTAG_SGILOGDATAFMT, kNumber, {0, 3, 1}},
      {TIFFTAG_JPEGQUALITY, kNumber, {0, 50, 75, 100, 1000}},
      {TIFFTAG_ZIPQUALITY, kNumber, {1, 6, 9, 12, 100}},
      {TIFFTAG_FILLORDER, kNumber, {1, 2}},
      {TIFFTAG_GROUP3OPTIONS, kNumber, {0, 1, 4, 5}},
      {TIFFTAG_GROUP4OPTIONS, kNumber, {0, 2}},
      {TIFFTAG_EXTRASAMPLES, kReals, {0, 1, 2}},
      {TIFFTAG_COLORMAP, kColorMap, {}},
      {TIFFTAG_TRANSFERFUNCTION, kTransfer, {}},
      {TIFFTAG_INKNAMES, kInkNames, {}},
      {TIFFTAG_NUMBEROFINKS, kNumber, {1, 3, 4, 5}},
      {TIFFTAG_SMINSAMPLEVALUE, kNumber, {0, 1, 7, 255, -3, 1e9}},
      {TIFFTAG_SMAXSAMPLEVALUE, kNumber, {0, 1, 7, 255, -3, 1e9}},
      {TIFFTAG_MINSAMPLEVALUE, kNumber, {0, 7, 65535}},
      {TIFFTAG_MAXSAMPLEVALUE, kNumber, {0, 7, 65535}},
      {TIFFTAG_SUBFILETYPE, kNumber, {0, 1, 2}},
      {TIFFTAG_THRESHHOLDING, kNumber, {1, 2}},
      {TIFFTAG_ORIENTATION, kNumber, {1, 4, 5, 9}},
      {TIFFTAG_XRESOLUTION, kNumber, {72, 0, -1, NAN}},
      {TIFFTAG_YRESOLUTION, kNumber, {72, 0, 1e38}},
      {TIFFTAG_XPOSITION, kNumber, {0, 10, -1, NAN}},
      {TIFFTAG_RESOLUTIONUNIT, kNumber, {1, 2, 4}},
      {TIFFTAG_INKSET, kNumber, {1, 2}},
      {TIFFTAG_YCBCRPOSITIONING, kNumber, {1, 2}},
      {TIFFTAG_STONITS, kNumber, {1, 1e300}},
      {TIFFTAG_PAGENUMBER, kReals, {2}},
      {TIFFTAG_HALFTONEHINTS, kReals, {2}},
      {TIFFTAG_DOTRANGE, kReals, {2}},
      {TIFFTAG_WHITEPOINT, kReals, {2}},
      {TIFFTAG_PRIMARYCHROMATICITIES, kReals, {6}},
      {TIFFTAG_YCBCRCOEFFICIENTS, kReals, {3}},
      {TIFFTAG_REFERENCEBLACKWHITE, kReals, {6}},
      {33550, kReals, {3}},
      {33922, kReals, {6}},
      {34264, kReals, {16}},
      {34735, kReals, {4}},
      {34736, kReals, {0, 1, 5}},
      {50844, kReals, {92}},
      {TIFFTAG_ICCPROFILE, kBytes, {0, 1, 40, 1000}},
      {TIFFTAG_RICHTIFFIPTC, kBytes, {0, 1, 40, 1000}},
      {TIFFTAG_PHOTOSHOP, kBytes, {0, 7, 40}},
      {TIFFTAG_XMLPACKET, kText, {}},
      {TIFFTAG_IMAGEDESCRIPTION, kText, {}},
      {TIFFTAG_SOFTWARE, kText, {}},
      {TIFFTAG_ARTIST, kText, {}},
      {TIFFTAG_DATETIME, kText, {}},
      {TIFFTAG_TARGETPRINTER, kText, {}},
      {34737, kText, {}},
      {TIFFTAG_DOCUMENTNAME, kText, {}},
      {TIFFTAG_MAKE, kText, {}},
      {TIFFTAG_MODEL, kText, {}},
      {TIFFTAG_PAGENAME, kText, {}},
      {TIFFTAG_HOSTCOMPUTER, kText, {}},
      {TIFFTAG_COPYRIGHT, kText, {}},
      {TIFFTAG_YPOSITION, kNumber, {0, 10, -1, NAN}},
  };
  return choices;
}

// The first rows, which say how data are laid out, come up as often as all the others.
constexpr std::size_t kLayoutRows = 20;

vxArrayPtr row(const std::vector<double>& numbers) {
  const std::size_t dimensions[] = {1, numbers.size()};
  vxArrayPtr array = matrix::detail::do_create_numeric(vxDOUBLE, dimensions);
  if (!numbers.empty())
    std::memcpy(vxGetWritableData(array.get()), numbers.data(), numbers.size() * sizeof(double));
  return array;
}

vxArrayPtr anyText(FuzzedDataProvider& input) {
  constexpr std::size_t kLengths[] = {0, 1, 7, 19, 20, 60, 300, 3000};
  const char letter = static_cast<char>(input.ConsumeIntegralInRange('a', 'z'));
  return matrix::create(std::string(input.PickValueInArray(kLengths), letter));
}

// Elements from 0 to 1, or whole numbers up to 65535, of a map for the depth.
vxArrayPtr mapFor(double bits, std::size_t columns, double scale, std::uint32_t seed) {
  const std::size_t rows = std::size_t{1} << static_cast<unsigned>(std::clamp(bits, 0.0, 16.0));
  const std::size_t dimensions[] = {rows, columns};
  vxArrayPtr array = matrix::detail::do_create_numeric(vxDOUBLE, dimensions);
  auto* to = static_cast<double*>(vxGetWritableData(array.get()));
  for (std::size_t i = 0; i < rows * columns; ++i)
    to[i] = std::round(static_cast<double>((i * 37 + seed) % 1001) / 1000 * scale);
  return array;
}

vxArrayPtr inkNames(std::size_t count) {
  const std::size_t dimensions[] = {1, count};
  vxArrayPtr cell = matrix::detail::do_create_cell(dimensions);
  for (std::size_t i = 0; i < count; ++i)
    vxSetCell(cell.get(), i, matrix::create("ink " + std::to_string(i)).release());
  return cell;
}

vxArrayPtr smallReals(double count, FuzzedDataProvider& input) {
  std::vector<double> numbers;
  for (double i = 0; i < count; ++i) numbers.push_back(input.ConsumeIntegralInRange(0, 4));
  return row(numbers);
}

template <class Values>
double anyOf(const Values& values, FuzzedDataProvider& input) {
  if (values.empty()) return 0;
  return values[input.ConsumeIntegralInRange<std::size_t>(0, values.size() - 1)];
}

vxClassID sampleClass(const BlockLayout& layout) {
  const bool isSigned = layout.format == SAMPLEFORMAT_INT;
  if (layout.bits == 1) return vxLOGICAL;
  if (layout.bits == 16) return isSigned ? vxINT16 : vxUINT16;
  if (layout.bits == 64) return vxDOUBLE;
  if (layout.bits != 32) return isSigned ? vxINT8 : vxUINT8;
  if (layout.format == SAMPLEFORMAT_IEEEFP) return vxSINGLE;
  return isSigned ? vxINT32 : vxUINT32;
}

double least(double a, double b) { return std::max(0.0, std::min(a, b)); }

// Rows and columns of the part of a block that belongs to the image.
std::pair<double, double> extentOf(const BlockLayout& layout, double block) {
  if (!layout.tiled) {
    const double rows = std::max(1.0, least(layout.rowsPerStrip, layout.length));
    const double perPlane = std::max(1.0, std::ceil(layout.length / rows));
    return {least(rows, layout.length - std::fmod(block, perPlane) * rows), layout.width};
  }
  const double across = std::max(1.0, std::ceil(layout.width / std::max(1.0, layout.tileWidth)));
  const double down = std::max(1.0, std::ceil(layout.length / std::max(1.0, layout.tileLength)));
  const double place = std::fmod(block, across * down);
  return {least(layout.tileLength, layout.length - std::floor(place / across) * layout.tileLength),
          least(layout.tileWidth, layout.width - std::fmod(place, across) * layout.tileWidth)};
}

std::string shortened(double value) {
  std::string text(32, '\0');
  text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%.12g", value)));
  return text;
}

}  // namespace

std::string described(const vxArray* array) {
  std::string text = vxGetClassName(array);
  const std::size_t* sizes = vxGetDimensions(array);
  for (std::size_t i = 0; i < vxGetNumberOfDimensions(array); ++i) {
    text += i == 0 ? " " : "x";
    text += std::to_string(sizes[i]);
  }
  if (vxGetNumberOfElements(array) == 0 || vxGetClassID(array) == vxCELL) return text;
  text += " ";
  if (vxGetClassID(array) != vxCHAR) return text + shortened(vxGetScalar(array));
  for (const char16_t unit : matrix::get_ustring(array).substr(0, 20))
    text += unit < 128 ? static_cast<char>(unit) : '?';
  return text;
}

BlockLayout::BlockLayout(const vxArray* file)
    : tiled(scalarOr(call("isTiled", {file}), 0) != 0),
      width(tagNumber(file, TIFFTAG_IMAGEWIDTH)),
      length(tagNumber(file, TIFFTAG_IMAGELENGTH)),
      bits(tagNumber(file, TIFFTAG_BITSPERSAMPLE)),
      compression(tagNumber(file, TIFFTAG_COMPRESSION)),
      photometric(tagNumber(file, TIFFTAG_PHOTOMETRIC)),
      samples(tagNumber(file, TIFFTAG_SAMPLESPERPIXEL)),
      rowsPerStrip(tagNumber(file, TIFFTAG_ROWSPERSTRIP)),
      planar(tagNumber(file, TIFFTAG_PLANARCONFIG)),
      tileWidth(tagNumber(file, TIFFTAG_TILEWIDTH)),
      tileLength(tagNumber(file, TIFFTAG_TILELENGTH)),
      format(tagNumber(file, TIFFTAG_SAMPLEFORMAT)) {}

bool BlockLayout::lossless() const {
  if (photometric == PHOTOMETRIC_YCBCR) return false;
  const bool isInterleaved = planar != PLANARCONFIG_SEPARATE && samples > 1;
  if (bits == 1 && isInterleaved) return false;  // bits are packed as one sample's
  for (const double scheme : {1, 3, 4, 5, 8, 32773, 32946})
    if (compression == scheme) return true;
  return false;
}

bool BlockLayout::isReadOnly() const {
  return compression == runtime::kJpeg2000 || compression == runtime::kJpeg2000Rgb ||
         compression == runtime::kJpeg2000YCbCr;
}

vxArrayPtr filledArray(vxClassID classId, const std::vector<std::size_t>& dimensions,
                       std::uint32_t seed) {
  vxArrayPtr array = matrix::detail::do_create_numeric(classId, dimensions);
  const std::size_t size = vxGetNumberOfElements(array.get()) * vxGetElementSize(array.get());
  auto* to = static_cast<unsigned char*>(vxGetWritableData(array.get()));
  std::minstd_rand random(seed);
  const unsigned kept = classId == vxLOGICAL ? 1U : 0xFFU;
  for (std::size_t i = 0; i < size; ++i) to[i] = static_cast<unsigned char>(random() >> 8 & kept);
  return array;
}

vxArrayPtr anyArray(FuzzedDataProvider& input) {
  const auto choice = input.ConsumeIntegralInRange<unsigned>(0, 19);
  if (choice == 0) return inkNames(input.ConsumeIntegralInRange<std::size_t>(0, 3));
  if (choice == 1) return matrix::detail::do_create_struct({}, {});
  if (choice == 2) return anyText(input);
  if (choice < 8) {
    constexpr double kNumbers[] = {0,   1,     2,     3,          8,     16, -1,
                                   0.5, 65535, 65536, 4294967295, 1e300, NAN};
    return number(input.PickValueInArray(kNumbers));
  }
  constexpr std::size_t kSizes[] = {0, 1, 1, 2, 3, 4, 6, 8, 16, 20, 32, 40, 70, 256};
  std::vector<std::size_t> dimensions = {input.PickValueInArray(kSizes),
                                         input.PickValueInArray(kSizes)};
  if (input.ConsumeBool()) dimensions.push_back(input.ConsumeIntegralInRange<std::size_t>(0, 4));
  return filledArray(input.PickValueInArray(kClasses), dimensions,
                     input.ConsumeIntegral<std::uint8_t>());
}

int anyTag(FuzzedDataProvider& input) {
  const auto& choices = tagChoices();
  const auto kind = input.ConsumeIntegralInRange<unsigned>(0, 15);
  if (kind == 0) return input.ConsumeIntegralInRange(250, 350);
  const std::size_t last = kind % 2 == 0 ? kLayoutRows - 1 : choices.size() - 1;
  return choices[input.ConsumeIntegralInRange<std::size_t>(0, last)].tag;
}

vxArrayPtr valueForTag(const vxArray* file, int tag, FuzzedDataProvider& input) {
  const auto found = std::ranges::find(tagChoices(), tag, &TagChoice::tag);
  if (found == tagChoices().end()) return anyArray(input);
  switch (found->kind) {
    case Kind::kNumber:
      return number(anyOf(found->numbers, input));
    case Kind::kText:
      return anyText(input);
    case Kind::kReals:
      return smallReals(anyOf(found->numbers, input), input);
    case Kind::kBytes:
      return filledArray(vxUINT8, {1, static_cast<std::size_t>(anyOf(found->numbers, input))}, 7);
    case Kind::kColorMap:
      return mapFor(tagNumber(file, TIFFTAG_BITSPERSAMPLE), 3, 1, 7);
    case Kind::kTransfer:
      return mapFor(tagNumber(file, TIFFTAG_BITSPERSAMPLE),
                    tagNumber(file, TIFFTAG_SAMPLESPERPIXEL) == 3 ? 3 : 1, 65535, 7);
    case Kind::kInkNames:
      return inkNames(
          static_cast<std::size_t>(std::clamp(tagNumber(file, TIFFTAG_NUMBEROFINKS), 0.0, 100.0)));
  }
  return nullptr;
}

bool isLayoutTag(int tag) {
  constexpr int kLayoutTags[] = {256, 257, 258, 259, 262, 266, 277, 278,   284,   292,   293,
                                 317, 322, 323, 330, 338, 339, 530, 65537, 65538, 65557, 65560};
  return std::ranges::find(kLayoutTags, tag) != std::end(kLayoutTags);
}

bool isTextTag(int tag) {
  constexpr int kTextTags[] = {TIFFTAG_DOCUMENTNAME, TIFFTAG_IMAGEDESCRIPTION, TIFFTAG_MAKE,
                               TIFFTAG_MODEL,        TIFFTAG_PAGENAME,         TIFFTAG_SOFTWARE,
                               TIFFTAG_ARTIST,       TIFFTAG_HOSTCOMPUTER,     TIFFTAG_COPYRIGHT};
  return std::ranges::find(kTextTags, tag) != std::end(kTextTags);
}

std::vector<vxArrayPtr> arraysForBlock(const BlockLayout& layout, std::uint32_t block,
                                       std::uint32_t seed) {
  auto [rows, columns] = extentOf(layout, block);
  double planes = layout.planar == PLANARCONFIG_SEPARATE ? 1 : std::max(1.0, layout.samples);
  if (rows * columns * planes > kMostElements) {
    rows = std::min(rows, 20.0);
    columns = std::min(columns, 20.0);
    planes = std::min(planes, 5.0);
  }
  const auto size = [](double number) { return static_cast<std::size_t>(number); };
  const vxClassID classId = sampleClass(layout);
  std::vector<vxArrayPtr> arrays;
  const bool units = layout.photometric == PHOTOMETRIC_YCBCR && (seed & 1) == 0;
  if (!units) {
    arrays.push_back(filledArray(classId, {size(rows), size(columns), size(planes)}, seed));
    return arrays;
  }
  arrays.push_back(filledArray(classId, {size(rows), size(columns)}, seed));
  const double factor = (seed & 2) == 0 ? 2 : 1;
  for (std::uint32_t chroma = 1; chroma <= 2; ++chroma)
    arrays.push_back(
        filledArray(classId, {size(std::ceil(rows / factor)), size(std::ceil(columns / factor))},
                    seed + chroma));
  return arrays;
}

bool isWholeBlock(const BlockLayout& layout, std::uint32_t block, const vxArray* array) {
  const auto [rows, columns] = extentOf(layout, block);
  const std::size_t* dimensions = vxGetDimensions(array);
  return static_cast<double>(dimensions[0]) == rows &&
         static_cast<double>(dimensions[1]) == columns;
}

}  // namespace tb::fuzz

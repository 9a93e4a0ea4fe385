// The getField operation: one row for each tag that it serves or refuses by name.

#include <algorithm>
#include <type_traits>

#include "core/errors.h"
#include "core/field_guard.h"
#include "core/open_files.h"
#include "core/values.h"
#include "tags/counted_reads.h"
#include "tags/handlers.h"
#include "tags/structured_reads.h"
#include "tags/tag_names.h"
#include "tags/tag_number.h"
#include "tags/tag_rows.h"

namespace tb {
namespace {

// Tags that libtiff can default never fail: what the fetch leaves is the answer.
template <class T>
vxArrayPtr defaulted(TIFF* tif, std::uint32_t tag, const std::string&) {
  T value{};
  (void)TIFFGetFieldDefaulted(tif, tag, &value);
  return doubleScalar(value);
}

template <class T>
vxArrayPtr required(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  T value{};
  if (!fetchField(tif, tag, &value)) raise<Tiff::tagRetrievalFailed>(tagName);
  return doubleScalar(static_cast<double>(value));
}

vxArrayPtr defaultedPair(TIFF* tif, std::uint32_t tag, const std::string&) {
  std::uint16_t pair[2] = {};
  (void)TIFFGetFieldDefaulted(tif, tag, &pair[0], &pair[1]);
  return doubleRow<std::uint16_t>(pair);
}

vxArrayPtr requiredPair(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  std::uint16_t pair[2] = {};
  if (!fetchField(tif, tag, &pair[0], &pair[1])) raise<Tiff::tagRetrievalFailed>(tagName);
  return doubleRow<std::uint16_t>(pair);
}

vxArrayPtr requiredText(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  const char* text = nullptr;
  if (!fetchField(tif, tag, &text)) raise<Tiff::tagRetrievalFailed>(tagName);
  return matrix::create(text != nullptr ? text : "");
}

// A reader whose tag is implied, as a row's reader.
template <vxArrayPtr (*Read)(TIFF*)>
vxArrayPtr impliedTag(TIFF* tif, std::uint32_t, const std::string&) {
  return Read(tif);
}

[[noreturn]] vxArrayPtr refuseUnsupported(TIFF*, std::uint32_t tag, const std::string& tagName) {
  raise<Tiff::unsupportedTag>(tagName, tag);
}

template <class T>
constexpr ValueKind kScalarKind = std::is_floating_point_v<T> ? ValueKind::real : ValueKind::whole;
template <class T>
constexpr ReadKind kDefaulted{defaulted<T>, "double, 1-by-1; libtiff's default when absent",
                              kScalarKind<T>};
template <class T>
constexpr ReadKind kRequired{required<T>, "double, 1-by-1", kScalarKind<T>};
constexpr ReadKind kPair{requiredPair, "double, 1-by-2", ValueKind::wholeRow};
constexpr ReadKind kDefaultedPair{defaultedPair, "double, 1-by-2; libtiff's default when absent",
                                  ValueKind::wholeRow};
constexpr ReadKind kText{requiredText, "char, a row; 0-by-0 when empty", ValueKind::text};
constexpr ReadKind kPerBlock{retrievePerTilePerStrip,
                             "uint64, a row with one element for each strip or tile",
                             ValueKind::wholeRow};
constexpr ReadKind kTwoFloats{retrieveFloatpp, "double, 1-by-2", ValueKind::realRow};
constexpr ReadKind kThreeFloats{retrieveFloatpp, "double, 1-by-3", ValueKind::realRow};
constexpr ReadKind kSixFloats{retrieveFloatpp, "double, 1-by-6", ValueKind::realRow};
constexpr ReadKind kBytes{retrieveCountpVoidpp, "uint8, a row of the bytes", ValueKind::bytes};
constexpr ReadKind kCharacters{retrieveCountpVoidpp, "char, a row of the bytes",
                               ValueKind::characters};
constexpr ReadKind kDoubles{retrieveCountpDoublepp, "double, a row", ValueKind::realRow};
constexpr ReadKind kTiepoints{retrieveCountpDoublepp, "double, N-by-6, one tie point a row",
                              ValueKind::realTable};
constexpr ReadKind kGeoKeys{retrieveGeoKeyDirectory, "double, N-by-4, one key entry a row",
                            ValueKind::wholeTable};
constexpr ReadKind kExtraSamples{retrieveExtraSamples, "double, a row", ValueKind::wholeRow};
constexpr ReadKind kSubIfd{retrieveSubIfd, "uint64, a row of offsets", ValueKind::wholeRow};
constexpr ReadKind kPlanar{impliedTag<retrievePlanarConfiguration>,
                           "double, 1-by-1; libtiff's default when absent", ValueKind::whole};
constexpr ReadKind kTransferFunction{
    impliedTag<retrieveTransferFunction>,
    "double, 1-by-2^BitsPerSample for one sample per pixel, 2^BitsPerSample-by-3 for three",
    ValueKind::wholeTable};
constexpr ReadKind kColorMap{impliedTag<retrieveColorMap>,
                             "double, 2^BitsPerSample-by-3, each element 0 to 1",
                             ValueKind::realTable};
constexpr ReadKind kInkNames{impliedTag<retrieveInkNames>,
                             "cell, 1-by-NumberOfInks, each cell a char row", ValueKind::texts};
constexpr ReadKind kRefused{refuseUnsupported, nullptr, ValueKind::refused};

constexpr ReadRow kReadRows[] = {
    {TIFFTAG_SUBFILETYPE, kDefaulted<std::uint32_t>},
    {TIFFTAG_IMAGEWIDTH, kRequired<std::uint32_t>},
    {TIFFTAG_IMAGELENGTH, kRequired<std::uint32_t>},
    {TIFFTAG_BITSPERSAMPLE, kDefaulted<std::uint16_t>},
    {TIFFTAG_COMPRESSION, kDefaulted<std::uint16_t>},
    {TIFFTAG_PHOTOMETRIC, kRequired<std::uint16_t>},
    {TIFFTAG_THRESHHOLDING, kRequired<std::uint16_t>},
    {TIFFTAG_FILLORDER, kRequired<std::uint16_t>},
    {TIFFTAG_DOCUMENTNAME, kText},
    {TIFFTAG_IMAGEDESCRIPTION, kText},
    {TIFFTAG_MAKE, kText},
    {TIFFTAG_MODEL, kText},
    {TIFFTAG_STRIPOFFSETS, kPerBlock},
    {TIFFTAG_ORIENTATION, kDefaulted<std::uint16_t>},
    {TIFFTAG_SAMPLESPERPIXEL, kDefaulted<std::uint16_t>},
    {TIFFTAG_ROWSPERSTRIP, kDefaulted<std::uint32_t>},
    {TIFFTAG_STRIPBYTECOUNTS, kPerBlock},
    {TIFFTAG_MINSAMPLEVALUE, kDefaulted<std::uint16_t>},
    {TIFFTAG_MAXSAMPLEVALUE, kDefaulted<std::uint16_t>},
    {TIFFTAG_XRESOLUTION, kRequired<float>},
    {TIFFTAG_YRESOLUTION, kRequired<float>},
    {TIFFTAG_PLANARCONFIG, kPlanar},
    {TIFFTAG_PAGENAME, kText},
    {TIFFTAG_XPOSITION, kRequired<float>},
    {TIFFTAG_YPOSITION, kRequired<float>},
    {TIFFTAG_GROUP3OPTIONS, kRequired<std::uint32_t>},
    {TIFFTAG_GROUP4OPTIONS, kRequired<std::uint32_t>},
    {TIFFTAG_RESOLUTIONUNIT, kDefaulted<std::uint16_t>},
    {TIFFTAG_PAGENUMBER, kPair},
    {TIFFTAG_TRANSFERFUNCTION, kTransferFunction},
    {TIFFTAG_SOFTWARE, kText},
    {TIFFTAG_DATETIME, kText},
    {TIFFTAG_ARTIST, kText},
    {TIFFTAG_HOSTCOMPUTER, kText},
    {TIFFTAG_PREDICTOR, kRequired<std::uint16_t>},
    {TIFFTAG_WHITEPOINT, kTwoFloats},
    {TIFFTAG_PRIMARYCHROMATICITIES, kSixFloats},
    {TIFFTAG_COLORMAP, kColorMap},
    {TIFFTAG_HALFTONEHINTS, kPair},
    {TIFFTAG_TILEWIDTH, kRequired<std::uint32_t>},
    {TIFFTAG_TILELENGTH, kRequired<std::uint32_t>},
    {TIFFTAG_TILEOFFSETS, kPerBlock},
    {TIFFTAG_TILEBYTECOUNTS, kPerBlock},
    {TIFFTAG_SUBIFD, kSubIfd},
    {TIFFTAG_INKSET, kRequired<std::uint16_t>},
    {TIFFTAG_INKNAMES, kInkNames},
    {TIFFTAG_NUMBEROFINKS, kDefaulted<std::uint16_t>},
    {TIFFTAG_DOTRANGE, kPair},
    {TIFFTAG_TARGETPRINTER, kText},
    {TIFFTAG_EXTRASAMPLES, kExtraSamples},
    {TIFFTAG_SAMPLEFORMAT, kDefaulted<std::uint16_t>},
    {TIFFTAG_SMINSAMPLEVALUE, kRequired<double>},
    {TIFFTAG_SMAXSAMPLEVALUE, kRequired<double>},
    {TIFFTAG_YCBCRCOEFFICIENTS, kThreeFloats},
    {TIFFTAG_YCBCRSUBSAMPLING, kDefaultedPair},
    {TIFFTAG_YCBCRPOSITIONING, kRequired<std::uint16_t>},
    {TIFFTAG_REFERENCEBLACKWHITE, kSixFloats},
    {TIFFTAG_XMLPACKET, kCharacters},
    {TIFFTAG_MATTEING, kRefused},
    {TIFFTAG_DATATYPE, kRefused},
    {TIFFTAG_IMAGEDEPTH, kDefaulted<std::uint32_t>},
    {TIFFTAG_TILEDEPTH, kRefused},
    {TIFFTAG_COPYRIGHT, kText},
    {kModelPixelScaleTag, kDoubles},
    {TIFFTAG_RICHTIFFIPTC, kBytes},
    {kModelTiepointTag, kTiepoints},
    {kModelTransformationTag, kDoubles},
    {TIFFTAG_PHOTOSHOP, kBytes},
    {TIFFTAG_ICCPROFILE, kBytes},
    {kGeoKeyDirectoryTag, kGeoKeys},
    {kGeoDoubleParamsTag, kDoubles},
    {kGeoAsciiParamsTag, kText},
    {TIFFTAG_STONITS, kRequired<double>},
    {kRpcCoefficientTag, kDoubles},
    {TIFFTAG_JPEGQUALITY, kRequired<std::uint32_t>},
    {TIFFTAG_ZIPQUALITY, kRequired<std::uint32_t>},
    {TIFFTAG_SGILOGDATAFMT, kRequired<std::uint32_t>},
};
static_assert(std::ranges::is_sorted(kReadRows, {}, &ReadRow::tag));

}  // namespace

std::span<const ReadRow> readRows() { return kReadRows; }

void TIFFGetField_handler(int outputCount, vxArrayPtr* outputs, int, const vxArray* const* inputs,
                          s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  const std::uint32_t tag = unpack_ttag_t(inputs[1]);
  const std::string tagName = tag_num_to_tag_name(tif, tag);
  const ReadRow* row = findRow(readRows(), tag);
  if (row == nullptr) raise<Tiff::unhandledTagId>(tag);
  storeOutput(outputCount, outputs, 0, row->kind.read(tif, tag, tagName));
}

}  // namespace tb

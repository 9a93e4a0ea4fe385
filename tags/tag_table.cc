#include "tags/tag_table.h"

#include <algorithm>
#include <array>

#include "core/errors.h"
#include "host/tiff_utilities.h"
#include "tags/colour_setters.h"
#include "tags/counted_reads.h"
#include "tags/ink_setters.h"
#include "tags/layout_setters.h"
#include "tags/plain_reads.h"
#include "tags/plain_writers.h"
#include "tags/structured_reads.h"
#include "tags/value_setters.h"

namespace tb {
namespace {

// A reader or setter with the parameters of a row.
template <auto Read, auto... Parameters>
vxArrayPtr readWith(TIFF* tif, std::uint32_t tag, const std::string& tagName) {
  return Read(tif, tag, tagName, Parameters...);
}
template <auto Write, auto... Parameters>
int setWith(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  return Write(tif, tag, tagName, value, Parameters...);
}

[[noreturn]] vxArrayPtr refuseToRead(TIFF*, std::uint32_t tag, const std::string& tagName) {
  raise<Tiff::unsupportedTag>(tagName, tag);
}
[[noreturn]] int refuseToWrite(TIFF*, std::uint32_t tag, const std::string& tagName,
                               const vxArray*) {
  raise<Tiff::unsupportedTag>(tagName, tag);
}

namespace reads {

constexpr const char* kNumber = "double, 1-by-1";
constexpr const char* kNumberOrDefault = "double, 1-by-1; libtiff's default when absent";
constexpr const char* kPerBlock = "uint64, a row with one element for each strip or tile";

constexpr ReadKind kShort{required<std::uint16_t>, kNumber, ValueKind::whole};
constexpr ReadKind kLong{required<std::uint32_t>, kNumber, ValueKind::whole};
constexpr ReadKind kFloat{required<float>, kNumber, ValueKind::real};
constexpr ReadKind kDouble{required<double>, kNumber, ValueKind::real};
constexpr ReadKind kDefaultedShort{defaulted<std::uint16_t>, kNumberOrDefault, ValueKind::whole};
constexpr ReadKind kDefaultedLong{defaulted<std::uint32_t>, kNumberOrDefault, ValueKind::whole};
constexpr ReadKind kPlanarConfiguration{retrievePlanarConfiguration, kNumberOrDefault,
                                        ValueKind::whole};
constexpr ReadKind kPair{requiredPair, "double, 1-by-2", ValueKind::wholeRow};
constexpr ReadKind kDefaultedPair{defaultedPair, "double, 1-by-2; libtiff's default when absent",
                                  ValueKind::wholeRow};
constexpr ReadKind kText{requiredText, "char, a row; 0-by-0 when empty", ValueKind::text};
template <BlockKind Kind, BlockNumber* Number>
constexpr ReadKind kOfBlocks{readWith<retrievePerTilePerStrip, Kind, Number>, kPerBlock,
                             ValueKind::wholeRow};
constexpr ReadKind kStripOffsets = kOfBlocks<BlockKind::strip, TIFFGetStrileOffsetWithErr>;
constexpr ReadKind kStripByteCounts = kOfBlocks<BlockKind::strip, TIFFGetStrileByteCountWithErr>;
constexpr ReadKind kTileOffsets = kOfBlocks<BlockKind::tile, TIFFGetStrileOffsetWithErr>;
constexpr ReadKind kTileByteCounts = kOfBlocks<BlockKind::tile, TIFFGetStrileByteCountWithErr>;
constexpr ReadKind kTwoFloats{readWith<retrieveFloatpp, 2>, "double, 1-by-2", ValueKind::realRow};
constexpr ReadKind kThreeFloats{readWith<retrieveFloatpp, 3>, "double, 1-by-3", ValueKind::realRow};
constexpr ReadKind kSixFloats{readWith<retrieveFloatpp, 6>, "double, 1-by-6", ValueKind::realRow};
constexpr ReadKind kBytes{readWith<retrieveCountpVoidpp, vxUINT8>, "uint8, a row of the bytes",
                          ValueKind::bytes};
constexpr ReadKind kCharacters{readWith<retrieveCountpVoidpp, vxCHAR>, "char, a row of the bytes",
                               ValueKind::characters};
template <std::size_t Expected, WrongCount Wrong = WrongCount::warns>
constexpr ReadKind kDoubles{readWith<retrieveCountpDoublepp, Expected, Wrong>, "double, a row",
                            ValueKind::realRow};
constexpr ReadKind kAnyDoubles = kDoubles<0, WrongCount::passes>;
constexpr ReadKind kRpcCoefficients = kDoubles<92, WrongCount::warnsCountFirst>;
constexpr ReadKind kTiepoints{retrieveTiepoints, "double, N-by-6, one tie point a row",
                              ValueKind::realTable};
constexpr ReadKind kGeoKeys{retrieveGeoKeyDirectory, "double, N-by-4, one key entry a row",
                            ValueKind::wholeTable};
constexpr ReadKind kExtraSamples{retrieveExtraSamples, "double, a row", ValueKind::wholeRow};
constexpr ReadKind kSubIfd{retrieveSubIfd, "uint64, a row of offsets", ValueKind::wholeRow};
constexpr ReadKind kTransferFunction{
    retrieveTransferFunction,
    "double, 1-by-2^BitsPerSample for one sample per pixel, 2^BitsPerSample-by-3 for three",
    ValueKind::wholeTable};
constexpr ReadKind kColorMap{retrieveColorMap, "double, 2^BitsPerSample-by-3, each element 0 to 1",
                             ValueKind::realTable};
constexpr ReadKind kInkNames{retrieveInkNames, "cell, 1-by-NumberOfInks, each cell a char row",
                             ValueKind::texts};
constexpr ReadKind kRefused{refuseToRead};

}  // namespace reads

namespace writes {

constexpr const char* kOneShort = "one double, 0 to 65535";
constexpr const char* kOneLong = "one double, 0 to 4294967295";
constexpr const char* kTwoShorts = "two doubles, 0 to 65535";
constexpr const char* kFloatsInRange = "six doubles in single range";
constexpr const char* kAnyText = "char, any shape";
constexpr const char* kByteArray = "uint8, any shape";
constexpr const char* kWhenSeparated = "Photometric is 5";

constexpr WriteKind kShort{setScalar<std::uint16_t>, kOneShort};
constexpr WriteKind kLong{setScalar<std::uint32_t>, kOneLong};
constexpr WriteKind kCodecLong{setScalar<std::uint32_t>, kOneLong, "", true};
constexpr WriteKind kDimension{setDimension, kOneLong, "not 0"};
constexpr WriteKind kTileDimension{setTileDimension, kOneLong, "a multiple of 16; not 0"};
constexpr WriteKind kFloat{setReal<float>, "one double in single range"};
constexpr WriteKind kPair{setPair<>, kTwoShorts};
constexpr WriteKind kText{setText, kAnyText};
constexpr WriteKind kBytes{setWith<setUninterpretedByteType, 0>, kByteArray};
constexpr WriteKind kRefused{refuseToWrite};
constexpr WriteKind kSampleRange{
    setSSampleValue, "one double in the range of the samples' type",
    "SampleFormat is set; BitsPerSample is set; 0 or 1 for 1 bit; else the two go together: 8, 16 "
    "or 32 bits for formats 1 and 2, 32 or 64 for 3"};

constexpr WriteKind kBitsPerSample{
    setBitsPerSample, kOneShort,
    "1, 8, 16, 32 or 64; Photometric is set; 8 or 16 for Photometric 3, 8, 9 and 10; Photometric "
    "is not 32844 or 32845"};
constexpr WriteKind kCompression{
    setCompression, kOneShort,
    "Photometric is set; 1, 3, 4, 5, 7, 8, 32773, 32946, 34676 or 34677; BitsPerSample is 1 for "
    "3 and 4"};
constexpr WriteKind kPhotometric{setPhotometric, kOneShort};
constexpr WriteKind kThresholding{setThresholding, kOneShort,
                                  "1, 2 or 3; Photometric is set; Photometric is 0 or 1"};
constexpr WriteKind kSamplesPerPixel{
    setSamplesPerPixel, kOneShort,
    "Photometric is set; Photometric is not 32844 or 32845; BitsPerSample is set; 1 when "
    "BitsPerSample is 1"};
constexpr WriteKind kPlanarConfiguration{
    setPlanarConfiguration, kOneShort,
    "1 or 2; Photometric is set; 1 for Photometric 32844 and 32845"};
constexpr WriteKind kTransferFunction{
    setTransferFunction,
    "doubles, 0 to 65535: 2^BitsPerSample as a row or column for one sample per pixel, "
    "2^BitsPerSample-by-3 for three",
    "Photometric is 0, 1, 2, 3 or 6; two dimensions; SamplesPerPixel is 1 or 3; the shape; the "
    "class"};
constexpr WriteKind kDateTime{setDateTime, "char, any shape; padded with blanks to 19 characters",
                              "at most 19 characters"};
constexpr WriteKind kWhitePoint{setWhitePoint, "two doubles in single range",
                                "Photometric is 2, 3, 6, 8, 9 or 10"};
constexpr WriteKind kPrimaryChromaticities{setPrimaryChromaticities, kFloatsInRange,
                                           "Photometric is 2, 3 or 6"};
constexpr WriteKind kColorMap{setColorMap, "double, 2^BitsPerSample-by-3, each element 0 to 1",
                              "BitsPerSample is set; class and shape; the range"};
constexpr WriteKind kSubIfd{
    setSubIfd, "the number of sub-directories to follow, any class of numbers, 0 to 65535"};
constexpr WriteKind kInkSet{whenSeparated<setScalar<std::uint16_t>>, kOneShort, kWhenSeparated};
constexpr WriteKind kInkNames{setInkNames, "a cell of NumberOfInks char arrays",
                              "Photometric is 5; a cell; the number of cells; the class of each"};
constexpr WriteKind kNumberOfInks{
    setNumberOfInks, kOneShort,
    "Photometric is 5; SamplesPerPixel is set; from SamplesPerPixel less the ExtraSamples to "
    "SamplesPerPixel"};
constexpr WriteKind kDotRange{whenSeparated<setPair<"DotRange">>, kTwoShorts, kWhenSeparated};
constexpr WriteKind kTargetPrinter{whenSeparated<setText>, kAnyText, kWhenSeparated};
constexpr WriteKind kExtraSamples{setExtraSamples, "doubles, 0 to 65535, any shape"};
constexpr WriteKind kSampleFormat{
    setSampleFormat, kOneShort,
    "Photometric is set; Photometric is not 32844 or 32845; for 2 Photometric is 0 or 1, and "
    "BitsPerSample is set and not 1; not 4, 5 or 6"};
constexpr WriteKind kYCbCrCoefficients{setFloats<3, "YCbCrCoefficients">,
                                       "three doubles in single range"};
constexpr WriteKind kReferenceBlackWhite{setReferenceBlackWhite, kFloatsInRange,
                                         "Photometric is 2 or 6"};
constexpr WriteKind kXmlPacket{setXmlPacket, kAnyText, "at least 5 characters"};
constexpr WriteKind kPhotoshop{setWith<setUninterpretedByteType, 7>, kByteArray,
                               "at least 7 bytes"};
constexpr WriteKind kStoNits{setReal<double>, "one double"};
constexpr WriteKind kModelPixelScale{setDoubles<3, "GeoPixelScale">, "three doubles"};
constexpr WriteKind kModelTransformation{setDoubles<16, "ModelTransformation">,
                                         "sixteen doubles, any shape, in storage order"};
constexpr WriteKind kTiepoints{setRecords<double, 6>, "double, N-by-6, one tie point a row"};
constexpr WriteKind kGeoKeys{setRecords<std::uint16_t, 4>,
                             "double, N-by-4, 0 to 65535, one key entry a row"};
constexpr WriteKind kAnyDoubles{setDoubles<>, "doubles, any shape"};
constexpr WriteKind kRpcCoefficients{setDoubles<92, "RPCCoefficientTag">, "92 doubles"};
constexpr WriteKind kSgiLogDataFmt{
    setSgiLogDataFmt, kOneLong,
    "Photometric is set; Compression is 34676 or 34677; no format chosen yet; 0 or 3", true};

}  // namespace writes

// In tag order, then the GeoTIFF and RPC tags, then libtiff's pseudo-tags and compression options.
// 344 stands here twice, alike.
constexpr TagRow kTags[] = {
    {TIFFTAG_SUBFILETYPE, "SubfileType", reads::kDefaultedLong, writes::kLong},
    {TIFFTAG_OSUBFILETYPE, "OldSubfileType"},
    {TIFFTAG_IMAGEWIDTH, "ImageWidth", reads::kLong, writes::kDimension},
    {TIFFTAG_IMAGELENGTH, "ImageLength", reads::kLong, writes::kDimension},
    {TIFFTAG_BITSPERSAMPLE, "BitsPerSample", reads::kDefaultedShort, writes::kBitsPerSample},
    {TIFFTAG_COMPRESSION, "Compression", reads::kDefaultedShort, writes::kCompression},
    {TIFFTAG_PHOTOMETRIC, "PhotometricInterpretation", reads::kShort, writes::kPhotometric},
    {TIFFTAG_THRESHHOLDING, "Thresholding", reads::kShort, writes::kThresholding},
    {TIFFTAG_CELLWIDTH, "CellWidth"},
    {TIFFTAG_CELLLENGTH, "CellLength"},
    {TIFFTAG_FILLORDER, "FillOrder", reads::kShort, writes::kShort},
    {TIFFTAG_DOCUMENTNAME, "DocumentName", reads::kText, writes::kText},
    {TIFFTAG_IMAGEDESCRIPTION, "ImageDescription", reads::kText, writes::kText},
    {TIFFTAG_MAKE, "Make", reads::kText, writes::kText},
    {TIFFTAG_MODEL, "Model", reads::kText, writes::kText},
    {TIFFTAG_STRIPOFFSETS, "StripOffsets", reads::kStripOffsets},
    {TIFFTAG_ORIENTATION, "Orientation", reads::kDefaultedShort, writes::kShort},
    {TIFFTAG_SAMPLESPERPIXEL, "SamplesPerPixel", reads::kDefaultedShort, writes::kSamplesPerPixel},
    {TIFFTAG_ROWSPERSTRIP, "RowsPerStrip", reads::kDefaultedLong, writes::kDimension},
    {TIFFTAG_STRIPBYTECOUNTS, "StripByteCounts", reads::kStripByteCounts},
    {TIFFTAG_MINSAMPLEVALUE, "MinSampleValue", reads::kDefaultedShort, writes::kShort},
    {TIFFTAG_MAXSAMPLEVALUE, "MaxSampleValue", reads::kDefaultedShort, writes::kShort},
    {TIFFTAG_XRESOLUTION, "XResolution", reads::kFloat, writes::kFloat},
    {TIFFTAG_YRESOLUTION, "YResolution", reads::kFloat, writes::kFloat},
    {TIFFTAG_PLANARCONFIG, "PlanarConfiguration", reads::kPlanarConfiguration,
     writes::kPlanarConfiguration},
    {TIFFTAG_PAGENAME, "PageName", reads::kText, writes::kText},
    {TIFFTAG_XPOSITION, "XPosition", reads::kFloat, writes::kFloat},
    {TIFFTAG_YPOSITION, "YPosition", reads::kFloat, writes::kFloat},
    {TIFFTAG_FREEOFFSETS, "FreeOffsets"},
    {TIFFTAG_FREEBYTECOUNTS, "FreeByteCounts"},
    {TIFFTAG_GRAYRESPONSEUNIT, "GrayResponseUnit"},
    {TIFFTAG_GRAYRESPONSECURVE, "GrayResponseCurve"},
    {TIFFTAG_RESOLUTIONUNIT, "ResolutionUnit", reads::kDefaultedShort, writes::kShort},
    {TIFFTAG_PAGENUMBER, "PageNumber", reads::kPair, writes::kPair},
    {TIFFTAG_COLORRESPONSEUNIT, "ColorResponseUnit"},
    {TIFFTAG_TRANSFERFUNCTION, "TransferFunction", reads::kTransferFunction,
     writes::kTransferFunction},
    {TIFFTAG_SOFTWARE, "Software", reads::kText, writes::kText},
    {TIFFTAG_DATETIME, "DateTime", reads::kText, writes::kDateTime},
    {TIFFTAG_ARTIST, "Artist", reads::kText, writes::kText},
    {TIFFTAG_HOSTCOMPUTER, "HostComputer", reads::kText, writes::kText},
    {TIFFTAG_WHITEPOINT, "WhitePoint", reads::kTwoFloats, writes::kWhitePoint},
    {TIFFTAG_PRIMARYCHROMATICITIES, "PrimaryChromaticities", reads::kSixFloats,
     writes::kPrimaryChromaticities},
    {TIFFTAG_COLORMAP, "ColorMap", reads::kColorMap, writes::kColorMap},
    {TIFFTAG_HALFTONEHINTS, "HalftoneHints", reads::kPair, writes::kPair},
    {TIFFTAG_TILEWIDTH, "TileWidth", reads::kLong, writes::kTileDimension},
    {TIFFTAG_TILELENGTH, "TileLength", reads::kLong, writes::kTileDimension},
    {TIFFTAG_TILEOFFSETS, "TileOffsets", reads::kTileOffsets},
    {TIFFTAG_TILEBYTECOUNTS, "TileByteCounts", reads::kTileByteCounts},
    {TIFFTAG_SUBIFD, "SubIFD", reads::kSubIfd, writes::kSubIfd},
    {TIFFTAG_INKSET, "InkSet", reads::kShort, writes::kInkSet},
    {TIFFTAG_INKNAMES, "InkNames", reads::kInkNames, writes::kInkNames},
    {TIFFTAG_NUMBEROFINKS, "NumberOfInks", reads::kDefaultedShort, writes::kNumberOfInks},
    {TIFFTAG_DOTRANGE, "DotRange", reads::kPair, writes::kDotRange},
    {TIFFTAG_TARGETPRINTER, "TargetPrinter", reads::kText, writes::kTargetPrinter},
    {TIFFTAG_EXTRASAMPLES, "ExtraSamples", reads::kExtraSamples, writes::kExtraSamples},
    {TIFFTAG_SAMPLEFORMAT, "SampleFormat", reads::kDefaultedShort, writes::kSampleFormat},
    {TIFFTAG_SMINSAMPLEVALUE, "SMinSampleValue", reads::kDouble, writes::kSampleRange},
    {TIFFTAG_SMAXSAMPLEVALUE, "SMaxSampleValue", reads::kDouble, writes::kSampleRange},
    {TIFFTAG_CLIPPATH, "ClipPath"},
    {TIFFTAG_XCLIPPATHUNITS, "XClipPathUnits"},
    {TIFFTAG_XCLIPPATHUNITS, "XClipPathUnits"},
    {TIFFTAG_YCLIPPATHUNITS, "YClipPathUnits"},
    {TIFFTAG_YCBCRCOEFFICIENTS, "YCbCrCoefficients", reads::kThreeFloats,
     writes::kYCbCrCoefficients},
    {TIFFTAG_YCBCRSUBSAMPLING, "YCbCrSubsampling", reads::kDefaultedPair, writes::kPair},
    {TIFFTAG_YCBCRPOSITIONING, "YCbCrPositioning", reads::kShort, writes::kShort},
    {TIFFTAG_REFERENCEBLACKWHITE, "ReferenceBlackWhite", reads::kSixFloats,
     writes::kReferenceBlackWhite},
    {TIFFTAG_XMLPACKET, "XMLPacket", reads::kCharacters, writes::kXmlPacket},
    {TIFFTAG_MATTEING, "Matteing", reads::kRefused, writes::kRefused},
    {TIFFTAG_DATATYPE, "DataType", reads::kRefused, writes::kRefused},
    {TIFFTAG_IMAGEDEPTH, "ImageDepth", reads::kDefaultedLong, writes::kRefused},
    {TIFFTAG_TILEDEPTH, "TileDepth", reads::kRefused, writes::kRefused},
    {TIFFTAG_PIXAR_IMAGEFULLWIDTH, "ImageFullWidth"},
    {TIFFTAG_PIXAR_IMAGEFULLLENGTH, "ImageFullLength"},
    {TIFFTAG_PIXAR_TEXTUREFORMAT, "TextureFormat"},
    {TIFFTAG_PIXAR_WRAPMODES, "TextureWrapModes"},
    {TIFFTAG_PIXAR_FOVCOT, "FieldOfViewCotangent"},
    {TIFFTAG_PIXAR_MATRIX_WORLDTOSCREEN, "MatrixWorldToScreen"},
    {TIFFTAG_PIXAR_MATRIX_WORLDTOCAMERA, "MatrixWorldToCamera"},
    {TIFFTAG_COPYRIGHT, "Copyright", reads::kText, writes::kText},
    {TIFFTAG_RICHTIFFIPTC, "RichTIFFIPTC", reads::kBytes, writes::kBytes},
    {TIFFTAG_PHOTOSHOP, "Photoshop", reads::kBytes, writes::kPhotoshop},
    {TIFFTAG_EXIFIFD, "EXIFIFDOffset"},
    {TIFFTAG_ICCPROFILE, "ICC Profile", reads::kBytes, writes::kBytes},
    {TIFFTAG_GPSIFD, "GPSIFDOffset"},
    {TIFFTAG_FAXRECVPARAMS, "FaxRecvParams"},
    {TIFFTAG_FAXSUBADDRESS, "FaxSubAddress"},
    {TIFFTAG_FAXRECVTIME, "FaxRecvTime"},
    {TIFFTAG_FAXDCS, "FaxDcs"},
    {TIFFTAG_STONITS, "StoNits", reads::kDouble, writes::kStoNits},
    {TIFFTAG_INTEROPERABILITYIFD, "InteroperabilityIFDOffset"},
    {tiffutils::kModelPixelScaleTag, "ModelPixelScaleTag", reads::kDoubles<3>,
     writes::kModelPixelScale},
    {tiffutils::kModelTransformationTag, "ModelTransformationTag", reads::kDoubles<16>,
     writes::kModelTransformation},
    {tiffutils::kModelTiepointTag, "ModelTiepointTag", reads::kTiepoints, writes::kTiepoints},
    {tiffutils::kGeoKeyDirectoryTag, "GeoKeyDirectoryTag", reads::kGeoKeys, writes::kGeoKeys},
    {tiffutils::kGeoDoubleParamsTag, "GeoDoubleParamsTag", reads::kAnyDoubles, writes::kAnyDoubles},
    {tiffutils::kGeoAsciiParamsTag, "GeoASCIIParamsTag", reads::kText, writes::kText},
    {tiffutils::kRpcCoefficientTag, "RPCCoefficientTag", reads::kRpcCoefficients,
     writes::kRpcCoefficients},
    {TIFFTAG_SGILOGDATAFMT, "SGILogDataFmt", reads::kLong, writes::kSgiLogDataFmt},
    {TIFFTAG_JPEGCOLORMODE, "JPEGColorMode", ReadKind{}, writes::kCodecLong},
    {TIFFTAG_ZIPQUALITY, "ZIPQuality", reads::kLong, writes::kCodecLong},
    {TIFFTAG_GROUP3OPTIONS, "Group3Options", reads::kLong, writes::kLong},
    {TIFFTAG_JPEGQUALITY, "JPEGQuality", reads::kLong, writes::kCodecLong},
    {TIFFTAG_PREDICTOR, "Predictor", reads::kShort, writes::kShort},
    {TIFFTAG_GROUP4OPTIONS, "Group4Options", reads::kLong, writes::kLong},
};
static_assert(std::size(kTags) == 104);

// Each tag once.
constexpr auto kSortedTags = [] {
  auto all = std::to_array(kTags);
  std::ranges::sort(all, {}, &TagRow::tag);
  std::array<TagRow, all.size() - 1> rows;
  std::ranges::unique_copy(all, rows.begin(), {}, &TagRow::tag);
  return rows;
}();
static_assert(std::ranges::adjacent_find(kSortedTags, std::ranges::greater_equal{}, &TagRow::tag) ==
              kSortedTags.end());

}  // namespace

std::span<const TagRow> tagTable() noexcept { return kSortedTags; }

const TagRow* findTag(std::uint32_t tag) noexcept {
  const auto found = std::ranges::lower_bound(kSortedTags, tag, {}, &TagRow::tag);
  return found != kSortedTags.end() && found->tag == tag ? &*found : nullptr;
}

const TagRow& tagRow(std::uint32_t tag) {
  const TagRow* row = findTag(tag);
  if (row == nullptr) raise<Tiff::unrecognizedTagNumber>(tag);
  return *row;
}

std::string tag_num_to_tag_name(TIFF*, std::uint32_t tag) { return std::string(tagRow(tag).name); }

}  // namespace tb

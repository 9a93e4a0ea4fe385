// The setField operation: one row for each tag that it accepts or refuses by name.

#include <algorithm>
#include <vector>

#include "core/edits.h"
#include "core/errors.h"
#include "core/open_files.h"
#include "tags/colour_setters.h"
#include "tags/handlers.h"
#include "tags/ink_setters.h"
#include "tags/layout_setters.h"
#include "tags/plain_writers.h"
#include "tags/tag_names.h"
#include "tags/tag_number.h"
#include "tags/tag_rows.h"
#include "tags/value_setters.h"

namespace tb {
namespace {

// DateTime's length in a file, without its NUL: YYYY:MM:DD HH:MM:SS.
constexpr std::size_t kDateTimeLength = 19;

int setDateTime(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  std::string text = unpack_string(value, tag, tagName);
  if (text.size() > kDateTimeLength) raise<Tiff::dateTimeTooLong>();
  text.resize(kDateTimeLength, ' ');
  return storeField(tif, tag, text.c_str());
}

int setColorMap(TIFF* tif, std::uint32_t tag, const std::string&, const vxArray* value) {
  std::vector<std::uint16_t> red, green, blue;
  unpack_colormap(tif, value, red, green, blue);
  return storeField(tif, tag, red.data(), green.data(), blue.data());
}

// The number of sub-directories that will follow; libtiff fills their offsets in. What holds no
// numbers would count as 0, or as its first letter, and cost the directory those that it has.
int setSubIfd(TIFF* tif, std::uint32_t tag, const std::string&, const vxArray* value) {
  const vxClassID classId = vxGetClassID(value);
  if (classId == vxCELL || classId == vxSTRUCT || classId == vxCHAR) {
    raise<validate::argumentOutOfBounds>();
  }
  const auto count = convertNumber<std::uint16_t>(vxGetScalar(value));
  const std::vector<std::uint64_t> offsets(count);
  return storeField<CountWidth::bits16>(tif, tag, count, offsets.data());
}

int setExtraSamples(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                    const vxArray* value) {
  // libtiff corrects the values where they lie: they must be a copy of the host's.
  auto kinds = unpackTagArray<std::uint16_t>(value, tag, tagName);
  if (kinds.size() > largestCount(CountWidth::bits16)) return 0;
  return storeField<CountWidth::bits16>(tif, tag, static_cast<std::uint32_t>(kinds.size()),
                                        kinds.data());
}

int setInkNamesWhenSeparated(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                             const vxArray* value) {
  checkForSeparatedPhotometricInterpretation(tif, tag, tagName);
  return setInkNames(tif, tag, value);
}

// libtiff's refusal of a sample range is not reported: callers rely on being able to set the range
// of any format.
int setSampleRange(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  (void)setSSampleValue(tif, tag, tagName, value);
  return 1;
}

[[noreturn]] int refuseUnsupported(TIFF*, std::uint32_t tag, const std::string& tagName,
                                   const vxArray*) {
  raise<Tiff::unsupportedTag>(tagName, tag);
}

constexpr const char* kOneShort = "one double, 0 to 65535";
constexpr const char* kOneLong = "one double, 0 to 4294967295";
constexpr const char* kTwoShorts = "two doubles, 0 to 65535";
constexpr const char* kSixFloats = "six doubles in single range";
constexpr const char* kByteArray = "uint8, any shape";
constexpr const char* kSeparated = "Photometric is 5";
constexpr const char* kColorimetry = "Photometric is 2, 3 or 6";

constexpr WriteKind kShort{setScalar<std::uint16_t>, kOneShort};
constexpr WriteKind kLong{setScalar<std::uint32_t>, kOneLong};
constexpr WriteKind kDimension{setDimension, kOneLong, "not 0"};
constexpr WriteKind kTileDimension{setTileDimension, kOneLong, "a multiple of 16; not 0"};
constexpr WriteKind kFloat{setReal<float>, "one double in single range"};
constexpr WriteKind kPair{setPair<>, kTwoShorts};
constexpr WriteKind kText{setText, "char, any shape"};
constexpr WriteKind kSampleRange{
    setSampleRange, "one double in the range of the samples' type",
    "SampleFormat is set; BitsPerSample is set; 0 or 1 for 1 bit; else the two go together: 8, 16 "
    "or 32 bits for formats 1 and 2, 32 or 64 for 3"};
constexpr WriteKind kBytes{setUninterpretedByteType, kByteArray};
constexpr WriteKind kRefused{refuseUnsupported, nullptr};

constexpr WriteRow kWriteRows[] = {
    {TIFFTAG_SUBFILETYPE, kLong},
    {TIFFTAG_IMAGEWIDTH, kDimension},
    {TIFFTAG_IMAGELENGTH, kDimension},
    {TIFFTAG_BITSPERSAMPLE,
     {setBitsPerSample, kOneShort,
      "1, 8, 16, 32 or 64; Photometric is set; 8 or 16 for Photometric 3, 8, 9 and 10; Photometric "
      "is not 32844 or 32845"}},
    {TIFFTAG_COMPRESSION,
     {setCompression, kOneShort,
      "Photometric is set; 1, 3, 4, 5, 7, 8, 32773, 32946, 34676 or 34677; BitsPerSample is 1 for "
      "3 and 4"}},
    {TIFFTAG_PHOTOMETRIC, {setPhotometric, kOneShort}},
    {TIFFTAG_THRESHHOLDING,
     {setThresholding, kOneShort, "1, 2 or 3; Photometric is set; Photometric is 0 or 1"}},
    {TIFFTAG_FILLORDER, kShort},
    {TIFFTAG_DOCUMENTNAME, kText},
    {TIFFTAG_IMAGEDESCRIPTION, kText},
    {TIFFTAG_MAKE, kText},
    {TIFFTAG_MODEL, kText},
    {TIFFTAG_ORIENTATION, kShort},
    {TIFFTAG_SAMPLESPERPIXEL,
     {setSamplesPerPixel, kOneShort,
      "Photometric is set; Photometric is not 32844 or 32845; BitsPerSample is set; 1 when "
      "BitsPerSample is 1"}},
    {TIFFTAG_ROWSPERSTRIP, kDimension},
    {TIFFTAG_MINSAMPLEVALUE, kShort},
    {TIFFTAG_MAXSAMPLEVALUE, kShort},
    {TIFFTAG_XRESOLUTION, kFloat},
    {TIFFTAG_YRESOLUTION, kFloat},
    {TIFFTAG_PLANARCONFIG,
     {setPlanarConfiguration, kOneShort,
      "1 or 2; Photometric is set; 1 for Photometric 32844 and 32845"}},
    {TIFFTAG_PAGENAME, kText},
    {TIFFTAG_XPOSITION, kFloat},
    {TIFFTAG_YPOSITION, kFloat},
    {TIFFTAG_GROUP3OPTIONS, kLong},
    {TIFFTAG_GROUP4OPTIONS, kLong},
    {TIFFTAG_RESOLUTIONUNIT, kShort},
    {TIFFTAG_PAGENUMBER, kPair},
    {TIFFTAG_TRANSFERFUNCTION,
     {setTransferFunction,
      "doubles, 0 to 65535: 2^BitsPerSample as a row or column for one sample per pixel, "
      "2^BitsPerSample-by-3 for three",
      "Photometric is 0, 1, 2, 3 or 6; two dimensions; SamplesPerPixel is 1 or 3; the shape; the "
      "class"}},
    {TIFFTAG_SOFTWARE, kText},
    {TIFFTAG_DATETIME,
     {setDateTime, "char, any shape; padded with blanks to 19 characters",
      "at most 19 characters"}},
    {TIFFTAG_ARTIST, kText},
    {TIFFTAG_HOSTCOMPUTER, kText},
    {TIFFTAG_PREDICTOR, kShort},
    {TIFFTAG_WHITEPOINT,
     {setWhitePoint, "two doubles in single range", "Photometric is 2, 3, 6, 8, 9 or 10"}},
    {TIFFTAG_PRIMARYCHROMATICITIES, {setPrimaryChromaticities, kSixFloats, kColorimetry}},
    {TIFFTAG_COLORMAP,
     {setColorMap, "double, 2^BitsPerSample-by-3, each element 0 to 1",
      "BitsPerSample is set; class and shape; the range"}},
    {TIFFTAG_HALFTONEHINTS, kPair},
    {TIFFTAG_TILEWIDTH, kTileDimension},
    {TIFFTAG_TILELENGTH, kTileDimension},
    {TIFFTAG_SUBIFD,
     {setSubIfd, "the number of sub-directories to follow, any class of numbers, 0 to 65535"}},
    {TIFFTAG_INKSET, {whenSeparated<setScalar<std::uint16_t>>, kOneShort, kSeparated}},
    {TIFFTAG_INKNAMES,
     {setInkNamesWhenSeparated, "a cell of NumberOfInks char arrays",
      "Photometric is 5; a cell; the number of cells; the class of each"}},
    {TIFFTAG_NUMBEROFINKS,
     {setNumberOfInks, kOneShort,
      "Photometric is 5; SamplesPerPixel is set; from SamplesPerPixel less the ExtraSamples to "
      "SamplesPerPixel"}},
    {TIFFTAG_DOTRANGE, {whenSeparated<setPair<"DotRange">>, kTwoShorts, kSeparated}},
    {TIFFTAG_TARGETPRINTER, {whenSeparated<setText>, "char, any shape", kSeparated}},
    {TIFFTAG_EXTRASAMPLES, {setExtraSamples, "doubles, 0 to 65535, any shape"}},
    {TIFFTAG_SAMPLEFORMAT,
     {setSampleFormat, kOneShort,
      "Photometric is set; Photometric is not 32844 or 32845; for 2 Photometric is 0 or 1, and "
      "BitsPerSample is set and not 1; not 4, 5 or 6"}},
    {TIFFTAG_SMINSAMPLEVALUE, kSampleRange},
    {TIFFTAG_SMAXSAMPLEVALUE, kSampleRange},
    {TIFFTAG_YCBCRCOEFFICIENTS,
     {setFloats<3, "YCbCrCoefficients">, "three doubles in single range"}},
    {TIFFTAG_YCBCRSUBSAMPLING, kPair},
    {TIFFTAG_YCBCRPOSITIONING, kShort},
    {TIFFTAG_REFERENCEBLACKWHITE, {setReferenceBlackWhite, kSixFloats, "Photometric is 2 or 6"}},
    {TIFFTAG_XMLPACKET, {setXmlPacket, "char, any shape", "at least 5 characters"}},
    {TIFFTAG_MATTEING, kRefused},
    {TIFFTAG_DATATYPE, kRefused},
    {TIFFTAG_IMAGEDEPTH, kRefused},
    {TIFFTAG_TILEDEPTH, kRefused},
    {TIFFTAG_COPYRIGHT, kText},
    {kModelPixelScaleTag, {setDoubles<3, "GeoPixelScale">, "three doubles"}},
    {TIFFTAG_RICHTIFFIPTC, kBytes},
    {kModelTiepointTag, {setRecords<double, 6>, "double, N-by-6, one tie point a row"}},
    {kModelTransformationTag,
     {setDoubles<16, "ModelTransformation">, "sixteen doubles, any shape, in storage order"}},
    {TIFFTAG_PHOTOSHOP, {setUninterpretedByteType, kByteArray, "at least 7 bytes"}},
    {TIFFTAG_ICCPROFILE, kBytes},
    {kGeoKeyDirectoryTag,
     {setRecords<std::uint16_t, 4>, "double, N-by-4, 0 to 65535, one key entry a row"}},
    {kGeoDoubleParamsTag, {setDoubles<>, "doubles, any shape"}},
    {kGeoAsciiParamsTag, kText},
    {TIFFTAG_STONITS, {setReal<double>, "one double"}},
    {kRpcCoefficientTag, {setDoubles<92, "RPCCoefficientTag">, "92 doubles"}},
    {TIFFTAG_JPEGQUALITY, kLong},
    {TIFFTAG_JPEGCOLORMODE, kLong},
    {TIFFTAG_ZIPQUALITY, kLong},
    {TIFFTAG_SGILOGDATAFMT,
     {setSgiLogDataFmt, kOneLong,
      "Photometric is set; Compression is 34676 or 34677; no format chosen yet; 0 or 3"}},
};
static_assert(std::ranges::is_sorted(kWriteRows, {}, &WriteRow::tag));

// Settings of a codec in the open handle, which are not stored in the file.
bool isCodecSetting(std::uint32_t tag) noexcept {
  return tag == TIFFTAG_JPEGQUALITY || tag == TIFFTAG_JPEGCOLORMODE || tag == TIFFTAG_ZIPQUALITY ||
         tag == TIFFTAG_SGILOGDATAFMT;
}

}  // namespace

std::span<const WriteRow> writeRows() { return kWriteRows; }

void TIFFSetField_handler(int, vxArrayPtr*, int, const vxArray* const* inputs, s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  const std::uint32_t tag = unpack_ttag_t(inputs[1]);
  // The mode comes before the name: a file open for reading refuses numbers that no tag has too.
  if (isReadOnly(tif) && !isCodecSetting(tag)) raise<Tiff::cannotWriteInReadMode>();
  const std::string tagName = tag_num_to_tag_name(tif, tag);

  const WriteRow* row = findRow(writeRows(), tag);
  if (row == nullptr) raise<Tiff::unrecognizedTagNumber>(tag);
  const EditScope edit(tif, tag);
  if (!row->kind.write(tif, tag, tagName, inputs[2])) raise<Tiff::unableToWriteTag>(tagName);
}

}  // namespace tb

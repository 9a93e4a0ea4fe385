#include "tags/value_setters.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "core/field_guard.h"
#include "tags/converters.h"
#include "tags/photometric_checks.h"

namespace tb {
namespace {

// DateTime's length in a file, without its NUL: YYYY:MM:DD HH:MM:SS.
constexpr std::size_t kDateTimeLength = 19;

using SampleConverter = double (*)(const vxArray*, std::uint32_t, const std::string&);

template <class T>
double throughType(const vxArray* value, std::uint32_t tag, const std::string& tagName) {
  return static_cast<double>(unpackTagArray<T>(value, tag, tagName).front());
}

struct SampleType {
  std::uint16_t bits, format;
  SampleConverter convert;
};
constexpr SampleType kSampleTypes[] = {
    {8, SAMPLEFORMAT_UINT, throughType<std::uint8_t>},
    {16, SAMPLEFORMAT_UINT, throughType<std::uint16_t>},
    {32, SAMPLEFORMAT_UINT, throughType<std::uint32_t>},
    {8, SAMPLEFORMAT_INT, throughType<std::int8_t>},
    {16, SAMPLEFORMAT_INT, throughType<std::int16_t>},
    {32, SAMPLEFORMAT_INT, throughType<std::int32_t>},
    {32, SAMPLEFORMAT_IEEEFP, throughType<float>},
    {64, SAMPLEFORMAT_IEEEFP, throughType<double>},
};

double biLevelValue(const vxArray* value, std::uint32_t tag, const std::string& tagName) {
  const double element = throughType<double>(value, tag, tagName);
  if (element != 0.0 && element != 1.0) raise<Tiff::badSMinMaxValueForBiLevelImage>(tagName);
  return element;
}

double sampleValue(const vxArray* value, std::uint32_t tag, const std::string& tagName,
                   std::uint16_t format, std::uint16_t bits) {
  if (bits == 1) return biLevelValue(value, tag, tagName);
  if (format < SAMPLEFORMAT_UINT || format > SAMPLEFORMAT_IEEEFP) return 0.0;
  const auto* type = std::ranges::find_if(kSampleTypes, [&](const SampleType& candidate) {
    return candidate.bits == bits && candidate.format == format;
  });
  if (type == std::end(kSampleTypes))
    raise<Tiff::badSampleFormatBitsPerSampleCombination>(format, bits);
  return type->convert(value, tag, tagName);
}

}  // namespace

int setSSampleValue(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                    const vxArray* value) {
  if (vxGetNumberOfElements(value) != 1) raise<Tiff::tagValueNotDoublePrecisionScalar>(tagName);
  const std::uint16_t format =
      requiredBeforeWrite(tif, TIFFTAG_SAMPLEFORMAT, "SampleFormat", tagName);
  const std::uint16_t bits =
      requiredBeforeWrite(tif, TIFFTAG_BITSPERSAMPLE, "BitsPerSample", tagName);
  (void)storeField(tif, tag, sampleValue(value, tag, tagName, format, bits));
  return 1;
}

int setUninterpretedByteType(TIFF* tif, std::uint32_t tag, const std::string& tagName,
                             const vxArray* value, std::uint32_t least) {
  if (vxGetClassID(value) != vxUINT8) raise<Tiff::badUninterpretedTagType>(tagName);
  const std::span bytes = elementsOf<std::uint8_t>(value);
  const auto count = convertNumber<std::uint32_t>(static_cast<double>(bytes.size()));
  if (count < least) raise<Tiff::lengthTooShort>(tagName, least);
  return storeArray<CountWidth::bits32>(tif, tag, bytes.first(count));
}

int setXmlPacket(TIFF* tif, std::uint32_t tag, const std::string&, const vxArray* value) {
  if (vxGetClassID(value) != vxCHAR) raise<Tiff::badXmlPacketTagType>();
  const std::size_t count = vxGetNumberOfElements(value);
  if (count <= 4) raise<Tiff::lengthTooShort>("XMP", 5);
  std::string text = matrix::get_string(value);
  text.resize(count);  // libtiff reads as many bytes as it is told, whatever the host delivers
  return storeArray<CountWidth::bits32>(tif, tag, std::span<const char>(text));
}

int setDateTime(TIFF* tif, std::uint32_t tag, const std::string& tagName, const vxArray* value) {
  std::string text = unpack_string(value, tag, tagName);
  if (text.size() > kDateTimeLength) raise<Tiff::dateTimeTooLong>();
  text.resize(kDateTimeLength, ' ');
  return storeField(tif, tag, text.c_str());
}

int setSubIfd(TIFF* tif, std::uint32_t tag, const std::string&, const vxArray* value) {
  const vxClassID classId = vxGetClassID(value);
  if (classId == vxCELL || classId == vxSTRUCT || classId == vxCHAR) {
    raise<validate::argumentOutOfBounds>();
  }
  const auto count = convertNumber<std::uint16_t>(vxGetScalar(value));
  const std::vector<std::uint64_t> offsets(count);
  return storeField<CountWidth::bits16>(tif, tag, count, offsets.data());
}

}  // namespace tb

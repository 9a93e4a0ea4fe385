// The metadata summary: selected members of the configuration record as one host structure.
#include <cstdint>

#include "core/image_metadata.h"
#include "core/open_files.h"
#include "core/values.h"
#include "handlers/handlers.h"

namespace tb {
namespace {

using Record = TiffImageMetaData_;

template <auto Member>
vxArrayPtr number(const Record& record) {
  return doubleScalar(static_cast<double>(record.*Member));
}

vxArrayPtr ycbcrSubsampling(const Record& record) {
  if (record.photometric == PHOTOMETRIC_YCBCR) {
    return doubleRow(std::span<const std::uint16_t>(record.ycbcrSubsampling));
  }
  constexpr std::size_t kEmpty[] = {0, 0};
  return matrix::detail::do_create_numeric(vxDOUBLE, kEmpty);
}

vxArrayPtr isTiled(const Record& record) { return logicalScalar(record.isTiled); }

struct FieldRow {
  const char* name;
  vxArrayPtr (*value)(const Record& record);
};

// In ASCII order of the names, which is the order of the structure's fields.
constexpr FieldRow kFields[] = {
    {"BitsPerSample", number<&Record::bitsPerSample>},
    {"Compression", number<&Record::compression>},
    {"ImageDepth", number<&Record::imageDepth>},
    {"ImageLength", number<&Record::imageLength>},
    {"ImageWidth", number<&Record::imageWidth>},
    {"JPEGColorMode", number<&Record::jpegColorMode>},
    {"PhotometricInterpretation", number<&Record::photometric>},
    {"PlanarConfiguration", number<&Record::planarConfig>},
    {"RowsPerStrip", number<&Record::rowsPerStrip>},
    {"SampleFormat", number<&Record::sampleFormat>},
    {"SamplesPerPixel", number<&Record::samplesPerPixel>},
    {"TileLength", number<&Record::tileLength>},
    {"TileWidth", number<&Record::tileWidth>},
    {"YCbCrSubsampling", ycbcrSubsampling},
    {"isTiled", isTiled},
    {"numExtraSamples", number<&Record::extraSamplesCount>},
};
constexpr std::size_t kFieldCount = std::size(kFields);

vxArrayPtr metadataStructure(const Record& record) {
  constexpr std::size_t kScalar[] = {1, 1};
  const char* names[kFieldCount];
  for (std::size_t field = 0; field < kFieldCount; ++field) names[field] = kFields[field].name;
  vxArrayPtr structure = matrix::detail::do_create_struct(kScalar, names);
  for (const FieldRow& field : kFields) {
    vxSetField(structure.get(), 0, field.name, field.value(record).release());
  }
  return structure;
}

}  // namespace

void retrieveMetadata_handler(int outputCount, vxArrayPtr* outputs, int,
                              const vxArray* const* inputs, s_tagbridge_op* op) {
  const Record record = imageMetadata(unpackTiffFileId(inputs[0], op));
  storeOutput(outputCount, outputs, 0, metadataStructure(record));
}

}  // namespace tb

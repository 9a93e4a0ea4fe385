#include "core/codec_tags.h"

#include <algorithm>
#include <iterator>

namespace tb {
namespace {

struct CodecTag {
  std::uint32_t tag;
  std::uint16_t compressions[6];  // 0 where there is no further one
};

constexpr CodecTag kCodecTags[] = {
    {TIFFTAG_GROUP3OPTIONS, {COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4}},
    {TIFFTAG_GROUP4OPTIONS, {COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4}},
    {TIFFTAG_PREDICTOR,
     {COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_DEFLATE, COMPRESSION_PIXARLOG,
      COMPRESSION_LZMA, COMPRESSION_ZSTD}},
    {TIFFTAG_BADFAXLINES,
     {COMPRESSION_CCITTRLE, COMPRESSION_CCITTRLEW, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4}},
    {TIFFTAG_CLEANFAXDATA,
     {COMPRESSION_CCITTRLE, COMPRESSION_CCITTRLEW, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4}},
    {TIFFTAG_CONSECUTIVEBADFAXLINES,
     {COMPRESSION_CCITTRLE, COMPRESSION_CCITTRLEW, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4}},
    {TIFFTAG_JPEGTABLES, {COMPRESSION_JPEG}},
};

}  // namespace

bool isTagOfAnotherCodec(std::uint32_t tag, std::uint16_t compression) noexcept {
  const auto* row = std::ranges::find(kCodecTags, tag, &CodecTag::tag);
  return row != std::end(kCodecTags) &&
         std::ranges::find(row->compressions, compression) == std::end(row->compressions);
}

void unsetCodecTags(TIFF* tif) noexcept {
  for (const CodecTag& row : kCodecTags) {
    const TIFFField* field = TIFFFindField(tif, row.tag, TIFF_ANY);
    // A tag that libtiff knows from the file only is no codec's.
    if (field != nullptr && !TIFFFieldIsAnonymous(field)) (void)TIFFUnsetField(tif, row.tag);
  }
}

}  // namespace tb

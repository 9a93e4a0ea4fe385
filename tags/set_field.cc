// The setField operation.
#include "core/arguments.h"
#include "core/edits.h"
#include "core/errors.h"
#include "core/open_files.h"
#include "tags/handlers.h"
#include "tags/tag_table.h"

namespace tb {
namespace {

bool isCodecSetting(std::uint32_t tag) noexcept {
  const TagRow* row = findTag(tag);
  return row != nullptr && row->writing.isCodecSetting;
}

}  // namespace

void TIFFSetField_handler(int, vxArrayPtr*, int, const vxArray* const* inputs, s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  const std::uint32_t tag = unpack_ttag_t(inputs[1]);
  // The mode comes before the name: a file open for reading refuses numbers that no tag has too.
  if (isReadOnly(tif) && !isCodecSetting(tag)) raise<Tiff::cannotWriteInReadMode>();
  const std::string tagName = tag_num_to_tag_name(tif, tag);

  TagSetter* const write = tagRow(tag).writing.write;
  if (write == nullptr) raise<Tiff::unrecognizedTagNumber>(tag);
  const EditScope edit(tif, tag);
  if (!write(tif, tag, tagName, inputs[2])) raise<Tiff::unableToWriteTag>(tagName);
}

}  // namespace tb

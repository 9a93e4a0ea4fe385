// The getField operation.
#include "core/arguments.h"
#include "core/errors.h"
#include "core/open_files.h"
#include "tags/handlers.h"
#include "tags/tag_table.h"

namespace tb {

void TIFFGetField_handler(int outputCount, vxArrayPtr* outputs, int, const vxArray* const* inputs,
                          s_tagbridge_op* op) {
  TIFF* tif = unpackTiffFileId(inputs[0], op);
  const std::uint32_t tag = unpack_ttag_t(inputs[1]);
  const std::string tagName = tag_num_to_tag_name(tif, tag);
  TagReader* const read = tagRow(tag).reading.read;
  if (read == nullptr) raise<Tiff::unhandledTagId>(tag);
  storeOutput(outputCount, outputs, 0, read(tif, tag, tagName));
}

}  // namespace tb

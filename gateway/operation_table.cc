// The operations. Opcode 4 is not assigned.
#include <algorithm>
#include <iterator>
#include <string_view>

#include "core/errors.h"
#include "core/operation.h"
#include "core/values.h"
#include "handlers/handlers.h"
#include "image/handlers.h"
#include "tags/handlers.h"

namespace tb {
namespace {

constexpr std::size_t kOperationCount = 25;

// The order of the rows is the order of the search.
constinit s_tagbridge_op operationTable[kOperationCount] = {
    // clang-format off
    {0,  1, 1, "close",             "TIFFClose",             TIFFClose_handler},
    {1,  2, 3, "computeStrip",      "TIFFComputeStrip",      TIFFComputeStrip_handler},
    {2,  2, 3, "computeTile",       "TIFFComputeTile",       TIFFComputeTile_handler},
    {3,  1, 1, "currentDirectory",  "TIFFCurrentDirectory",  TIFFCurrentDirectory_handler},
    {5,  2, 2, "getField",          "TIFFGetField",          TIFFGetField_handler},
    {6,  0, 0, "getVersion",        "TIFFGetVersion",        TIFFGetVersion_handler},
    {7,  1, 1, "isTiled",           "TIFFIsTiled",           TIFFIsTiled_handler},
    {8,  1, 1, "lastDirectory",     "TIFFLastDirectory",     TIFFLastDirectory_handler},
    {9,  1, 1, "numberOfStrips",    "TIFFNumberOfStrips",    TIFFNumberOfStrips_handler},
    {10, 1, 1, "numberOfTiles",     "TIFFNumberOfTiles",     TIFFNumberOfTiles_handler},
    {11, 2, 2, "open",              "TIFFOpen",              TIFFOpen_handler},
    {12, 1, 1, "readDirectory",     "TIFFReadDirectory",     TIFFReadDirectory_handler},
    {13, 2, 2, "readEncodedStrip",  "TIFFReadEncodedStrip",  TIFFReadEncodedStrip_handler},
    {14, 2, 3, "readEncodedTile",   "TIFFReadEncodedTile",   TIFFReadEncodedTile_handler},
    {15, 2, 2, "readRGBAStrip",     "TIFFReadRGBAStrip",     TIFFReadRGBAStrip_handler},
    {16, 3, 3, "readRGBATile",      "TIFFReadRGBATile",      TIFFReadRGBATile_handler},
    {17, 1, 1, "readRGBAImage",     "TIFFReadRGBAImage",     TIFFReadRGBAImage_handler},
    {18, 1, 1, "rewriteDirectory",  "TIFFRewriteDirectory",  TIFFRewriteDirectory_handler},
    {19, 1, 1, "retrieveMetadata",  "retrieveMetadata",      retrieveMetadata_handler},
    {20, 2, 2, "setDirectory",      "TIFFSetDirectory",      TIFFSetDirectory_handler},
    {21, 3, 3, "setField",          "TIFFSetField",          TIFFSetField_handler},
    {22, 2, 2, "setSubDirectory",   "TIFFSetSubDirectory",   TIFFSetSubDirectory_handler},
    {23, 1, 1, "writeDirectory",    "TIFFWriteDirectory",    TIFFWriteDirectory_handler},
    {24, 3, 5, "writeEncodedStrip", "TIFFWriteEncodedStrip", TIFFWriteEncodedStrip_handler},
    {25, 3, 5, "writeEncodedTile",  "TIFFWriteEncodedTile",  TIFFWriteEncodedTile_handler},
    // clang-format on
};

// The record of exactly this name; null when there is none.
template <class Text>
s_tagbridge_op* findOperation(const Text& name) {
  const auto found = std::ranges::find_if(operationTable, [&name](const s_tagbridge_op& op) {
    return std::ranges::equal(op.name, name);
  });
  return found != std::end(operationTable) ? found : nullptr;
}

s_tagbridge_op* checkInputs(s_tagbridge_op* op, int numberOfInputs) {
  if (numberOfInputs < op->minInputs || numberOfInputs > op->maxInputs) {
    raise<validate::wrongNumberOfInputs>();
  }
  return op;
}

}  // namespace

s_tagbridge_op* opname2opcode(const std::string& name, int numberOfInputs) {
  s_tagbridge_op* const op = findOperation(name);
  if (op == nullptr) raise<Tiff::InvalidOperation>(name);
  return checkInputs(op, numberOfInputs);
}

s_tagbridge_op* opname2opcode(const vxArray* name, int numberOfInputs) {
  // Nearly every name is that of an operation, and needs no copy to be found.
  if (vxGetClassID(name) == vxCHAR) {
    const std::u16string_view units(static_cast<const char16_t*>(vxGetData(name)),
                                    vxGetNumberOfElements(name));
    if (s_tagbridge_op* const op = findOperation(units)) return checkInputs(op, numberOfInputs);
  }
  const HostString text = hostString(name);
  return opname2opcode(text ? text.get() : "", numberOfInputs);
}

}  // namespace tb

// The module's one entry. Every call names an operation, is looked up in the operation table, and
// runs between the installation of the host's libtiff handlers and the report of what they
// collected.
#include "gateway/gateway.h"

#include <boost/numeric/conversion/cast.hpp>
#include <string>

#include "core/errors.h"
#include "core/operation.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

void installTiffHandlers() {
  ZQTIFFsetPreviousHandlers(TIFFSetErrorHandler(ZQTIFFerrHandler),
                            TIFFSetWarningHandler(ZQTIFFwarnHandler));
}

}  // namespace
}  // namespace tb

void tagbridge(int outputCount, vxArrayPtr* outputs, int inputCount, const vxArray* const* inputs) {
  tb::installTiffHandlers();
  ZQTIFFinitializeErrorStack();
  registerJPEG2000Codecs();
  // A call without inputs has the empty name, which no operation has.
  tb::s_tagbridge_op* op = inputCount < 1 ? tb::opname2opcode(std::string(), inputCount - 1)
                                          : tb::opname2opcode(inputs[0], inputCount - 1);
  try {
    op->handler(outputCount, outputs, inputCount - 1, inputs + 1, op);
  } catch (const boost::numeric::bad_numeric_cast&) {
    tb::raise<tb::validate::argumentOutOfBounds>();
  }
  ZQTIFFcheckErrorAsWarning();
}

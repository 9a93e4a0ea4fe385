// The module's one entry. Every call names an operation, is looked up in the operation table, and
// runs between the installation of the host's libtiff handlers and the report of what they
// collected.
#include "gateway/gateway.h"

#include <boost/numeric/conversion/cast.hpp>
#include <memory>
#include <string>

#include "gateway/errors.h"
#include "gateway/operation.h"
#include "host/tiff_utilities.h"

namespace tb {
namespace {

struct HostStringFree {
  void operator()(char* text) const noexcept { vxFree(text); }
};

void installTiffHandlers() {
  ZQTIFFsetPreviousHandlers(TIFFSetErrorHandler(ZQTIFFerrHandler),
                            TIFFSetWarningHandler(ZQTIFFwarnHandler));
}

// The operation name, empty when the first input is missing or is not text: no operation has that
// name.
std::string operationName(int inputCount, const vxArray* const* inputs) {
  if (inputCount < 1) return {};
  const std::unique_ptr<char, HostStringFree> text(vxArrayToString(inputs[0]));
  return text ? std::string(text.get()) : std::string();
}

}  // namespace
}  // namespace tb

void tagbridge(int outputCount, vxArrayPtr* outputs, int inputCount, const vxArray* const* inputs) {
  tb::installTiffHandlers();
  ZQTIFFinitializeErrorStack();
  registerJPEG2000Codecs();
  const std::string name = tb::operationName(inputCount, inputs);
  tb::s_tagbridge_op* op = tb::opname2opcode(name, inputCount - 1);
  try {
    op->handler(outputCount, outputs, inputCount - 1, inputs + 1, op);
  } catch (const boost::numeric::bad_numeric_cast&) {
    tb::raise<tb::validate::argumentOutOfBounds>();
  }
  ZQTIFFcheckErrorAsWarning();
}

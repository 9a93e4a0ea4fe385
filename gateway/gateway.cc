// The module's one entry. Every call waits for its turn on the file that it names, which installs
// the host's libtiff handlers; its operation is looked up in the operation table, runs, and what
// the handlers collected is reported.
#include "gateway/gateway.h"

#include <boost/numeric/conversion/cast.hpp>
#include <string>

#include "core/errors.h"
#include "core/operation.h"
#include "core/turns.h"
#include "host/tiff_utilities.h"

void tagbridge(int outputCount, vxArrayPtr* outputs, int inputCount, const vxArray* const* inputs) {
  const tb::CallTurn turn(inputCount > 1 ? inputs[1] : nullptr);
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

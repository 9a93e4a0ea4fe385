// A stand-in for the module: its entry does what its first input names, and its clean-up leaves a
// trace that a test can see.
#include <tiffio.h>

#include <stdexcept>
#include <string>

#include "host/array.h"
#include "host/errors.h"
#include "host/tiff_utilities.h"

extern "C" [[gnu::visibility("default")]] void tagbridge(int outputCount, vxArrayPtr* outputs,
                                                         int inputCount,
                                                         const vxArray* const* inputs) {
  TIFFSetErrorHandler(ZQTIFFerrHandler);
  ZQTIFFinitializeErrorStack();
  const std::string operation = inputCount > 0 ? matrix::get_string(inputs[0]) : "";
  if (operation == "say") TIFFError("plugin", "said");
  if (operation == "sayAndFail") {
    TIFFError("plugin", "said before failing");
    throw std::runtime_error("failed");
  }
  if (operation == "echo" && outputCount > 0) outputs[0] = matrix::create("echo");
  ZQTIFFcheckErrorAsWarning();
}

extern "C" [[gnu::visibility("default")]] void TagBridgeCleanup() {
  vxWarningMsgId(resource_core::BaseMsgID("plugin", "cleanup"));
  TIFFError("plugin", "said while cleaning up");
}

// OpenJPEG, with every failure an exception and every result checked.
#pragma once

#include <openjpeg.h>

#include <memory>

#include "runtime/codestream.h"

namespace tb::runtime {

struct OpjImageDeleter {
  void operator()(opj_image_t* image) const noexcept { opj_image_destroy(image); }
};
using OpjImage = std::unique_ptr<opj_image_t, OpjImageDeleter>;

// Decodes a codestream that checkCodestream has let pass. The image has the components that `size`
// says, each with all its samples. Throws CodestreamError.
OpjImage decodeCodestream(CodestreamBytes codestream, const CodestreamSize& size);

}  // namespace tb::runtime

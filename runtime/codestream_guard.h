// What a codestream must prove before OpenJPEG gets it. OpenJPEG takes missing tiles for zeros, and
// believes sizes that make a few kilobytes take gigabytes.
#pragma once

#include <cstdint>

#include "runtime/codestream.h"

namespace tb::runtime {

// Walks the headers of the codestream, whose SIZ has been read. Throws CodestreamError unless every
// tile is there with all its parts, up to the end marker; every packet can have a byte; and the
// memory that OpenJPEG needs, planes of samples included, stays within the limit.
void checkCodestream(CodestreamBytes codestream, const CodestreamSize& size,
                     std::uint64_t memoryLimit);

}  // namespace tb::runtime

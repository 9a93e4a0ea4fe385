#include "core/errors.h"

#include <cstddef>
#include <utility>

namespace tb {
namespace {

constexpr const char* kWarningNames[] = {
#define TAGBRIDGE_WARNING(id) #id,
    TAGBRIDGE_WARNINGS(TAGBRIDGE_WARNING)
#undef TAGBRIDGE_WARNING
};

}  // namespace

resource_core::BaseMsgID warningMessage(Warning warning) {
  return {"KORVAL:pictoria:Tiff", kWarningNames[static_cast<std::size_t>(warning)]};
}

void check_field_status(int status, std::string tagName) {
  if (status == 0) raise<Tiff::tagRetrievalFailed>(std::move(tagName));
}

}  // namespace tb

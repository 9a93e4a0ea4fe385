// Errors of the host itself. They are identified, reported and thrown as the module's are.
#pragma once

#include <exception>

#include "host/errors.h"

// NOLINTBEGIN(readability-identifier-naming): the names are the identifiers
namespace KORVAL::pictoria::host {

// A char element above 255 where one byte per character is wanted.
// Arguments: the element's value; its position counted from 1.
struct characterNotNarrow {
  static constexpr auto component = "KORVAL:pictoria:host";
  static constexpr auto name = "characterNotNarrow";
};

}  // namespace KORVAL::pictoria::host
// NOLINTEND(readability-identifier-naming)

namespace tb::runtime {

using CharacterNotNarrow =
    foundation::core::except::Exception<KORVAL::pictoria::host::characterNotNarrow, std::exception>;

}  // namespace tb::runtime

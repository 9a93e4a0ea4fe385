// The operation record and what every handler shares: its signature and its output slots.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "host/array.h"

namespace tb {

struct s_tagbridge_op;

// An operation's handler. `inputs` are the host's inputs after the operation name, `inputCount` of
// them, within the record's limits; `outputs` are the host's `outputCount` slots. A handler reports
// failure only by raising, and fills a slot only with a finished array.
using Handler = void(int outputCount, vxArrayPtr* outputs, int inputCount,
                     const vxArray* const* inputs, s_tagbridge_op* op);

// One row of the operation table. `opcode` 4 is not assigned; the numbers are never reused.
struct s_tagbridge_op {
  std::int32_t opcode;
  std::int32_t minInputs;  // after the operation name
  std::int32_t maxInputs;
  std::string_view name;      // as the caller spells it
  std::string_view tiffName;  // the libtiff function that it wraps
  Handler* handler;
};

// Opcode of "close", the one operation that accepts an identifier nobody knows.
inline constexpr std::int32_t kCloseOpcode = 0;

// The record of operation `name`, which stays owned by the table.
// Raises wrongNumberOfInputs when `numberOfInputs`, the inputs after the name, is outside the
// record's limits, and InvalidOperation(name) when no record has exactly this name.
s_tagbridge_op* opname2opcode(const std::string& name, int numberOfInputs);

// The same for a host's array. An array that is not text counts as the empty name; text ends at its
// first NUL, and an element above 255 is the host's own error.
s_tagbridge_op* opname2opcode(const vxArray* name, int numberOfInputs);

// Puts a finished array into a slot, releasing what the slot held. A result for which the caller
// supplied no slot is dropped.
void storeOutput(int outputCount, vxArrayPtr* outputs, int slot, vxArrayPtr value) noexcept;

}  // namespace tb

// Arrays that an embedding program makes besides those of host/array.h.
#pragma once

#include <cstddef>
#include <span>

#include "host/array.h"

namespace tb::runtime {

// An array of a numeric class, logical or char over `data`, which someone else owns and which holds
// the elements in storage order, suitably aligned for their type. `release(context)` is called once
// when the array no longer needs it: when the array is released, on whatever thread that happens,
// or before wrapMemory returns when there are fewer than 16 bytes of elements, which are copied so
// that 16 bytes can be read all the same. Nothing beyond the elements is read, and nothing is
// written: the module reads its inputs only. `release` must not throw.
// Throws std::bad_alloc as matrix::detail::do_create_numeric does and std::invalid_argument for any
// other class; `release` is not called then.
vxArrayPtr wrapMemory(vxClassID classId, std::span<const std::size_t> dimensions, const void* data,
                      void (*release)(void*), void* context);

}  // namespace tb::runtime

// Host arrays that calls leave for later ones: those of the operations' names, and 1-by-1 arrays
// for inputs. Nearly every input is such a one, and making one anew costs more than all else that
// is done for it.
#pragma once

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>

#include "host/array.h"
#include "python/numpy_api.h"

namespace tb::python {

// What one call uses of them. The names are shared by all calls; the 1-by-1 arrays are this call's
// until the object is gone, and a call that comes meanwhile has some of its own. Made, used and
// destroyed with the interpreter's lock held.
class KeptArrays {
 public:
  // So many of the first inputs have 1-by-1 arrays.
  static constexpr std::size_t kInputs = 8;

  KeptArrays();
  ~KeptArrays();
  KeptArrays(const KeptArrays&) = delete;
  KeptArrays& operator=(const KeptArrays&) = delete;

  // The array of an operation's name; null when none is kept for this object.
  static const vxArray* findName(PyObject* operation) noexcept;

  // Takes a name's array for good, and the name with it, when Python keeps the name for good too
  // and there are not too many names; else leaves it.
  static void keepName(PyObject* operation, vxArrayPtr&& array);

  // The array of `classId`, numeric or logical, that belongs to the input at `index`, less than
  // kInputs. Its element becomes the `size` bytes at `value`, which are all of it.
  const vxArray* scalar(std::size_t index, vxClassID classId, const void* value, std::size_t size) {
    Scalar& scalar = (*scalars_)[index][static_cast<std::size_t>(classId)];
    if (scalar.array == nullptr) scalar = created(classId);
    if (size == sizeof(double))  // nearly always, and then without a call
      std::memcpy(scalar.element, value, sizeof(double));
    else
      std::memcpy(scalar.element, value, size);
    return scalar.array.get();
  }

 private:
  struct Scalar {
    vxArrayPtr array;  // made when it is first wanted
    void* element = nullptr;
  };
  using Scalars = std::array<std::array<Scalar, vxUINT64 + 1>, kInputs>;
  struct Shared;

  static Scalar created(vxClassID classId);

  static Shared& s_shared;
  std::unique_ptr<Scalars> scalars_;
};

}  // namespace tb::python

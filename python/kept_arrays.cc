#include "python/kept_arrays.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace tb::python {
namespace {

// More than there are operations.
constexpr std::size_t kMostNames = 32;

// An interned name, referred to so that it stays unique, and its array.
struct OperationName {
  PyObject* object;
  vxArrayPtr array;
};

}  // namespace

struct KeptArrays::Shared {
  std::unique_ptr<Scalars> scalars;  // null while a call uses them
  // The names of operations that were called, as many spellings of them as kMostNames: what stands
  // behind a NUL does not count. Nothing is removed: a call may be using it.
  std::vector<OperationName> names;
};

// Left to the process on purpose, for it may be in use by a thread that the end of the interpreter
// surprises.
KeptArrays::Shared& KeptArrays::s_shared = *std::make_unique<Shared>().release();

KeptArrays::KeptArrays() : scalars_(std::move(s_shared.scalars)) {
  if (scalars_ == nullptr) scalars_ = std::make_unique<Scalars>();
}

KeptArrays::~KeptArrays() { s_shared.scalars = std::move(scalars_); }

const vxArray* KeptArrays::findName(PyObject* operation) noexcept {
  const auto found = std::ranges::find(s_shared.names, operation, &OperationName::object);
  return found != s_shared.names.end() ? found->array.get() : nullptr;
}

void KeptArrays::keepName(PyObject* operation, vxArrayPtr&& array) {
  if (!PyUnicode_CHECK_INTERNED(operation) || s_shared.names.size() == kMostNames) return;
  // Another thread may have kept it while this call ran.
  if (findName(operation) != nullptr) return;
  s_shared.names.push_back({operation, std::move(array)});
  Py_INCREF(operation);
}

KeptArrays::Scalar KeptArrays::created(vxClassID classId) {
  constexpr std::size_t kDimensions[] = {1, 1};
  vxArrayPtr array = matrix::detail::do_create_numeric(classId, kDimensions);
  void* const element = vxGetWritableData(array.get());
  return {std::move(array), element};
}

}  // namespace tb::python

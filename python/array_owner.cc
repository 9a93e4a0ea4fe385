// A type of its own rather than a capsule, which takes several times as long to make and to end:
// every result has an owner. A few ended ones are kept for the next results.
#include "python/array_owner.h"

#include <array>
#include <utility>

namespace py = pybind11;

namespace tb::python {
namespace {

struct ArrayOwner {
  PyObject head;
  vxArray* array;
};

// Guarded by the interpreter's lock, and without a destructor: Python may end objects until the
// process is gone.
constinit std::array<ArrayOwner*, 16> s_idle{};
constinit std::size_t s_idleCount = 0;

void endOwner(PyObject* object) {
  auto* const owner = reinterpret_cast<ArrayOwner*>(object);
  PyTypeObject* const type = Py_TYPE(object);
  matrix::destroyArray(owner->array);
  if (s_idleCount < s_idle.size())
    s_idle[s_idleCount++] = owner;
  else
    PyObject_Free(owner);
  Py_DECREF(type);
}

constinit PyTypeObject* s_type = nullptr;

ArrayOwner* takeIdle() {
  ArrayOwner* const owner = s_idle[--s_idleCount];
  PyObject_Init(&owner->head, s_type);
  return owner;
}

}  // namespace

void makeOwnerType() {
  PyType_Slot slots[] = {{Py_tp_dealloc, reinterpret_cast<void*>(&endOwner)}, {0, nullptr}};
  PyType_Spec spec{"tagbridge.HostArray", sizeof(ArrayOwner), 0,
                   Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, slots};
  PyObject* const type = PyType_FromSpec(&spec);
  if (type == nullptr) throw py::error_already_set();
  s_type = reinterpret_cast<PyTypeObject*>(type);
}

py::object ownerOf(vxArrayPtr array) {
  ArrayOwner* const owner = s_idleCount > 0 ? takeIdle() : PyObject_New(ArrayOwner, s_type);
  if (owner == nullptr) throw py::error_already_set();
  owner->array = array.release();
  return py::reinterpret_steal<py::object>(&owner->head);
}

}  // namespace tb::python

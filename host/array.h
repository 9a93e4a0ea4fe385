// The host's arrays, as the module sees them. A host implements every function declared here; the
// module calls nothing else to create, read or release an array.
//
// An array has a class, at least two dimensions and its elements in column-major order: element
// (r, c, p) of an M-by-N-by-P array is at index r + c*M + p*M*N. Dimensions of 1 beyond the second
// are dropped from the end. Arrays are real; there is no complex class.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

// Opaque: only the host knows its contents.
struct vxArray;

// Class codes. The numbers are part of the interface.
enum vxClassID : int {
  vxUNKNOWN = 0,
  vxCELL = 1,     // each element an array
  vxSTRUCT = 2,   // each element a set of named arrays
  vxLOGICAL = 3,  // one byte, 0 or 1
  vxCHAR = 4,     // one UTF-16 unit
  vxVOID = 5,
  vxDOUBLE = 6,
  vxSINGLE = 7,
  vxINT8 = 8,
  vxUINT8 = 9,
  vxINT16 = 10,
  vxUINT16 = 11,
  vxINT32 = 12,
  vxUINT32 = 13,
  vxINT64 = 14,
  vxUINT64 = 15,
};

// Releases an array with everything it holds; a null pointer is ignored. Defined by the host.
struct vxDestroy_deleter {
  void operator()(vxArray* array) const noexcept;
};

// An array and its owner. Output slots are of this type: assigning to a slot releases what it held.
using vxArrayPtr = std::unique_ptr<vxArray, vxDestroy_deleter>;

// --- Reading an array. The array stays its owner's; pointers stay valid until it is released.

vxClassID vxGetClassID(const vxArray* array) noexcept;

// "logical", "char", "double", "single", "int8" ... "uint64", "cell", "struct"; "unknown" else.
const char* vxGetClassName(const vxArray* array) noexcept;

// Number of dimensions as the host counts them: 2 for a matrix, also for a scalar.
std::size_t vxGetNumberOfDimensions(const vxArray* array) noexcept;

// The dimensions, rows first, vxGetNumberOfDimensions of them.
const std::size_t* vxGetDimensions(const vxArray* array) noexcept;

// Product of all dimensions.
std::size_t vxGetNumberOfElements(const vxArray* array) noexcept;

// Bytes an element takes: 1 for logical, 2 for char, the size of a pointer for cell and struct.
std::size_t vxGetElementSize(const vxArray* array) noexcept;

// True when a dimension is 0.
bool vxIsEmpty(const vxArray* array) noexcept;

// The elements in storage order. At least 16 bytes can be read from here whatever the array's size,
// and those beyond the elements are 0, so that a value shorter than expected is safe to read. For a
// cell or struct it points to 16 bytes of 0: the arrays inside are not to be had this way.
const void* vxGetData(const vxArray* array) noexcept;

// The same place for writing the elements of an array that the caller owns. Null for cell and
// struct.
void* vxGetWritableData(vxArray* array) noexcept;

// The elements of a logical array for writing; null for every other class.
bool* vxGetLogicals(vxArray* array) noexcept;

// The first element as a double; 0 for an empty array, a cell or a struct.
double vxGetScalar(const vxArray* array) noexcept;

// The array at `index` (storage order) of a cell; null when that cell was never set or does not
// exist.
const vxArray* vxGetCell(const vxArray* cell, std::size_t index) noexcept;

// Field names of a struct in order, and the array of a field at element `index`; null when there is
// none.
std::size_t vxGetNumberOfFields(const vxArray* structure) noexcept;
const char* vxGetFieldNameByNumber(const vxArray* structure, std::size_t field) noexcept;
const vxArray* vxGetField(const vxArray* structure, std::size_t index, const char* name) noexcept;

// --- Changing a cell or struct. Both take over `value` and release what stood there.

void vxSetCell(vxArray* cell, std::size_t index, vxArray* value) noexcept;
// `name` must be one of the struct's fields.
void vxSetField(vxArray* structure, std::size_t index, const char* name, vxArray* value) noexcept;

// --- Text and memory

// The elements of a char array of any shape in storage order, narrowed to one byte each and ended
// by a NUL; the caller releases it with vxFree. Null when the array is not of class char. An
// element above 255 raises the host's own identified error.
char* vxArrayToString(const vxArray* array);

// `count` * `size` zeroed bytes at a multiple of 64, released with vxFree. Throws std::bad_alloc,
// before any memory is touched, when the product overflows or exceeds the host's memory limit.
void* vxCalloc(std::size_t count, std::size_t size);

// The same with indeterminate contents.
void* vxMalloc(std::size_t size);

// Whether the host's memory limit allows `size` bytes at once. Nothing is allocated: it is asked
// where memory is needed in several pieces, or is taken by a library. Sizes that follow from a file
// have 64 bits on every machine.
bool vxIsWithinMemoryLimit(std::uint64_t size) noexcept;

// Releases what vxArrayToString, vxCalloc or vxMalloc returned; null is ignored.
void vxFree(void* memory) noexcept;

namespace matrix {

// A 1-by-N char array with one element, 0 to 255, for each byte of `text`; empty text gives 0-by-0.
vxArrayPtr create(std::string_view text);

// The text of a char array, as vxArrayToString narrows it but with every NUL kept.
std::string get_string(const vxArray* array);

// The UTF-16 units of a char array in storage order.
std::u16string get_ustring(const vxArray* array);

// Releases an array; null is ignored.
void destroyArray(vxArray* array) noexcept;

namespace detail {

// A new array of a numeric class, logical or char. Fewer than two dimensions are filled up with 1.
// Throws std::bad_alloc, before any memory is touched, when the size overflows or exceeds the
// host's memory limit. do_create_numeric fills it with 0, do_create_uninitnumeric leaves the
// elements for the caller to fill before anyone else sees them.
vxArrayPtr do_create_numeric(vxClassID classId, std::span<const std::size_t> dimensions);
vxArrayPtr do_create_uninitnumeric(vxClassID classId, std::span<const std::size_t> dimensions);

// A cell array whose cells are all unset.
vxArrayPtr do_create_cell(std::span<const std::size_t> dimensions);

// A struct array with the fields `names` in that order, all unset.
vxArrayPtr do_create_struct(std::span<const std::size_t> dimensions,
                            std::span<const char* const> names);

}  // namespace detail
}  // namespace matrix

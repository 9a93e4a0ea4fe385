// Several blocks are read and copied into an image in one go without the interpreter's lock, so
// that threads, each with a handle of its own, meet there once for many blocks.
#include "python/read_blocks.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "python/bridge.h"
#include "python/inputs.h"
#include "python/messages.h"
#include "python/numpy_api.h"
#include "python/place_blocks.h"

namespace py = pybind11;

namespace tb::python {
namespace {

// A block's number, and the rows and columns of the image that it covers: first, and after the
// last.
using Block = std::tuple<std::uint32_t, npy_intp, npy_intp, npy_intp, npy_intp>;

// The row, column and sample of the image that the target begins with.
using Origin = std::array<npy_intp, 3>;

PyArrayObject* arrayOf(const py::object& object) {
  if (PyArray_Check(object.ptr()) == 0) throw py::type_error("read_blocks() fills an array");
  return reinterpret_cast<PyArrayObject*>(object.ptr());
}

// Positions along one dimension that a block and the target share, counted from the start of each.
struct Shared {
  npy_intp ofBlock, ofTarget, count;
};

Shared shared(npy_intp first, npy_intp stop, npy_intp origin, npy_intp length) {
  const npy_intp from = std::max(first, origin), to = std::min(stop, origin + length);
  return {from - first, from - origin, std::max<npy_intp>(to - from, 0)};
}

// The block as the module has read it. Null data when it has other elements than the target.
Columns columnsOfBlock(const vxArray* array, std::size_t itemSize) {
  const std::size_t* const size = vxGetDimensions(array);
  const bool isVolume = vxGetNumberOfDimensions(array) > 2;
  const auto rows = static_cast<npy_intp>(size[0]), columns = static_cast<npy_intp>(size[1]);
  const auto item = static_cast<npy_intp>(itemSize);
  const bool fits = vxGetElementSize(array) == itemSize;
  return {fits ? const_cast<std::byte*>(static_cast<const std::byte*>(vxGetData(array))) : nullptr,
          size[0] * itemSize,
          columns,
          isVolume ? static_cast<npy_intp>(size[2]) : 1,
          rows * item,
          rows * columns * item};
}

// Fills one target with the blocks of one file.
class Reader {
 public:
  Reader(const py::str& operation, const py::object& file, const py::object& target,
         const Origin& origin)
      : operation_(operation.ptr()), origin_(origin), item_(PyArray_ITEMSIZE(arrayOf(target))) {
    operation_.add(file.ptr());
    number_ = numberArray();
    target_ = columnsOf(target.ptr(), static_cast<int>(item_));
    rows_ = PyArray_DIM(arrayOf(target), 0);
  }

  // Without the interpreter's lock. Stops at the first call that fails.
  void read(const std::vector<Block>& blocks) noexcept try {
    std::vector<vxArrayPtr> arrays;
    for (const Block& block : blocks) {
      arrays.push_back(readOne(std::get<0>(block)));
      if (failed_) return;
    }
    place(blocks, arrays);
  } catch (...) {
    unexpected_ = std::current_exception();
  }

  // With it again. Raises what went wrong.
  py::list finish() {
    if (unexpected_ != nullptr) std::rethrow_exception(unexpected_);
    if (failed_) raiseFailure();
    py::list said;
    for (const auto& [number, warnings] : said_)
      said.append(py::make_tuple(number, warningObjects(warnings)));
    return said;
  }

 private:
  static vxArrayPtr numberArray() {
    constexpr std::size_t kDimensions[] = {1, 1};
    return matrix::detail::do_create_numeric(vxDOUBLE, kDimensions);
  }

  vxArrayPtr readOne(std::uint32_t number) {
    *static_cast<double*>(vxGetWritableData(number_.get())) = number;
    const vxArray* const inputs[] = {operation_.arrays()[0], operation_.arrays()[1], number_.get()};
    std::array<vxArrayPtr, 1> outputs;
    Outcome outcome = callReleased(outputs, inputs);
    if (outcome.failure != nullptr) {
      failed_ = std::move(outcome);
    } else if (!outcome.warnings.empty()) {
      said_.emplace_back(number, std::move(outcome.warnings));
    }
    return std::move(outputs[0]);
  }

  // The blocks lie below each other.
  void place(const std::vector<Block>& blocks, const std::vector<vxArrayPtr>& arrays) const {
    if (blocks.empty()) return;
    const auto [number, top, bottom, left, right] = blocks.front();
    const Shared columns = shared(left, right, origin_[1], target_.columns);
    std::vector<Columns> parts;
    std::vector<std::vector<std::byte>> fitted;
    std::optional<npy_intp> firstRow;
    std::size_t columnBytes = 0;
    for (std::size_t index = 0; index < blocks.size(); ++index) {
      const auto [own, first, stop, from, to] = blocks[index];
      const Shared rows = shared(first, stop, origin_[0], rows_);
      if (rows.count == 0) continue;
      if (!firstRow) firstRow = rows.ofTarget;
      parts.push_back(
          part(arrays[index].get(), {stop - first, right - left}, rows, columns, fitted));
      columnBytes += parts.back().columnBytes;
    }
    if (parts.empty() || columns.count == 0) return;
    Columns to = target_;
    to.data += *firstRow * item_ + columns.ofTarget * to.columnStride;
    to.columnBytes = columnBytes;
    to.columns = columns.count;
    copyColumns(to, parts);
  }

  // What the target takes of a block. A block of another size than its extent says is put between
  // zeros, in memory that `fitted` keeps.
  Columns part(const vxArray* array, std::array<npy_intp, 2> size, const Shared& rows,
               const Shared& columns, std::vector<std::vector<std::byte>>& fitted) const {
    const auto item = static_cast<std::size_t>(item_);
    Columns block = columnsOfBlock(array, item);
    const npy_intp samples = origin_[2] + target_.samples;
    const auto rowBytes = static_cast<std::size_t>(size[0] * item_);
    if (block.data == nullptr || block.columnBytes != rowBytes || block.columns != size[1] ||
        block.samples < samples) {
      block = fit(block, {rowBytes, size[1], samples}, fitted.emplace_back());
    }
    block.data += rows.ofBlock * item_ + columns.ofBlock * block.columnStride +
                  origin_[2] * block.sampleStride;
    block.columnBytes = static_cast<std::size_t>(rows.count * item_);
    block.columns = columns.count;
    block.samples = target_.samples;
    return block;
  }

  struct Size {
    std::size_t columnBytes;
    npy_intp columns, samples;
  };

  static Columns fit(const Columns& block, Size size, std::vector<std::byte>& memory) {
    const auto stride = static_cast<npy_intp>(size.columnBytes);
    memory.resize(size.columnBytes * static_cast<std::size_t>(size.columns * size.samples));
    const Columns whole{memory.data(), size.columnBytes, size.columns,
                        size.samples,  stride,           stride * size.columns};
    if (block.data == nullptr) return whole;
    Columns common = whole, source = block;
    common.columnBytes = source.columnBytes = std::min(whole.columnBytes, block.columnBytes);
    common.columns = std::min(whole.columns, block.columns);
    common.samples = std::min(whole.samples, block.samples);
    copyColumns(common, {source});
    return whole;
  }

  [[noreturn]] void raiseFailure() const {
    py::object fromWarning;
    if (!failed_->warnings.empty()) fromWarning = issueWarnings(failed_->warnings);
    if (failed_->error == nullptr) std::rethrow_exception(failed_->failure);
    const py::object error = errorObject(*failed_->error, failed_->diagnostics);
    if (fromWarning) PyException_SetContext(error.ptr(), fromWarning.release().ptr());
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
  }

  Inputs operation_;  // the name and the file
  vxArrayPtr number_;
  Columns target_{};
  npy_intp rows_ = 0;
  Origin origin_;
  npy_intp item_;
  std::vector<std::pair<std::uint32_t, std::vector<resource_core::BaseMsgID>>> said_;
  std::optional<Outcome> failed_;
  std::exception_ptr unexpected_;
};

// The number of dimensions and the dtype are the caller's business, the columns are not.
py::list readBlocks(const py::str& operation, const py::object& file,
                    const std::vector<Block>& blocks, const py::object& target,
                    const Origin& origin) {
  if (PyArray_FailUnlessWriteable(arrayOf(target), "target") < 0) throw py::error_already_set();
  Reader reader(operation, file, target, origin);
  withoutInterpreter([&] { reader.read(blocks); });
  return reader.finish();
}

}  // namespace

void addReadBlocks(py::module_& extension) {
  extension.def("read_blocks", &readBlocks, py::arg("operation"), py::arg("file"),
                py::arg("blocks"), py::arg("target"), py::arg("origin"));
}

}  // namespace tb::python

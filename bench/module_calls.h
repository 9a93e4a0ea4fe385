// Calls of the loaded module, with arguments made in advance as a loop of a host's would have them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

#include "host/array.h"
#include "runtime/loader.h"

namespace tb::bench {

// Loads the module of this build.
runtime::Module loadModule();

// A file that is open in the module. `module` must outlive it.
class ModuleFile {
 public:
  ModuleFile(runtime::Module& module, const std::filesystem::path& path, const char* mode);
  ~ModuleFile();
  ModuleFile(const ModuleFile&) = delete;
  ModuleFile& operator=(const ModuleFile&) = delete;

  runtime::Module& module() const noexcept { return module_; }
  const vxArray* id() const noexcept { return id_.get(); }

 private:
  runtime::Module& module_;
  vxArrayPtr id_;
};

// An operation on a file and perhaps a block number. The output slot is used again in each call,
// so that a result is released when the next one replaces it.
class Operation {
 public:
  // `outputs` slots are offered: 1 for an image, 3 for YCbCr, 0 for a write.
  Operation(const ModuleFile& file, std::string_view name, int outputs = 1);

  void operator()();
  void operator()(std::uint32_t block);
  void operator()(std::uint32_t block, const vxArray* image);

  // Hands over the first result of the last call.
  vxArrayPtr takeResult() noexcept { return std::move(outputs_[0]); }

 private:
  void call(std::initializer_list<const vxArray*> arguments);

  runtime::Module& module_;
  vxArrayPtr name_;
  const vxArray* file_;
  vxArrayPtr number_;
  std::vector<vxArrayPtr> outputs_;
};

}  // namespace tb::bench

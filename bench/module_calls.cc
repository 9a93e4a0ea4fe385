#include "bench/module_calls.h"

namespace tb::bench {
namespace {

vxArrayPtr openFile(runtime::Module& module, const std::filesystem::path& path, const char* mode) {
  const vxArrayPtr operation = matrix::create("open"), name = matrix::create(path.string()),
                   access = matrix::create(mode);
  const vxArray* const inputs[] = {operation.get(), name.get(), access.get()};
  vxArrayPtr id;
  module.call(1, &id, 3, inputs);
  return id;
}

vxArrayPtr numberArray() {
  const std::size_t dimensions[] = {1, 1};
  return matrix::detail::do_create_numeric(vxDOUBLE, dimensions);
}

}  // namespace

runtime::Module loadModule() { return runtime::Module::load(TAGBRIDGE_MODULE); }

ModuleFile::ModuleFile(runtime::Module& module, const std::filesystem::path& path, const char* mode)
    : module_(module), id_(openFile(module, path, mode)) {}

ModuleFile::~ModuleFile() {
  const vxArrayPtr operation = matrix::create("close");
  const vxArray* const inputs[] = {operation.get(), id_.get()};
  module_.call(0, nullptr, 2, inputs);
}

Operation::Operation(const ModuleFile& file, std::string_view name, int outputs)
    : module_(file.module()),
      name_(matrix::create(name)),
      file_(file.id()),
      number_(numberArray()),
      outputs_(static_cast<std::size_t>(outputs)) {}

void Operation::operator()() { call({name_.get(), file_}); }

void Operation::operator()(std::uint32_t block) {
  *static_cast<double*>(vxGetWritableData(number_.get())) = block;
  call({name_.get(), file_, number_.get()});
}

void Operation::operator()(std::uint32_t block, const vxArray* image) {
  *static_cast<double*>(vxGetWritableData(number_.get())) = block;
  call({name_.get(), file_, number_.get(), image});
}

void Operation::call(std::initializer_list<const vxArray*> arguments) {
  for (vxArrayPtr& output : outputs_) output.reset();
  module_.call(static_cast<int>(outputs_.size()), outputs_.data(),
               static_cast<int>(arguments.size()), arguments.begin());
}

}  // namespace tb::bench

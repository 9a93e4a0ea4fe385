// The module as a host meets it: a library that is loaded at run time. Nothing of the module is
// linked into this test.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/errors.h"
#include "runtime/loader.h"
#include "runtime/memory.h"
#include "runtime/reporting.h"
#include "tests/support/arrays.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using foundation::core::except::IMsgIDException;
using runtime::Module;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

template <class Id>
using ErrorOf = foundation::core::except::Exception<Id, std::exception>;

class Plugin : public testing::Test {
 protected:
  Plugin() {
    runtime::setWarningSink([this](const resource_core::BaseMsgID& warning) {
      warnings_.push_back(warning.identifier());
    });
    writeTiff(path_, {Layout{}});
  }
  ~Plugin() override {
    module_.reset();
    runtime::setWarningSink({});
  }

  vxArrayPtr call(const std::vector<vxArrayPtr>& inputs) {
    std::vector<const vxArray*> arrays;
    arrays.reserve(inputs.size());
    for (const vxArrayPtr& input : inputs) arrays.push_back(input.get());
    vxArrayPtr output;
    module_->call(1, &output, static_cast<int>(arrays.size()), arrays.data());
    return output;
  }
  template <class... In>
  vxArrayPtr call(const char* operation, In... inputs) {
    std::vector<vxArrayPtr> arrays;
    arrays.push_back(text(operation));
    (arrays.push_back(std::move(inputs)), ...);
    return call(arrays);
  }
  vxArrayPtr open() { return call("open", text(path_.string()), text("r")); }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "gray.tif";
  std::vector<std::string> warnings_;
  std::optional<Module> module_ = Module::load(TAGBRIDGE_PLUGIN);
};

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator first("/proc/self/fd"), last;
  return static_cast<std::size_t>(std::distance(first, last));
}

// Names of the functions and objects that a library defines for others, demangled.
std::vector<std::string> exportedNames(const std::string& library) {
  const std::string command = TAGBRIDGE_NM " -D -C --defined-only '" + library + "'";
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::vector<std::string> names;
  char line[4096];
  while (fgets(line, sizeof line, pipe.get()) != nullptr) {
    const std::string whole(line);  // address, type letter, name
    const std::size_t start = whole.find(' ') + 3;
    names.push_back(whole.substr(start, whole.find('\n') - start));
  }
  return names;
}

TEST_F(Plugin, ExportsTheEntryTheCleanupAndTheRegistryAndNothingElse) {
  EXPECT_THAT(exportedNames(TAGBRIDGE_PLUGIN),
              UnorderedElementsAre("tagbridge", "TagBridgeCleanup", "tb::packUpTiffFileId(tiff*)",
                                   "tb::unpackTiffFileId(vxArray const*)",
                                   "tb::unpackTiffFileId(vxArray const*, tb::s_tagbridge_op*)",
                                   "tb::getFileID(vxArray const*)", "tb::TiffAtExitRegister(tiff*)",
                                   "tb::TiffAtExitUnregister(tiff*)",
                                   "tb::TiffFilePointerIsInvalid(tiff*)"));
}

TEST_F(Plugin, RegistryCanBeAskedByOtherCodeOfTheHost) {
  const std::unique_ptr<void, int (*)(void*)> library(
      dlopen(TAGBRIDGE_PLUGIN, RTLD_NOW | RTLD_NOLOAD), dlclose);
  ASSERT_NE(library, nullptr);
  using Unpack = TIFF*(const vxArray*);
  using IsInvalid = bool(TIFF*);
  auto* unpack =
      reinterpret_cast<Unpack*>(dlsym(library.get(), "_ZN2tb16unpackTiffFileIdEPK7vxArray"));
  auto* isInvalid =
      reinterpret_cast<IsInvalid*>(dlsym(library.get(), "_ZN2tb24TiffFilePointerIsInvalidEP4tiff"));
  ASSERT_NE(unpack, nullptr);
  ASSERT_NE(isInvalid, nullptr);

  const vxArrayPtr id = open();
  TIFF* tif = unpack(id.get());
  EXPECT_STREQ(TIFFFileName(tif), path_.c_str());
  EXPECT_FALSE(isInvalid(tif));
  EXPECT_THROW(unpack(row({1}).get()), ErrorOf<Tiff::invalidFileId>);
}

TEST_F(Plugin, ErrorsAreCaughtByTypeAcrossTheBoundary) {
  EXPECT_THROW(call("nothing"), ErrorOf<Tiff::InvalidOperation>);
  EXPECT_THROW(call("open"), ErrorOf<validate::wrongNumberOfInputs>);
  EXPECT_THROW(call("isTiled", row({0})), ErrorOf<Tiff::badFileId>);
  EXPECT_THROW(call("isTiled", row({1})), ErrorOf<Tiff::invalidFileId>);
  EXPECT_THROW(call("computeStrip", open(), row({-1})), ErrorOf<validate::argumentOutOfBounds>);
  EXPECT_THROW(call("readEncodedStrip", open(), row({9})), ErrorOf<Tiff::badStripNumber>);
}

TEST_F(Plugin, ErrorsAreCaughtAsTheirBasesAcrossTheBoundary) {
  EXPECT_THROW(call("nothing"), std::exception);
  try {
    call("nothing");
    FAIL() << "nothing was raised";
  } catch (const IMsgIDException& error) {
    EXPECT_EQ(error.message().identifier(), "KORVAL:pictoria:Tiff:InvalidOperation");
    EXPECT_THAT(error.message().arguments(),
                ElementsAre(resource_core::BaseMsgID::Argument("nothing")));
  }
}

TEST_F(Plugin, ReporterSeesTheSameClass) {
  bool seen = false;
  runtime::setErrorReporter([&](const foundation::core::except::IUserException& error) {
    seen = dynamic_cast<const ErrorOf<Tiff::badFileId>*>(&error) != nullptr;
  });
  EXPECT_THROW(call("isTiled", row({0})), ErrorOf<Tiff::badFileId>);
  runtime::setErrorReporter({});
  EXPECT_TRUE(seen);
}

TEST_F(Plugin, LackOfMemoryPassesAsItIs) {
  std::vector<vxArrayPtr> inputs;
  inputs.push_back(text("readEncodedStrip"));
  inputs.push_back(open());
  inputs.push_back(row({0}));
  runtime::setMemoryLimit(16);
  EXPECT_THROW(call(inputs), std::bad_alloc);
  runtime::setMemoryLimit(0);
}

TEST_F(Plugin, UnloadingClosesFilesAndPutsLibtiffsHandlersBack) {
  open();
  const std::size_t before = openDescriptors();
  TIFFErrorHandler whileLoaded = TIFFSetErrorHandler(nullptr);
  TIFFSetErrorHandler(whileLoaded);
  module_.reset();
  EXPECT_THAT(warnings_, ElementsAre("KORVAL:pictoria:Tiff:closingFileHandle"));
  EXPECT_EQ(openDescriptors(), before - 1);
  EXPECT_NE(TIFFSetErrorHandler(nullptr), whileLoaded) << "a handler of the module stayed behind";
}

TEST_F(Plugin, CleansUpOnceAtUnload) {
  open();
  module_->cleanup();
  module_->cleanup();
  EXPECT_EQ(warnings_.size(), 1U);
  module_.reset();
  EXPECT_EQ(warnings_.size(), 1U);
}

TEST_F(Plugin, IsUsableAgainAfterBeingUnloadedAndLoaded) {
  for (int turn = 0; turn < 3; ++turn) {
    const vxArrayPtr strip = call("readEncodedStrip", open(), row({0}));
    EXPECT_EQ(vxGetNumberOfElements(strip.get()), 256U);
    module_.reset();
    module_ = Module::load(TAGBRIDGE_PLUGIN);
  }
  EXPECT_EQ(warnings_.size(), 3U);
}

TEST_F(Plugin, LibrariesWithoutTheEntriesAreNotLoaded) {
  EXPECT_THROW(Module::load(folder_ / "missing.so"), std::runtime_error);
  EXPECT_THROW(Module::load(path_), std::runtime_error);
  EXPECT_THROW(Module::load(TAGBRIDGE_RUNTIME), std::runtime_error);
}

}  // namespace
}  // namespace tb::test

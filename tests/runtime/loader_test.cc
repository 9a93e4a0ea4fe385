// Loading a plug-in, calling it, and what is left of a call.
#include "runtime/loader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "runtime/reporting.h"
#include "tests/support/temporary_folder.h"

namespace tb::test {
namespace {

using runtime::Diagnostic;
using runtime::Module;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string failure(const std::function<void()>& act) {
  try {
    act();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

class Loader : public testing::Test {
 protected:
  void SetUp() override {
    runtime::setWarningSink(
        [this](const resource_core::BaseMsgID& warning) { warnings_.push_back(warning.name()); });
  }
  ~Loader() override { runtime::setWarningSink(nullptr); }

  static void call(Module& module, const char* operation) {
    const vxArrayPtr name = matrix::create(operation);
    const vxArray* const inputs[] = {name.get()};
    module.call(0, nullptr, 1, inputs);
  }

  std::vector<std::string> warnings_;
};

TEST_F(Loader, SaysThatAPluginDoesNotExist) {
  EXPECT_THAT(failure([] { (void)Module::load("/nonexistent/plugin.so"); }),
              HasSubstr("/nonexistent/plugin.so"));
}

TEST_F(Loader, SaysThatAFileIsNoLibrary) {
  const TemporaryFolder folder;
  std::ofstream(folder / "plugin.so") << "not a library";
  EXPECT_THAT(failure([&] { (void)Module::load(folder / "plugin.so"); }), HasSubstr("plugin.so"));
}

TEST_F(Loader, SaysWhichEntryALibraryLacks) {
  EXPECT_THAT(failure([] { (void)Module::load(TAGBRIDGE_RUNTIME_LIBRARY); }),
              HasSubstr("tagbridge"));
  EXPECT_THAT(warnings_, IsEmpty());
}

TEST_F(Loader, DoesNotSearchTheSystemForABareName) {
  EXPECT_NE(failure([] { (void)Module::load("libtiff.so.6"); }).find("cannot open"),
            std::string::npos);
}

TEST_F(Loader, LeavesResultsInTheOutputSlots) {
  Module module = Module::load(TAGBRIDGE_TEST_PLUGIN);
  const vxArrayPtr name = matrix::create("echo");
  const vxArray* const inputs[] = {name.get()};
  vxArrayPtr outputs[2];
  module.call(2, outputs, 1, inputs);
  EXPECT_EQ(matrix::get_string(outputs[0].get()), "echo");
  EXPECT_EQ(outputs[1], nullptr);
}

TEST_F(Loader, KeepsDiagnosticsOfASucceedingCall) {
  Module module = Module::load(TAGBRIDGE_TEST_PLUGIN);
  call(module, "say");
  EXPECT_THAT(module.diagnostics(), ElementsAre(Diagnostic{false, "plugin", "said"}));
  EXPECT_THAT(warnings_, ElementsAre("libtiffError"));
  call(module, "nothing");
  EXPECT_THAT(module.diagnostics(), IsEmpty());
}

TEST_F(Loader, KeepsDiagnosticsOfAFailingCall) {
  Module module = Module::load(TAGBRIDGE_TEST_PLUGIN);
  EXPECT_EQ(failure([&] { call(module, "sayAndFail"); }), "failed");
  EXPECT_THAT(module.diagnostics(),
              ElementsAre(Diagnostic{false, "plugin", "said before failing"}));
  EXPECT_THAT(warnings_, IsEmpty());
}

TEST_F(Loader, CleansUpOnceWhenTheModuleEnds) {
  {
    Module module = Module::load(TAGBRIDGE_TEST_PLUGIN);
    call(module, "nothing");
  }
  EXPECT_THAT(warnings_, ElementsAre("cleanup", "libtiffError"));
}

TEST_F(Loader, CleansUpOnRequestAndNotAgain) {
  {
    Module module = Module::load(TAGBRIDGE_TEST_PLUGIN);
    call(module, "nothing");
    module.cleanup();
    module.cleanup();
  }
  EXPECT_THAT(warnings_, ElementsAre("cleanup", "libtiffError"));
}

TEST_F(Loader, CleansUpAgainAfterAnotherCall) {
  {
    Module module = Module::load(TAGBRIDGE_TEST_PLUGIN);
    call(module, "nothing");
    module.cleanup();
    call(module, "nothing");
  }
  EXPECT_EQ(std::ranges::count(warnings_, "cleanup"), 2);
}

TEST_F(Loader, UnloadsThoughAWarningStopsTheCleanup) {
  runtime::setWarningSink([](const auto&) { throw std::runtime_error("stop"); });
  Module module = Module::load(TAGBRIDGE_TEST_PLUGIN);
  call(module, "nothing");
  EXPECT_EQ(failure([&] { module.cleanup(); }), "stop");
  call(module, "nothing");
}

TEST_F(Loader, CanBeMoved) {
  {
    Module first = Module::load(TAGBRIDGE_TEST_PLUGIN);
    call(first, "say");
    Module second = std::move(first);
    EXPECT_EQ(second.diagnostics().size(), 1U);
    call(second, "nothing");
    second = Module::load(TAGBRIDGE_TEST_PLUGIN);
    warnings_.clear();
  }
  EXPECT_THAT(warnings_, IsEmpty());
}

}  // namespace
}  // namespace tb::test

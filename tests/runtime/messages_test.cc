// Collecting what libtiff says: any text, any number, on the right thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "host/errors.h"
#include "host/tiff_utilities.h"
#include "runtime/loader.h"
#include "runtime/reporting.h"

namespace tb::runtime {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> forwarded;

extern "C" void rememberForwarded(const char* module, const char* format, std::va_list) {
  forwarded.push_back(std::string(module != nullptr ? module : "null") + "/" + format);
}

// Somebody who stored our handler as the previous one and hands everything on to it.
extern "C" void handBack(const char* module, const char* format, std::va_list arguments) {
  forwarded.push_back("handed back");
  ZQTIFFerrHandler(module, format, arguments);
}

class Messages : public testing::Test {
 protected:
  void SetUp() override {
    forwarded.clear();
    TIFFSetErrorHandler(rememberForwarded);
    TIFFSetWarningHandler(rememberForwarded);
    install();
    ZQTIFFinitializeErrorStack();
    setWarningSink([this](const resource_core::BaseMsgID& warning) {
      reported_.push_back(warning.name() + "|" + std::get<std::string>(warning.arguments().at(0)) +
                          "|" + std::get<std::string>(warning.arguments().at(1)));
    });
  }
  ~Messages() override {
    setWarningSink(nullptr);
    ZQTIFFinitializeErrorStack();
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    ZQTIFFsetPreviousHandlers(nullptr, nullptr);
  }

  // What the gateway does at every entry.
  static void install() {
    const TIFFErrorHandler error = TIFFSetErrorHandler(ZQTIFFerrHandler);
    const TIFFErrorHandler warning = TIFFSetWarningHandler(ZQTIFFwarnHandler);
    ZQTIFFsetPreviousHandlers(error, warning);
  }

  std::vector<std::string> reported_;
};

TEST_F(Messages, AreReportedInOrderAsWarnings) {
  const GatewayScope inside;
  TIFFError("first", "%s %d", "value", 1);
  TIFFWarning("second", "plain");
  ZQTIFFcheckErrorAsWarning();
  EXPECT_THAT(reported_, ElementsAre("libtiffError|first|value 1", "libtiffWarning|second|plain"));
  EXPECT_THAT(forwarded, IsEmpty());
}

TEST_F(Messages, AreReportedOnceAndKeptAsDiagnostics) {
  const GatewayScope inside;
  TIFFError("m", "once");
  ZQTIFFcheckErrorAsWarning();
  ZQTIFFcheckErrorAsWarning();
  EXPECT_EQ(reported_.size(), 1U);
  EXPECT_THAT(collectedDiagnostics(), ElementsAre(Diagnostic{false, "m", "once"}));
  ZQTIFFinitializeErrorStack();
  EXPECT_THAT(collectedDiagnostics(), IsEmpty());
}

TEST_F(Messages, AreNotRepeatedAfterASinkThatThrows) {
  const GatewayScope inside;
  TIFFError("m", "one");
  TIFFError("m", "two");
  setWarningSink([](const auto&) { throw std::runtime_error("stop"); });
  EXPECT_THROW(ZQTIFFcheckErrorAsWarning(), std::runtime_error);
  setWarningSink([this](const auto&) { reported_.push_back("again"); });
  ZQTIFFcheckErrorAsWarning();
  EXPECT_THAT(reported_, IsEmpty());
}

TEST_F(Messages, MayHaveNoModuleName) {
  const GatewayScope inside;
  TIFFError(nullptr, "no %s", "module");
  EXPECT_THAT(collectedDiagnostics(), ElementsAre(Diagnostic{false, "", "no module"}));
}

class MessageLength : public Messages, public testing::WithParamInterface<std::size_t> {};

TEST_P(MessageLength, IsKeptUpToFourKibibytes) {
  const GatewayScope inside;
  std::string text(GetParam(), 'x');
  for (std::size_t at = 0; at < text.size(); ++at) text[at] = static_cast<char>('a' + at % 26);
  TIFFError("m", "%s", text.c_str());
  ASSERT_EQ(collectedDiagnostics().size(), 1U);
  EXPECT_EQ(collectedDiagnostics().front().message, text.substr(0, 4096));
}
INSTANTIATE_TEST_SUITE_P(Lengths, MessageLength,
                         testing::Values(0, 1, 510, 511, 512, 513, 4095, 4096, 4097, 1000000));

TEST_F(Messages, MayHoldAnyText) {
  const GatewayScope inside;
  TIFFError("m", "%s", "100% {0} \xff\n");
  EXPECT_EQ(collectedDiagnostics().front().message, "100% {0} \xff\n");
}

TEST_F(Messages, AreCountedBeyondAHundred) {
  const GatewayScope inside;
  for (int i = 0; i < 5000; ++i) TIFFWarning("m", "line %d", i);
  ZQTIFFcheckErrorAsWarning();
  ASSERT_EQ(reported_.size(), 101U);
  EXPECT_EQ(reported_[99], "libtiffWarning|m|line 99");
  EXPECT_EQ(reported_[100], "libtiffWarning|libtiff|4900 more messages");
}

TEST_F(Messages, AreForwardedOutsideTheModule) {
  { const GatewayScope inside; }
  TIFFError("m", "outside");
  EXPECT_THAT(forwarded, ElementsAre("m/outside"));
  EXPECT_THAT(collectedDiagnostics(), IsEmpty());
}

TEST_F(Messages, AreForwardedOnOtherThreads) {
  const GatewayScope inside;
  std::thread([] {
    TIFFError("m", "elsewhere");
    EXPECT_THAT(collectedDiagnostics(), IsEmpty());
  }).join();
  EXPECT_THAT(forwarded, ElementsAre("m/elsewhere"));
  EXPECT_THAT(collectedDiagnostics(), IsEmpty());
}

TEST_F(Messages, AreStillCollectedAfterANestedScope) {
  const GatewayScope inside;
  { const GatewayScope nested; }
  TIFFError("m", "inside");
  EXPECT_EQ(collectedDiagnostics().size(), 1U);
}

TEST_F(Messages, InstallingTwiceDoesNotForwardInACircle) {
  install();
  TIFFError("m", "outside");
  EXPECT_THAT(forwarded, ElementsAre("m/outside"));
}

TEST_F(Messages, AHandlerThatHandsBackEndsTheChain) {
  TIFFSetErrorHandler(handBack);
  install();
  TIFFError("m", "outside");
  EXPECT_THAT(forwarded, ElementsAre("handed back"));
}

TEST_F(Messages, AreDroppedWhereNobodyListenedBefore) {
  ZQTIFFsetPreviousHandlers(nullptr, nullptr);
  TIFFError("m", "outside");
  EXPECT_THAT(forwarded, IsEmpty());
}

TEST_F(Messages, GoToThePreviousHandlersAfterRestoring) {
  ZQTIFFrestorePreviousHandlers();
  const GatewayScope inside;
  TIFFError("m", "after");
  EXPECT_THAT(forwarded, ElementsAre("m/after"));
}

TEST_F(Messages, RestoringLeavesLaterHandlersInPlace) {
  TIFFSetErrorHandler(handBack);
  ZQTIFFrestorePreviousHandlers();
  EXPECT_EQ(TIFFSetErrorHandler(nullptr), handBack);
}

}  // namespace
}  // namespace tb::runtime

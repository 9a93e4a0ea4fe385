// libtiff's handlers serve the whole process, in which other libraries may use libtiff on other
// threads. Messages are therefore collected for each thread, and only while it is inside the
// module; every other message goes to the handlers that were there before. The embedded host's
// handles have handlers of their own besides: another library may replace the process's at any
// time.
#include "runtime/messages.h"

#include <tiffio.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <string>
#include <utility>

#include "host/errors.h"
#include "host/tiff_utilities.h"

namespace tb::runtime {
namespace {

// A damaged file can make libtiff say something for every tag or scan line.
constexpr std::size_t kMostMessages = 100;
constexpr std::size_t kLongestMessage = 4096;

struct ErrorStack {
  std::vector<Diagnostic> messages;
  std::size_t reported = 0;  // the first so many were reported as warnings
  std::size_t dropped = 0;   // came after kMostMessages
};

thread_local ErrorStack stack;
// False when `stack` holds nothing: libtiff has nothing to say in most calls, and reaching an
// object with a destructor takes longer than all that they would do with it.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool stackIsUsed = false;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool insideModule = false;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool forwarding = false;

constinit std::atomic<TIFFErrorHandler> previousError = nullptr;
constinit std::atomic<TIFFErrorHandler> previousWarning = nullptr;

std::string formatted(const char* format, std::va_list arguments) {
  std::array<char, 512> start;
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(start.data(), start.size(), format, arguments);
  std::string text;
  if (length >= 0 && static_cast<std::size_t>(length) < start.size()) {
    text.assign(start.data(), static_cast<std::size_t>(length));
  } else if (length >= 0) {
    text.resize(std::min(static_cast<std::size_t>(length), kLongestMessage));
    (void)std::vsnprintf(text.data(), text.size() + 1, format, again);
  }
  va_end(again);
  return text;
}

void collect(bool warning, const char* module, const char* format, std::va_list arguments) {
  stackIsUsed = true;
  if (stack.messages.size() >= kMostMessages) {
    ++stack.dropped;
    return;
  }
  stack.messages.push_back(
      {warning, module != nullptr ? module : "", formatted(format, arguments)});
}

// A handler installed before ours may itself hand on to ours.
void forward(TIFFErrorHandler handler, const char* module, const char* format,
             std::va_list arguments) noexcept {
  if (handler == nullptr || forwarding) return;
  forwarding = true;
  handler(module, format, arguments);
  forwarding = false;
}

void handle(bool warning, const char* module, const char* format, std::va_list arguments) noexcept
    try {
  if (insideModule)
    collect(warning, module, format, arguments);
  else
    forward(warning ? previousWarning : previousError, module, format, arguments);
} catch (...) {
  // Without memory the message is lost; libtiff's frames must not be unwound.
}

// A handle's own handler. What it returns keeps libtiff from handing the message on.
template <bool warning>
int handleOwn(TIFF*, void*, const char* module, const char* format,
              std::va_list arguments) noexcept {
  if (!insideModule) return 0;
  handle(warning, module, format, arguments);
  return 1;
}

void say(bool warning, const char* module, const char* format, std::va_list arguments) noexcept
    try {
  if (insideModule) return collect(warning, module, format, arguments);
  (warning ? TIFFWarning : TIFFError)(module, "%s", formatted(format, arguments).c_str());
} catch (...) {
  // Without memory the message is lost.
}

// The last message of a call stands for those beyond the limit.
void mentionDropped() {
  if (stack.dropped == 0) return;
  const std::size_t dropped = std::exchange(stack.dropped, 0);
  stack.messages.push_back({true, "libtiff", std::to_string(dropped) + " more messages"});
}

bool isOurs(TIFFErrorHandler handler) noexcept {
  return handler == ZQTIFFerrHandler || handler == ZQTIFFwarnHandler;
}

using InstallHandler = TIFFErrorHandler(TIFFErrorHandler);

// Leaves a handler in place that somebody installed after ours.
void reinstall(InstallHandler* install, TIFFErrorHandler previous) noexcept {
  const TIFFErrorHandler current = install(previous);
  if (!isOurs(current)) install(current);
}

}  // namespace

GatewayScope::GatewayScope() noexcept : outer_(std::exchange(insideModule, true)) {}

GatewayScope::~GatewayScope() { insideModule = outer_; }

struct OutsideScope::Kept {
  ErrorStack messages = std::exchange(stack, {});
  bool used = std::exchange(stackIsUsed, false);
  bool inside = std::exchange(insideModule, false);
};

OutsideScope::OutsideScope() : kept_(std::make_unique<Kept>()) {}

OutsideScope::~OutsideScope() {
  stack = std::move(kept_->messages);
  stackIsUsed = kept_->used;
  insideModule = kept_->inside;
}

std::vector<Diagnostic> collectedDiagnostics() {
  if (!stackIsUsed) return {};
  mentionDropped();
  return stack.messages;
}

void collectMessagesOf(TIFFOpenOptions* options) noexcept {
  TIFFOpenOptionsSetErrorHandlerExtR(options, handleOwn<false>, nullptr);
  TIFFOpenOptionsSetWarningHandlerExtR(options, handleOwn<true>, nullptr);
}

// NOLINTBEGIN(cert-dcl50-cpp): libtiff's own functions are such
void sayError(const char* module, const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  say(false, module, format, arguments);
  va_end(arguments);
}

void sayWarning(const char* module, const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  say(true, module, format, arguments);
  va_end(arguments);
}
// NOLINTEND(cert-dcl50-cpp)

std::size_t messageCount() noexcept { return stack.messages.size(); }

void dropRepeatedMessages(std::size_t start) noexcept {
  std::vector<Diagnostic>& messages = stack.messages;
  const std::size_t length = messages.size() - std::min(start, messages.size());
  if (length == 0 || length > start) return;
  const auto run = messages.end() - static_cast<std::ptrdiff_t>(length);
  if (std::equal(run, messages.end(), run - static_cast<std::ptrdiff_t>(length)))
    messages.erase(run, messages.end());
}

}  // namespace tb::runtime

void ZQTIFFerrHandler(const char* module, const char* format, std::va_list arguments) {
  tb::runtime::handle(false, module, format, arguments);
}

void ZQTIFFwarnHandler(const char* module, const char* format, std::va_list arguments) {
  tb::runtime::handle(true, module, format, arguments);
}

void ZQTIFFsetPreviousHandlers(TIFFErrorHandler error, TIFFErrorHandler warning) noexcept {
  if (!tb::runtime::isOurs(error)) tb::runtime::previousError = error;
  if (!tb::runtime::isOurs(warning)) tb::runtime::previousWarning = warning;
}

void ZQTIFFrestorePreviousHandlers() noexcept {
  tb::runtime::reinstall(TIFFSetErrorHandler, tb::runtime::previousError);
  tb::runtime::reinstall(TIFFSetWarningHandler, tb::runtime::previousWarning);
}

void ZQTIFFinitializeErrorStack() {
  if (!std::exchange(tb::runtime::stackIsUsed, false)) return;
  tb::runtime::ErrorStack& stack = tb::runtime::stack;
  stack.messages.clear();
  stack.reported = stack.dropped = 0;
}

std::size_t ZQTIFFmessageCount() noexcept {
  if (!tb::runtime::stackIsUsed) return 0;
  return tb::runtime::stack.messages.size() + tb::runtime::stack.dropped;
}

void ZQTIFFforgetMessages(std::size_t count) noexcept {
  if (!tb::runtime::stackIsUsed) return;
  tb::runtime::ErrorStack& stack = tb::runtime::stack;
  const std::size_t kept = stack.messages.size();
  if (count >= kept + stack.dropped) return;
  stack.dropped = count > kept ? count - kept : 0;
  if (count < kept) {
    stack.messages.erase(stack.messages.begin() + static_cast<std::ptrdiff_t>(count),
                         stack.messages.end());
  }
}

void ZQTIFFcheckErrorAsWarning() {
  if (!tb::runtime::stackIsUsed) return;
  tb::runtime::ErrorStack& stack = tb::runtime::stack;
  if (stack.reported == stack.messages.size()) return;
  tb::runtime::mentionDropped();
  // Marked and copied first: the host's sink may throw, or call the module again.
  const std::size_t first = std::exchange(stack.reported, stack.messages.size());
  const std::vector<tb::runtime::Diagnostic> messages(
      stack.messages.begin() + static_cast<std::ptrdiff_t>(first), stack.messages.end());
  for (const tb::runtime::Diagnostic& said : messages) {
    resource_core::BaseMsgID warning("KORVAL:pictoria:tiffutils",
                                     said.warning ? "libtiffWarning" : "libtiffError");
    warning.append(said.module);
    warning.append(said.message);
    vxWarningMsgId(warning);
  }
}

// Calls of the gateway from several threads at once.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <initializer_list>
#include <string>
#include <vector>

#include "gateway/gateway.h"
#include "runtime/messages.h"
#include "tests/support/arrays.h"
#include "tests/support/gateway_call.h"

namespace tb::test {

// What a thread's last call said, by the identifiers of its warnings.
inline thread_local std::vector<std::string> said;

// One call, as a host makes it; the support's own keeps one record for the process.
inline vxArrayPtr callOnThread(std::initializer_list<Input> inputs) {
  const runtime::GatewayScope scope;
  std::vector<const vxArray*> arrays;
  for (const Input& input : inputs) arrays.push_back(input.array());
  said.clear();
  vxArrayPtr output;
  tagbridge(1, &output, static_cast<int>(arrays.size()), arrays.data());
  return output;
}

// The identifier of the error that a call ends in; empty when it ends well.
inline std::string errorOf(std::initializer_list<Input> inputs) {
  try {
    callOnThread(inputs);
    return {};
  } catch (const foundation::core::except::IMsgIDException& error) {
    return error.message().name();
  }
}

inline void onThreads(int count, const std::function<void(int)>& work) {
  std::vector<std::future<void>> threads;
  for (int number = 0; number < count; ++number)
    threads.push_back(std::async(std::launch::async, work, number));
  for (std::future<void>& thread : threads) {
    try {
      thread.get();
    } catch (const foundation::core::except::IMsgIDException& error) {
      ADD_FAILURE() << error.messageText();
    }
  }
}

}  // namespace tb::test

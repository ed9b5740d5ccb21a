// Running what belongs to an owner thread from a test.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <type_traits>

#include "vendor/vendor_sdk_executor.h"

namespace ostrel_native {

/// Runs `fn` on the owner thread of `executor`, and gives its result.
template <typename F>
auto OnOwnerOf(VendorSdkExecutor& executor, F fn) {
  constexpr std::chrono::minutes kLong{1};
  if constexpr (std::is_void_v<std::invoke_result_t<F&>>) {
    EXPECT_TRUE(executor.InvokeVoid(fn, kLong));
  } else {
    return executor.Invoke(fn, kLong).value();
  }
}

}  // namespace ostrel_native

// The microscope's binding over its fake library, empty at the start of each test.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "devices/ostrel_binding.h"
#include "devices/ostrel_telemetry.h"
#include "fakes/fake_library.h"

namespace ostrel_native {

inline constexpr char kEarlierError[] = "an earlier error";

/// Sends a command whose last word is a float, which the fake takes as its bits.
inline void SendFloat(const FakeLibrary& library, std::string command, float value) {
  library.Send(command.append(" ").append(std::to_string(std::bit_cast<std::int32_t>(value))));
}

struct OstrelTest : testing::Test {
  OstrelTest() {
    fake.Send("reset");
    g_ostrel.handle = nullptr;
    g_ostrel.loaded = false;
    g_ostrel.initialized = false;
    g_ostrel.path.clear();
    g_ostrel.selectedDevice = -1;
    g_ostrel.api = {};
    g_ostrel.SetBindingError("");
    ResetOstrelTelemetry();
    ClearOstrelVersionSnapshots();
  }

  // A test may leave a poll's pass behind.
  ~OstrelTest() override {
    fake.Send("reset");
    Flush();
  }

  /// Loads the fake, or its variant without `missing`, and gives the fake for scripting it.
  FakeLibrary Load(const std::string& missing = "") {
    const std::string path =
        FakePath(missing.empty() ? "libostrel.so" : "without_" + missing + "/libostrel.so");
    FakeLibrary library(path);
    library.Send("reset");
    EXPECT_TRUE(g_ostrel.Load(path));
    return library;
  }

  /// Waits until all that was posted to the owner thread has ended.
  static void Flush() {
    ASSERT_TRUE(g_ostrelExecutor.InvokeVoid([] {}, std::chrono::minutes(1)));
  }

  static void SetErrors(const std::string& text) { g_ostrel.SetBindingError(text); }

  /// The binding's own text and the addon's.
  static std::vector<std::string> Errors() {
    const std::lock_guard lock(g_ostrel.errorMutex);
    return {g_ostrel.lastError, GetLastErrorString()};
  }

  static std::vector<std::string> Both(const std::string& text) { return {text, text}; }

  FakeLibrary fake{FakePath("libostrel.so")};
};

}  // namespace ostrel_native

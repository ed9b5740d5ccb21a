// The microscope's binding over its fake library, empty at the start of each test.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "devices/ostrel_binding.h"
#include "devices/ostrel_telemetry.h"
#include "fakes/fake_library.h"
#include "unit/support/device_library.h"
#include "unit/support/on_owner.h"

namespace ostrel_native {

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
    EXPECT_TRUE(TryLoad(path));
    return library;
  }

  /// Runs `fn` on the owner thread, and gives its result.
  template <typename F>
  static auto OnOwner(F fn) {
    return OnOwnerOf(g_ostrelExecutor, fn);
  }

  static bool TryLoad(const std::string& path) {
    return OnOwner([path] { return g_ostrel.Load(path); });
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

  FakeLibrary fake{FakePath("libostrel.so")};
};

}  // namespace ostrel_native

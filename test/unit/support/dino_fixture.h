// The Dino-Lite binding over its fake library, empty at the start of each test.
#pragma once

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "devices/dino_lite_binding.h"
#include "devices/dino_lite_telemetry.h"
#include "fakes/fake_library.h"
#include "unit/support/device_library.h"
#include "unit/support/on_owner.h"

namespace ostrel_native {

/// A double as the fake takes and logs it.
inline std::string Bits(double value) {
  return std::to_string(std::bit_cast<std::int64_t>(value));
}

struct DinoTest : testing::Test {
  /// Runs `fn` on the owner thread, and gives its result.
  template <typename F>
  static auto OnOwner(F fn) {
    return OnOwnerOf(g_dinoLiteExecutor, fn);
  }

  DinoTest() {
    fake.Send("reset");
#define REQUIRED(name, result, parameters) g_dinoLite.name = nullptr;
#define OPTIONAL(name, result, parameters) REQUIRED(name, result, parameters)
#include "devices/dino_lite_symbols.h"
    OnOwner([] { g_dinoLite.DropSelectionOnOwnerThread(); });
    g_dinoLite.handle = nullptr;
    g_dinoLite.loaded = false;
    g_dinoLite.initialized = false;
    g_dinoLite.deviceCount = 0;
    g_dinoLite.path.clear();
    g_dinoLite.backendKind = DinoBackendKind::None;
    g_dinoLite.SetBindingError("");
    ResetDinoTelemetry(-1);
    ResetDinoSnapshot();
  }

  /// Loads the fake, or its variant without `missing`, and gives the fake for scripting it.
  FakeLibrary Load(const std::string& missing = "") {
    const std::string path =
        FakePath(missing.empty() ? "libdinolite.so" : "without_" + missing + "/libdinolite.so");
    FakeLibrary library(path);
    library.Send("reset");
    EXPECT_TRUE(TryLoad(path));
    return library;
  }

  /// The same with the library started, and its log empty.
  FakeLibrary Start(const std::string& missing = "") {
    FakeLibrary library = Load(missing);
    StartLibrary();
    library.Send("clear_log");
    return library;
  }

  static bool TryLoad(const std::string& path) {
    return OnOwner([path] { return g_dinoLite.Load(path); });
  }

  static void StartLibrary() {
    OnOwner([] { g_dinoLite.StartOnOwnerThread(); });
  }

  /// Has the library tell of these LED modes.
  static void SendLedModes(const FakeLibrary& library, const std::vector<std::int32_t>& modes) {
    std::string commands = "default dl_led_mode_count " + std::to_string(modes.size());
    for (std::size_t i = 0; i < modes.size(); ++i) {
      commands += "\ndefault dl_led_mode@" + std::to_string(i) + " " + std::to_string(modes[i]);
    }
    library.Send(commands);
  }

  /// The logged calls as `symbol(arguments)`, oldest first.
  static std::vector<std::string> Calls(const FakeLibrary& library) {
    std::vector<std::string> calls;
    for (const FakeCallRecord& call : library.Calls()) {
      std::string text = call.symbol + "(";
      for (const std::string& argument : call.arguments) {
        text += (text.back() == '(' ? "" : ",") + argument;
      }
      calls.push_back(text + ")");
    }
    return calls;
  }
  std::vector<std::string> Calls() const {
    return Calls(fake);
  }

  /// Waits until all that was posted to the owner thread has ended.
  static void Flush() {
    ASSERT_TRUE(g_dinoLiteExecutor.InvokeVoid([] {}, std::chrono::minutes(1)));
  }

  static void SetErrors(const std::string& text) {
    g_dinoLite.SetBindingError(text);
  }

  /// The binding's own text and the addon's.
  static std::vector<std::string> Errors() {
    const std::lock_guard lock(g_dinoLite.mutex);
    return {g_dinoLite.error, GetLastErrorString()};
  }

  static DinoLiteBinding::DebugSnapshot Snapshot() {
    return CopyDinoDebugState().snapshot;
  }

  FakeLibrary fake{FakePath("libdinolite.so")};
};

}  // namespace ostrel_native

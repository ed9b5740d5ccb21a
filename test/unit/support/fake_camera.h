// Camera tables filled by a test: any entry of `g_camera` gets a behaviour, and the calls are
// logged. A table that is not filled stays empty, as for a backend that lacks the entry.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "camera/backend/camera_binding.h"

namespace ostrel_native {

/// What happened, in order, on any thread.
struct CallLog {
  void Add(const std::string& entry) {
    const std::lock_guard<std::mutex> lock(mutex);
    entries.push_back(entry);
  }
  std::vector<std::string> Entries() {
    const std::lock_guard<std::mutex> lock(mutex);
    return entries;
  }
  void Clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    entries.clear();
  }

  std::mutex mutex;
  std::vector<std::string> entries;  // guarded by mutex
};

inline CallLog g_callLog;

template <typename T>
std::string ArgumentText(T argument) {
  if constexpr (std::is_pointer_v<T>) {
    return argument == nullptr ? "null" : "ptr";
  } else {
    return std::to_string(argument);
  }
}

inline std::string CallText(std::string name, const std::vector<std::string>& arguments) {
  char separator = '(';
  for (const std::string& argument : arguments) {
    name.push_back(separator);
    name.append(argument);
    separator = ',';
  }
  return name.append(arguments.empty() ? "()" : ")");
}

/// Stands in for one entry. The entry is a plain function, so its state is static.
template <auto kEntry>
struct FakeEntry;

template <typename Result, typename... Parameters, Result (*CameraBinding::*kEntry)(Parameters...)>
struct FakeEntry<kEntry> {
  static inline std::string name;
  static inline std::function<Result(Parameters...)> behaviour;

  static void Install(const char* entryName, std::function<Result(Parameters...)> wanted) {
    name = entryName;
    behaviour = std::move(wanted);
    g_camera.*kEntry = &Call;
  }

  static Result Call(Parameters... arguments) {
    g_callLog.Add(CallText(name, {ArgumentText(arguments)...}));
    return behaviour(arguments...);
  }
};

/// FAKE_ENTRY(cdshow_frame_width, [](int) { return 640; }): gives the entry of `g_camera` a
/// behaviour and logs its calls as "cdshow_frame_width(0)".
#define FAKE_ENTRY(name, ...) FakeEntry<&CameraBinding::name>::Install(#name, __VA_ARGS__)

/// As FAKE_ENTRY, for an entry that always answers `number`.
#define FAKE_NUMBER(name, number) FAKE_ENTRY(name, [answer = (number)](auto...) { return answer; })

/// Empties `g_camera` and the log.
inline void ResetCamera() {
  g_camera.kind = BackendKind::None;
  g_camera.loaded = false;
  g_camera.handle = nullptr;
  g_camera.path.clear();
  {
    const std::lock_guard<std::mutex> lock(g_camera.dimensionsMutex);
    g_camera.captureDimensions.clear();
  }
#define REQUIRED(name, result, parameters) g_camera.name = nullptr;
#define OPTIONAL(name, result, parameters) g_camera.name = nullptr;
#include "camera/backend/cnokhwa_symbols.h"
#define OPTIONAL(name, result, parameters) g_camera.name = nullptr;
#include "camera/backend/dshow_symbols.h"
#define OPTIONAL(name, result, parameters) g_camera.name = nullptr;
#include "camera/backend/avf_symbols.h"
  g_callLog.Clear();
}

/// Each test starts and leaves with an empty binding.
struct FakeCameraTest : testing::Test {
  FakeCameraTest() { ResetCamera(); }
  ~FakeCameraTest() override { ResetCamera(); }

  static void Use(BackendKind kind) { g_camera.kind = kind; }

  static std::vector<std::string> Calls() { return g_callLog.Entries(); }
};

}  // namespace ostrel_native

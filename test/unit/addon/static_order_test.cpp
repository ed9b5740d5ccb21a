// The order in which the units' globals are constructed and destroyed. This program links the units
// in the wrong order on purpose. The linker's --wrap option shows each registration of a
// destructor, which follows the construction at once.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "addon/common.h"
#include "camera/backend/camera_binding.h"
#include "camera/frames/turbojpeg_runtime.h"
#include "camera/preview/camera_preview.h"
#include "devices/dino_lite_binding.h"
#include "devices/dino_lite_telemetry.h"
#include "devices/ostrel_binding.h"
#include "recording/video_recorder.h"

namespace ostrel_native {
namespace {

struct Registration {
  void (*destroy)(void*);
  void* object;
};

// Without a constructor of their own: they are used before any runs.
constinit std::array<Registration, 512> g_registrations;
constinit std::size_t g_registrationCount = 0;

struct KnownGlobal {
  const void* object;
  const char* name;
};

// In the order of construction.
const std::array kGlobals = {
    KnownGlobal{&g_lastError, "g_lastError"},
    KnownGlobal{&g_turboJpeg, "g_turboJpeg"},
    KnownGlobal{&g_videoRecorder, "g_videoRecorder"},
    KnownGlobal{&g_camera, "g_camera"},
    KnownGlobal{&g_cameraPreview, "g_cameraPreview"},
    KnownGlobal{&g_dinoLite, "g_dinoLite"},
    KnownGlobal{&g_dinoCachedSnapshot, "g_dinoCachedSnapshot"},
    KnownGlobal{&g_dinoLiteExecutor, "g_dinoLiteExecutor"},
    KnownGlobal{&g_ostrel, "g_ostrel"},
    KnownGlobal{&g_ostrelExecutor, "g_ostrelExecutor"},
};

const char* NameOf(const void* object) {
  for (const KnownGlobal& global : kGlobals) {
    if (global.object == object) {
      return global.name;
    }
  }
  return nullptr;
}

void DestroyAndTell(void* argument) {
  const Registration& registration = *static_cast<Registration*>(argument);
  if (const char* const name = NameOf(registration.object)) {
    std::fprintf(stderr, "%s ends\n", name);
  }
  registration.destroy(registration.object);
}

TEST(StaticOrder, ConstructsTheUnitsOneBehindTheOther) {
  std::vector<std::string> constructed;
  for (std::size_t i = 0; i < g_registrationCount; ++i) {
    if (const char* const name = NameOf(g_registrations.at(i).object)) {
      constructed.emplace_back(name);
    }
  }
  std::vector<std::string> expected;
  for (const KnownGlobal& global : kGlobals) {
    expected.emplace_back(global.name);
  }
  EXPECT_EQ(constructed, expected);
}

TEST(StaticOrder, DestroysThemInReverseWhenTheProcessEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  std::string expected;
  for (auto global = kGlobals.rbegin(); global != kGlobals.rend(); ++global) {
    expected.append(global->name).append(" ends\n");
  }
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), expected);
}

}  // namespace

extern "C" {

int __real___cxa_atexit(void (*destroy)(void*), void* object, void* library);

int __wrap___cxa_atexit(void (*destroy)(void*), void* object, void* library) {
  if (g_registrationCount == g_registrations.size()) {
    return __real___cxa_atexit(destroy, object, library);
  }
  Registration& registration = g_registrations[g_registrationCount++];
  registration = {destroy, object};
  return __real___cxa_atexit(DestroyAndTell, &registration, library);
}

}  // extern "C"

}  // namespace ostrel_native

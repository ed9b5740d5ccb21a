#include "devices/dino_lite_telemetry.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "devices/cache_age.h"
#include "devices/dino_lite_readings.h"

namespace ostrel_native {

namespace {

static_assert(std::atomic<double>::is_always_lock_free);
static_assert(std::atomic<std::int64_t>::is_always_lock_free);

constinit CoalescedKey g_amrKey = {"amr"};
constinit CoalescedKey g_fovKey = {"fov"};
constinit CoalescedKey g_microtouchKey = {"microtouch"};

// What the cache holds of one kind, as a poll loads it.
struct Magnification {
  std::int32_t deviceIndex;
  double value;
  std::int64_t atMs;
};
struct FieldOfView {
  double amr;
  double value;
  std::int64_t atMs;
};

Magnification LoadMagnification() {
  return g_dinoTelemetry.Read([] {
    return Magnification{g_dinoTelemetryIndex, g_dinoCachedAmr, g_dinoCachedAmrAtMs};
  });
}

FieldOfView LoadFieldOfView() {
  return g_dinoTelemetry.Read([] {
    return FieldOfView{g_dinoCachedFovAmr, g_dinoCachedFov, g_dinoCachedFovAtMs};
  });
}

// Of the present moment: another environment may have asked for another magnification meanwhile.
void DropFieldOfViewUnlessFor(double amr) {
  g_dinoTelemetry.Write([amr] {
    if (IsForOtherAmr(g_dinoCachedFovAmr, amr)) {
      g_dinoCachedFov = -1.0;
      g_dinoCachedFovAmr = amr;
    }
  });
}

std::optional<double> Served(double value, std::int64_t atMs) {
  return IsFreshNow(atMs) ? ReadingOrNothing(value) : std::nullopt;
}

void RefreshAmrOnOwnerThread() {
  ReadDinoAmrOnOwnerThread();
  UpdateDinoSnapshotOnOwnerThread();
}

void RefreshFovOnOwnerThread(double amr, std::int32_t selector) {
  const bool available = g_dinoLite.IsServed() && g_dinoLite.dl_get_fovx != nullptr;
  const double fov = available ? FovFromLibrary(g_dinoLite.dl_get_fovx(selector, amr)) : -1.0;
  g_dinoTelemetry.Write([fov, amr, now = SteadyMs()] {
    g_dinoCachedFov = fov;
    g_dinoCachedFovAmr = amr;
    g_dinoCachedFovAtMs = now;
  });
}

// Only ever sets: a press is kept until it is reported.
void LatchMicrotouchOnOwnerThread() {
  if (g_dinoLite.IsServed() && g_dinoLite.selectedDeviceIndex >= 0 &&
      g_dinoLite.microtouchEnabled && g_dinoLite.supportsMicrotouch &&
      g_dinoLite.dl_microtouch_pressed != nullptr && g_dinoLite.dl_microtouch_pressed()) {
    g_dinoCachedMicrotouch = true;
  }
}

}  // namespace

void UpdateDinoSnapshotOnOwnerThread() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  DinoLiteBinding::DebugSnapshot snapshot;
  snapshot.loaded = g_dinoLite.loaded;
  snapshot.backend = DinoBackendText(g_dinoLite.backendKind);
  snapshot.path = g_dinoLite.path;
  snapshot.selectedDeviceIndex = g_dinoLite.selectedDeviceIndex;
  snapshot.ledState = g_dinoLite.ledState;
  snapshot.controllableLedsCount = g_dinoLite.controllableLedsCount;
  snapshot.ledModes = g_dinoLite.ledModes;
  if (g_dinoLite.backendKind == DinoBackendKind::LibDinoLite) {
    snapshot.initialized = g_dinoLite.initialized;
    snapshot.supportsAmr = g_dinoLite.supportsAmr;
    snapshot.supportsMicrotouch = g_dinoLite.supportsMicrotouch;
    snapshot.supportsLedControl = g_dinoLite.dl_set_led_state != nullptr &&
                                  !g_dinoLite.ledModes.empty() &&
                                  g_dinoLite.selectedDeviceIndex >= 0;
    snapshot.amrRead = g_dinoLite.amrRead;
    snapshot.amrRaw = g_dinoLite.amrRaw;
    snapshot.amrAccepted = g_dinoLite.amrAccepted;
    snapshot.amrUpdates =
        g_dinoLite.dl_get_amr_update_count != nullptr ? g_dinoLite.dl_get_amr_update_count() : 0;
  }
  const MutexLock lock(g_dinoSnapshotMutex);
  g_dinoCachedSnapshot = std::move(snapshot);
}

void ResetDinoSnapshot() {
  const MutexLock lock(g_dinoSnapshotMutex);
  g_dinoCachedSnapshot = {};
}

void ResetDinoTelemetry(std::int32_t index) {
  g_dinoTelemetry.Write([index] {
    g_dinoTelemetryIndex = index;
    g_dinoCachedAmr = -1.0;
    g_dinoCachedFov = -1.0;
    g_dinoCachedFovAmr = -1.0;
    g_dinoCachedAmrAtMs = 0;
    g_dinoCachedFovAtMs = 0;
    g_dinoCachedMicrotouch = false;
  });
}

void ReadDinoAmrOnOwnerThread() {
  assert(g_dinoLiteExecutor.IsOwnerThread());
  if (!g_dinoLite.IsServed() || !g_dinoLite.supportsAmr || g_dinoLite.dl_get_amr == nullptr) {
    return;
  }
  const double amr = g_dinoLite.dl_get_amr();
  g_dinoLite.amrRead = true;
  g_dinoLite.amrRaw = amr;
  g_dinoLite.amrAccepted = IsAcceptedAmr(amr);
  if (g_dinoLite.amrAccepted) {
    g_dinoTelemetry.Write([amr, now = SteadyMs()] {
      g_dinoCachedAmr = amr;
      g_dinoCachedAmrAtMs = now;
    });
  }
}

// Each poll reads before it posts: a fast owner thread would otherwise serve, now and then, the
// reading that this very call has asked for.

std::optional<double> PollDinoAmr(std::int32_t deviceIndex) {
  const Magnification known = LoadMagnification();
  std::optional<double> amr;
  if (deviceIndex != known.deviceIndex) {
    ResetDinoTelemetry(deviceIndex);
  } else {
    amr = Served(known.value, known.atMs);
  }
  g_dinoLiteExecutor.PostCoalesced(g_amrKey, RefreshAmrOnOwnerThread);
  return amr;
}

std::optional<double> PollDinoFov(double amr, std::int32_t selector) {
  const FieldOfView known = LoadFieldOfView();
  std::optional<double> fov;
  if (IsForOtherAmr(known.amr, amr)) {
    DropFieldOfViewUnlessFor(amr);
  } else {
    fov = Served(known.value, known.atMs);
  }
  const std::int32_t wanted = std::max(selector, 0);
  g_dinoLiteExecutor.PostCoalesced(g_fovKey,
                                   [amr, wanted] { RefreshFovOnOwnerThread(amr, wanted); });
  return fov;
}

bool PollDinoMicrotouch() {
  // Most polls find nothing; looking is cheaper than exchanging.
  const bool pressed = g_dinoCachedMicrotouch && g_dinoCachedMicrotouch.exchange(false);
  g_dinoLiteExecutor.PostCoalesced(g_microtouchKey, LatchMicrotouchOnOwnerThread);
  return pressed;
}

DinoDebugState CopyDinoDebugState() {
  DinoDebugState state;
  {
    const MutexLock lock(g_dinoSnapshotMutex);
    state.snapshot = g_dinoCachedSnapshot;
  }
  const Magnification known = LoadMagnification();
  state.cachedAmr = ReadingOrNothing(known.value);
  if (known.atMs >= 1) {
    state.cachedAmrAgeMs = SteadyMs() - known.atMs;
  }
  return state;
}

}  // namespace ostrel_native

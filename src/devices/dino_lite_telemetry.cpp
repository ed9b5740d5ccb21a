#include "devices/dino_lite_telemetry.h"

#include <algorithm>
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

std::optional<double> Served(const std::atomic<double>& value,
                             const std::atomic<std::int64_t>& stampMs) {
  const std::int64_t stamp = stampMs;
  const double read = value;
  return IsFreshNow(stamp) ? ReadingOrNothing(read) : std::nullopt;
}

void RefreshAmrOnOwnerThread() {
  ReadDinoAmrOnOwnerThread();
  UpdateDinoSnapshotOnOwnerThread();
}

void RefreshFovOnOwnerThread(double amr, std::int32_t selector) {
  const bool available = g_dinoLite.IsServed() && g_dinoLite.dl_get_fovx != nullptr;
  g_dinoCachedFov = available ? FovFromLibrary(g_dinoLite.dl_get_fovx(selector, amr)) : -1.0;
  g_dinoCachedFovAmr = amr;
  g_dinoCachedFovAtMs = SteadyMs();
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
  const std::lock_guard lock(g_dinoSnapshotMutex);
  g_dinoCachedSnapshot = std::move(snapshot);
}

void ResetDinoSnapshot() {
  const std::lock_guard lock(g_dinoSnapshotMutex);
  g_dinoCachedSnapshot = {};
}

void ResetDinoTelemetry(std::int32_t index) {
  g_dinoTelemetryIndex = index;
  g_dinoCachedAmr = -1.0;
  g_dinoCachedFov = -1.0;
  g_dinoCachedFovAmr = -1.0;
  g_dinoCachedAmrAtMs = 0;
  g_dinoCachedFovAtMs = 0;
  g_dinoCachedMicrotouch = false;
}

void ReadDinoAmrOnOwnerThread() {
  if (!g_dinoLite.IsServed() || !g_dinoLite.supportsAmr || g_dinoLite.dl_get_amr == nullptr) {
    return;
  }
  const double amr = g_dinoLite.dl_get_amr();
  g_dinoLite.amrRead = true;
  g_dinoLite.amrRaw = amr;
  g_dinoLite.amrAccepted = IsAcceptedAmr(amr);
  if (g_dinoLite.amrAccepted) {
    g_dinoCachedAmr = amr;
    g_dinoCachedAmrAtMs = SteadyMs();
  }
}

// Each poll reads before it posts: a fast owner thread would otherwise serve, now and then, the
// reading that this very call has asked for.

std::optional<double> PollDinoAmr(std::int32_t deviceIndex) {
  std::optional<double> amr;
  if (deviceIndex != g_dinoTelemetryIndex) {
    ResetDinoTelemetry(deviceIndex);
  } else {
    amr = Served(g_dinoCachedAmr, g_dinoCachedAmrAtMs);
  }
  g_dinoLiteExecutor.PostCoalesced(g_amrKey, RefreshAmrOnOwnerThread);
  return amr;
}

std::optional<double> PollDinoFov(double amr, std::int32_t selector) {
  std::optional<double> fov;
  if (IsForOtherAmr(g_dinoCachedFovAmr, amr)) {
    g_dinoCachedFov = -1.0;
    g_dinoCachedFovAmr = amr;
  } else {
    fov = Served(g_dinoCachedFov, g_dinoCachedFovAtMs);
  }
  const std::int32_t known = std::max(selector, 0);
  g_dinoLiteExecutor.PostCoalesced(g_fovKey, [amr, known] { RefreshFovOnOwnerThread(amr, known); });
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
    const std::lock_guard lock(g_dinoSnapshotMutex);
    state.snapshot = g_dinoCachedSnapshot;
  }
  const std::int64_t stamp = g_dinoCachedAmrAtMs;
  state.cachedAmr = ReadingOrNothing(g_dinoCachedAmr);
  if (stamp >= 1) {
    state.cachedAmrAgeMs = SteadyMs() - stamp;
  }
  return state;
}

}  // namespace ostrel_native

#include "devices/ostrel_telemetry.h"

#include <cassert>

#include "devices/cache_age.h"
#include "devices/ostrel_binding.h"

namespace ostrel_native {

namespace {

static_assert(std::atomic<std::int64_t>::is_always_lock_free);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
static_assert(std::atomic<float>::is_always_lock_free);

constinit CoalescedKey g_telemetryKey = {"telemetry"};

// A value as a poll loads it.
template <typename T>
struct Stamped {
  T value;
  std::int64_t atMs;
};

bool IsTelemetryFresh() {
  return IsFreshNow(g_ostrelCachedTelemetryAtMs);
}

void ReadStatusOnOwnerThread() {
  g_ostrelCachedStatus = g_ostrel.Init(false) && g_ostrel.api.GetScopeStatus != nullptr
                             ? g_ostrel.api.GetScopeStatus()
                             : -1;
}

// A library without the detailed form gives the bare size, where zero and less is no size.
bool AskPixelSizeOnOwnerThread(float& size, std::uint16_t& width, std::uint16_t& height) {
  const OstrelApi& api = g_ostrel.api;
  if (!g_ostrel.Init(false)) {
    return false;
  }
  if (api.GetPixelSizeInfo != nullptr) {
    return api.GetPixelSizeInfo(&size, &width, &height) != 0;
  }
  if (api.GetPixelSizeMicrons == nullptr) {
    return false;
  }
  const float read = api.GetPixelSizeMicrons();
  if (read <= 0.0F) {
    return false;
  }
  size = read;
  return true;
}

void ReadPixelSizeOnOwnerThread() {
  float size = -1.0F;
  std::uint16_t width = 0;
  std::uint16_t height = 0;
  const bool ok = AskPixelSizeOnOwnerThread(size, width, height);
  g_ostrelTelemetry.Write([size, width, height, ok] {
    // What a failed call left in them is kept, too.
    g_ostrelCachedPixelSize = size;
    g_ostrelCachedPixelWidth = width;
    g_ostrelCachedPixelHeight = height;
    g_ostrelCachedPixelInfoOk = ok;
  });
}

void ReadLensGroupOnOwnerThread() {
  std::uint16_t driver = 0;
  std::uint8_t group = 0;
  const bool ok = g_ostrel.Init(false) && g_ostrel.api.GetLensGroupInfo != nullptr &&
                  g_ostrel.api.GetLensGroupInfo(&driver, &group) != 0;
  g_ostrelTelemetry.Write([driver, group, ok] {
    g_ostrelCachedLensGroupRaw = std::uint32_t{driver} << 16 | group;
    g_ostrelCachedLensGroupOk = ok;
  });
}

// Only ever sets: a press is kept until it is reported.
void LatchCaptureButtonOnOwnerThread() {
  if (g_ostrel.Init(false) && g_ostrel.api.IsCapturePressed != nullptr &&
      g_ostrel.api.IsCapturePressed() != 0) {
    g_ostrelCachedCapturePressed = true;
  }
}

void ReadAllButTheButtonOnOwnerThread() {
  ReadStatusOnOwnerThread();
  ReadPixelSizeOnOwnerThread();
  ReadLensGroupOnOwnerThread();
  RefreshOstrelFocusCacheOnOwnerThread();
}

}  // namespace

void ScheduleOstrelTelemetry() {
  g_ostrelExecutor.PostCoalesced(g_telemetryKey, RunOstrelTelemetryPassOnOwnerThread);
}

void RunOstrelTelemetryPassOnOwnerThread() {
  assert(g_ostrelExecutor.IsOwnerThread());
  ReadAllButTheButtonOnOwnerThread();
  LatchCaptureButtonOnOwnerThread();
  g_ostrelCachedTelemetryAtMs = SteadyMs();
}

void PrimeOstrelTelemetryOnOwnerThread() {
  assert(g_ostrelExecutor.IsOwnerThread());
  ReadAllButTheButtonOnOwnerThread();
  g_ostrelCachedTelemetryAtMs = SteadyMs();
}

void RefreshOstrelFocusCacheOnOwnerThread() {
  assert(g_ostrelExecutor.IsOwnerThread());
  std::uint16_t position = 0;
  if (g_ostrel.Init(false) && g_ostrel.api.GetFocusPosition != nullptr &&
      g_ostrel.api.GetFocusPosition(&position) != 0) {
    g_ostrelTelemetry.Write([position, now = SteadyMs()] {
      g_ostrelCachedFocusPosition = position;
      g_ostrelCachedFocusAtMs = now;
    });
  }
}

void UpdateOstrelVersionSnapshotsOnOwnerThread() {
  assert(g_ostrelExecutor.IsOwnerThread());
  const OstrelApi& api = g_ostrel.api;
  OstrelVersion version;
  if (g_ostrel.Init(false) && api.GetVersionInfo != nullptr) {
    version.ok =
        api.GetVersionInfo(&version.productId, &version.hardwareMajorVersion,
                           &version.hardwareMinorVersion, &version.softwareMajorVersion,
                           &version.softwareMinorVersion, &version.softwarePatchVersion) != 0;
  }
  OstrelProtocolVersion protocol;
  if (g_ostrel.Init(false) && api.GetProtocolVersionInfo != nullptr) {
    protocol.ok = api.GetProtocolVersionInfo(&protocol.majorVersion, &protocol.minorVersion,
                                             &protocol.patchVersion) != 0;
  }
  const MutexLock lock(g_ostrelVersionMutex);
  g_ostrelCachedVersion = version;
  g_ostrelCachedProtocol = protocol;
}

void ResetOstrelTelemetry() {
  g_ostrelTelemetry.Write([] {
    g_ostrelCachedStatus = -1;
    g_ostrelCachedPixelSize = -1.0F;
    g_ostrelCachedPixelWidth = 0;
    g_ostrelCachedPixelHeight = 0;
    g_ostrelCachedPixelInfoOk = false;
    g_ostrelCachedLensGroupRaw = 0;
    g_ostrelCachedLensGroupOk = false;
    g_ostrelCachedCapturePressed = false;
    g_ostrelCachedTelemetryAtMs = 0;
    g_ostrelCachedFocusPosition = -1;
    g_ostrelCachedFocusAtMs = 0;
  });
}

void ClearOstrelVersionSnapshots() {
  const MutexLock lock(g_ostrelVersionMutex);
  g_ostrelCachedVersion = {};
  g_ostrelCachedProtocol = {};
}

// Each poll reads the cache before it asks for the next pass: an owner thread that is quick enough
// could otherwise answer with that very pass.

std::int32_t PollOstrelStatus() {
  const std::int32_t status = IsTelemetryFresh() ? g_ostrelCachedStatus.load() : -1;
  ScheduleOstrelTelemetry();
  return status;
}

float PollOstrelPixelSizeMicrons() {
  const float size = IsTelemetryFresh() ? g_ostrelCachedPixelSize.load() : -1.0F;
  ScheduleOstrelTelemetry();
  return size;
}

OstrelPixelSize PollOstrelPixelSize() {
  const auto read = g_ostrelTelemetry.Read([] {
    return Stamped<OstrelPixelSize>{{.ok = g_ostrelCachedPixelInfoOk,
                                     .micronsPerPixel = g_ostrelCachedPixelSize,
                                     .width = g_ostrelCachedPixelWidth,
                                     .height = g_ostrelCachedPixelHeight},
                                    g_ostrelCachedTelemetryAtMs};
  });
  ScheduleOstrelTelemetry();
  return IsFreshNow(read.atMs) ? read.value : OstrelPixelSize{};
}

OstrelLensGroup PollOstrelLensGroup() {
  const auto read = g_ostrelTelemetry.Read([] {
    const std::uint32_t raw = g_ostrelCachedLensGroupRaw;
    return Stamped<OstrelLensGroup>{{.ok = g_ostrelCachedLensGroupOk,
                                     .lensDriver = static_cast<std::uint16_t>(raw >> 16),
                                     .lensGroup = static_cast<std::uint8_t>(raw & 0xFF)},
                                    g_ostrelCachedTelemetryAtMs};
  });
  ScheduleOstrelTelemetry();
  return IsFreshNow(read.atMs) ? read.value : OstrelLensGroup{};
}

bool PollOstrelCapturePressed() {
  // Most polls find nothing; looking is cheaper than exchanging.
  const bool pressed = g_ostrelCachedCapturePressed && g_ostrelCachedCapturePressed.exchange(false);
  ScheduleOstrelTelemetry();
  return pressed;
}

std::int32_t CachedOstrelFocusPosition() {
  const auto read = g_ostrelTelemetry.Read([] {
    return Stamped<std::int32_t>{g_ostrelCachedFocusPosition, g_ostrelCachedFocusAtMs};
  });
  return IsFreshNow(read.atMs) ? read.value : -1;
}

std::optional<OstrelVersion> CachedOstrelVersion() {
  const MutexLock lock(g_ostrelVersionMutex);
  const OstrelVersion& version = g_ostrelCachedVersion;
  return version.ok && version.softwareMajorVersion != 0 ? std::optional(version) : std::nullopt;
}

std::optional<OstrelProtocolVersion> CachedOstrelProtocolVersion() {
  const MutexLock lock(g_ostrelVersionMutex);
  const OstrelProtocolVersion& protocol = g_ostrelCachedProtocol;
  return protocol.ok && protocol.majorVersion != 0 ? std::optional(protocol) : std::nullopt;
}

}  // namespace ostrel_native

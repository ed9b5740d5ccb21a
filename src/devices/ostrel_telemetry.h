// What the microscope last told of itself, so that script code can poll it without ever waiting.
//
// A poll asks for a pass on the owner thread, at most one at a time, and is served by an earlier
// one. What is older than two seconds counts as unavailable. The versions of the selected device
// are read once, at its selection.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "addon/mutex.h"
#include "devices/reading_record.h"

namespace ostrel_native {

/// What the cache below is written and read under: the values of one call into the library are a
/// record, with the stamp of the last pass; a reader may see the records of two passes.
extern ReadingRecord g_ostrelTelemetry;

// The cache: written by the owner thread, read by script threads, reset by both and by pool
// threads.
extern std::atomic<std::int32_t> g_ostrelCachedStatus;         ///< -1: could not be read
extern std::atomic<float> g_ostrelCachedPixelSize;             ///< micrometres a pixel; or -1
extern std::atomic<std::int32_t> g_ostrelCachedPixelWidth;     ///< pixels
extern std::atomic<std::int32_t> g_ostrelCachedPixelHeight;    ///< pixels
extern std::atomic<bool> g_ostrelCachedPixelInfoOk;            ///< the three above are valid
extern std::atomic<std::uint32_t> g_ostrelCachedLensGroupRaw;  ///< driver << 16 | group
extern std::atomic<bool> g_ostrelCachedLensGroupOk;
extern std::atomic<bool> g_ostrelCachedCapturePressed;         ///< seen and not yet reported
extern std::atomic<std::int64_t> g_ostrelCachedTelemetryAtMs;  ///< of the last pass; 0: none
extern std::atomic<std::int32_t> g_ostrelCachedFocusPosition;  ///< or -1
extern std::atomic<std::int64_t> g_ostrelCachedFocusAtMs;      ///< of the last good read; 0: none

struct OstrelVersion {
  bool ok = false;
  std::uint16_t productId = 0;
  std::uint8_t hardwareMajorVersion = 0;
  std::uint8_t hardwareMinorVersion = 0;
  std::uint16_t softwareMajorVersion = 0;
  std::uint8_t softwareMinorVersion = 0;
  std::uint8_t softwarePatchVersion = 0;
};

struct OstrelProtocolVersion {
  bool ok = false;
  std::uint16_t majorVersion = 0;
  std::uint8_t minorVersion = 0;
  std::uint8_t patchVersion = 0;
};

extern Mutex g_ostrelVersionMutex;  ///< a leaf: held for the copies only
extern OstrelVersion g_ostrelCachedVersion OSTREL_GUARDED_BY(g_ostrelVersionMutex);
extern OstrelProtocolVersion g_ostrelCachedProtocol OSTREL_GUARDED_BY(g_ostrelVersionMutex);

/// Asks for a pass, unless one is queued or running.
/// Thread: any; never waits.
void ScheduleOstrelTelemetry();

/// Reads everything once. Each read begins with `Init(false)`; one that cannot be made counts as
/// failed. The pass is stamped last of all, whatever came of its reads.
/// Thread: owner.
void RunOstrelTelemetryPassOnOwnerThread();

/// A pass without the capture button.
/// Thread: owner.
void PrimeOstrelTelemetryOnOwnerThread();

/// Reads the focus position; a failed read leaves the last one to age.
/// Thread: owner.
void RefreshOstrelFocusCacheOnOwnerThread();

/// Reads both versions; one that cannot be read is all zero.
/// Thread: owner.
void UpdateOstrelVersionSnapshotsOnOwnerThread();

/// Forgets all but the versions.
/// Thread: any.
void ResetOstrelTelemetry();

/// Forgets the versions.
/// Thread: any.
void ClearOstrelVersionSnapshots();

struct OstrelPixelSize {
  bool ok = false;
  float micronsPerPixel = -1.0F;
  std::int32_t width = 0;   ///< pixels of the picture that the size applies to
  std::int32_t height = 0;  ///< pixels
};

struct OstrelLensGroup {
  bool ok = false;
  std::uint16_t lensDriver = 0;
  std::uint8_t lensGroup = 0;
};

/// The five polls: each gives what an earlier pass has read, never the one that it asks for, or,
/// where that is too old, the same as if it had never been read.
/// Thread: any environment; they never wait and never call the library.
std::int32_t PollOstrelStatus();
float PollOstrelPixelSizeMicrons();
OstrelPixelSize PollOstrelPixelSize();
OstrelLensGroup PollOstrelLensGroup();
/// Whether the button was pressed since the last call: each press is told once, however old.
bool PollOstrelCapturePressed();

/// The last focus position, or -1 where it is too old. Schedules nothing.
/// Thread: any environment.
std::int32_t CachedOstrelFocusPosition();

/// The versions of the selected device; none where they were not read. A zero major version is no
/// answer, whatever the library said of it.
/// Thread: any.
std::optional<OstrelVersion> CachedOstrelVersion();
std::optional<OstrelProtocolVersion> CachedOstrelProtocolVersion();

}  // namespace ostrel_native

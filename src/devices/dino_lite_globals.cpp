// The Dino-Lite unit's globals, in the order in which they are constructed. They are destroyed in
// reverse: the owner thread ends first, while the binding, the snapshot and the cache that its last
// tasks use still stand.
#include "addon/static_order.h"
#include "devices/dino_lite_binding.h"
#include "devices/dino_lite_telemetry.h"

namespace ostrel_native {

OSTREL_INIT_DINO_LITE DinoLiteBinding g_dinoLite;

OSTREL_INIT_DINO_LITE DinoLiteBinding::DebugSnapshot g_dinoCachedSnapshot;
constinit Mutex g_dinoSnapshotMutex;

constinit ReadingRecord g_dinoTelemetry;
constinit std::atomic<std::int32_t> g_dinoTelemetryIndex{-1};
constinit std::atomic<double> g_dinoCachedAmr{-1.0};
constinit std::atomic<std::int64_t> g_dinoCachedAmrAtMs{0};
constinit std::atomic<double> g_dinoCachedFov{-1.0};
constinit std::atomic<double> g_dinoCachedFovAmr{-1.0};
constinit std::atomic<std::int64_t> g_dinoCachedFovAtMs{0};
constinit std::atomic<bool> g_dinoCachedMicrotouch{false};

OSTREL_INIT_DINO_LITE VendorSdkExecutor g_dinoLiteExecutor("Dino-Lite",
                                                           std::chrono::milliseconds(10));

}  // namespace ostrel_native

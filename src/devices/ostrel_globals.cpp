// The microscope unit's globals, in the order in which they are constructed. They are destroyed in
// reverse: the owner thread ends first, while the binding and the caches that its last tasks use
// still stand.
#include "addon/static_order.h"
#include "devices/ostrel_binding.h"
#include "devices/ostrel_telemetry.h"

namespace ostrel_native {

OSTREL_INIT_OSTREL OstrelBinding g_ostrel;

constinit ReadingRecord g_ostrelTelemetry;
constinit std::atomic<std::int32_t> g_ostrelCachedStatus{-1};
constinit std::atomic<float> g_ostrelCachedPixelSize{-1.0F};
constinit std::atomic<std::int32_t> g_ostrelCachedPixelWidth{0};
constinit std::atomic<std::int32_t> g_ostrelCachedPixelHeight{0};
constinit std::atomic<bool> g_ostrelCachedPixelInfoOk{false};
constinit std::atomic<std::uint32_t> g_ostrelCachedLensGroupRaw{0};
constinit std::atomic<bool> g_ostrelCachedLensGroupOk{false};
constinit std::atomic<bool> g_ostrelCachedCapturePressed{false};
constinit std::atomic<std::int64_t> g_ostrelCachedTelemetryAtMs{0};
constinit std::atomic<std::int32_t> g_ostrelCachedFocusPosition{-1};
constinit std::atomic<std::int64_t> g_ostrelCachedFocusAtMs{0};

constinit Mutex g_ostrelVersionMutex;
constinit OstrelVersion g_ostrelCachedVersion;
constinit OstrelProtocolVersion g_ostrelCachedProtocol;

OSTREL_INIT_OSTREL VendorSdkExecutor g_ostrelExecutor("Ostrel", std::chrono::milliseconds(10));

}  // namespace ostrel_native

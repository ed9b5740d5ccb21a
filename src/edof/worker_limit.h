// How many threads a fusion may use.
#pragma once

#include <algorithm>
#include <cstdint>

namespace ostrel_native {

inline constexpr std::int32_t kMaxFusionWorkers = 8;

/// Half of the logical processors, rounded up; the rest is left to the application. An unknown
/// number counts as one.
/// Thread: any.
constexpr std::int32_t DefaultWorkerLimit(unsigned processors) {
  return processors <= 1 ? 1 : static_cast<std::int32_t>(processors / 2 + processors % 2);
}

/// 1 to `kMaxFusionWorkers`. Clamped while it is signed: the most negative number gives 1.
/// Thread: any.
constexpr std::int32_t ClampedWorkerLimit(std::int32_t limit) {
  return std::clamp(limit, std::int32_t{1}, kMaxFusionWorkers);
}

}  // namespace ostrel_native

// The age of a value that script code polls: stamps in milliseconds of the steady clock.
#pragma once

#include <chrono>
#include <cstdint>

namespace ostrel_native {

/// A stamp for the present moment.
/// Thread: any.
inline std::int64_t SteadyMs() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<milliseconds>(now).count();
}

inline constexpr std::int64_t kLongestServedMs = 2'000;

/// Whether a value with this stamp may still be served; a stamp of zero means that there is none.
/// Thread: any.
constexpr bool IsFresh(std::int64_t stampMs, std::int64_t nowMs) {
  return stampMs > 0 && nowMs - stampMs <= kLongestServedMs;
}

}  // namespace ostrel_native

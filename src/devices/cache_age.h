// The age of a value that script code polls: stamps in milliseconds of the steady clock.
#pragma once

#include <time.h>

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

/// The steady clock as of the system's last tick: never ahead of it, and behind by milliseconds.
/// Thread: any.
inline std::int64_t CoarseSteadyMs() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::int64_t{now.tv_sec} * 1'000 + now.tv_nsec / 1'000'000;
}

// Far more than the coarse clock is behind, also where the machine was late with many ticks.
inline constexpr std::int64_t kLongestCoarseLagMs = 1'000;

/// `IsFresh` at the present moment by the steady clock. Asking that would be a third of what a poll
/// costs, so it is asked only where the coarse one leaves a doubt: not for values of which polls
/// go on.
/// Thread: any.
inline bool IsFreshNow(std::int64_t stampMs) {
  const std::int64_t coarseMs = CoarseSteadyMs();
  if (!IsFresh(stampMs, coarseMs)) {
    return false;
  }
  return IsFresh(stampMs, coarseMs + kLongestCoarseLagMs) || IsFresh(stampMs, SteadyMs());
}

}  // namespace ostrel_native

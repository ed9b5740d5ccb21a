// The two clocks that stamp frames.
#pragma once

#include <chrono>
#include <cstdint>

namespace ostrel_native {

/// Wall clock, whole milliseconds since the epoch.
/// Thread: any.
inline std::int64_t WallClockMs() {
  using std::chrono::milliseconds;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<milliseconds>(now).count();
}

/// Steady clock, nanoseconds since an arbitrary start.
/// Thread: any.
inline std::int64_t SteadyNs() {
  using std::chrono::nanoseconds;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<nanoseconds>(now).count();
}

/// Steady clock in the ticks of 100 ns that frames and recordings count in.
/// Thread: any.
inline std::int64_t SteadyTicks() {
  constexpr std::int64_t kNanosecondsPerTick = 100;
  return SteadyNs() / kNanosecondsPerTick;
}

}  // namespace ostrel_native

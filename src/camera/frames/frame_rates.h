// The two periods that a preview's workers and callbacks keep: how often the frame rate is measured
// and how often a still is taken.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace ostrel_native {

/// Nanoseconds over which the rate of a preview's frames is measured, at least.
inline constexpr std::int64_t kRatePeriodNs = 1'000'000'000;

/// Tenths of frames a second, rounded, from the frames of `elapsedNs`, at least a millisecond.
/// Thread: any.
inline std::int32_t FpsTenths(std::uint32_t frames, std::int64_t elapsedNs) {
  constexpr std::int64_t kNanosecondsPerMillisecond = 1'000'000;
  const std::int64_t elapsedMs = elapsedNs / kNanosecondsPerMillisecond;
  const double tenths = frames * 10000.0 / static_cast<double>(elapsedMs);
  return std::max(static_cast<std::int32_t>(std::lround(tenths)), 0);
}

/// Nanoseconds between two stills, at least.
inline constexpr std::int64_t kQualityPeriodNs = 500'000'000;

/// When the last still was taken. Times are steady nanoseconds.
struct QualityClock {
  bool IsDue(std::int64_t now) const {
    return !hasPicture || now - lastPicture >= kQualityPeriodNs;
  }
  void Taken(std::int64_t now) {
    hasPicture = true;
    lastPicture = now;
  }

  bool hasPicture = false;
  std::int64_t lastPicture = 0;
};

}  // namespace ostrel_native

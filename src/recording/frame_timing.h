// The presentation times of a recording, derived from capture stamps that may be absent, repeat
// or run backwards.
#pragma once

#include <cstdint>

namespace ostrel_native {

/// Gives each frame of one recording its place in time. All values are ticks of 100 ns; sums
/// stop at the largest int64 instead of wrapping.
/// Thread: recorder worker.
struct FrameTiming {
  /// `frameRate`: frames a second, values below 1 count as 1. It spaces frames without a stamp.
  explicit FrameTiming(std::int32_t frameRate);

  /// The presentation time of the next frame, from its capture stamp; not positive means that it
  /// has none. The first frame gets 0, and times rise strictly until they reach the largest int64.
  std::int64_t NextPts(std::int64_t timestamp);

  /// How long the frame before the latest lasts, at least 1. The latest frame itself lasts as
  /// long, since nothing follows it yet; a single frame lasts `nominal`.
  std::int64_t Duration() const;

  std::int64_t nominal;            ///< distance at the configured frame rate
  std::int64_t previousPts;        ///< of the latest frame
  std::int64_t delta;              ///< distance of the two latest frames
  std::int64_t baseTimestamp = 0;  ///< the first positive stamp; 0 before it
};

}  // namespace ostrel_native

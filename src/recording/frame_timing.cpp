#include "recording/frame_timing.h"

#include <algorithm>
#include <limits>

namespace ostrel_native {

namespace {

constexpr std::int64_t kTicksPerSecond = 10'000'000;

// Both addends are at least -`kTicksPerSecond`, so only the upper end can be passed.
std::int64_t SaturatingAdd(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<std::int64_t>::max() : sum;
}

}  // namespace

// One distance before zero, so that a first frame without a stamp lands on zero like a first
// frame that has one.
FrameTiming::FrameTiming(std::int32_t frameRate)
    : nominal(kTicksPerSecond / std::max(frameRate, 1)), previousPts(-nominal), delta(nominal) {}

std::int64_t FrameTiming::NextPts(std::int64_t timestamp) {
  std::int64_t pts = 0;
  if (timestamp <= 0) {
    pts = SaturatingAdd(previousPts, nominal);
  } else if (baseTimestamp == 0) {
    baseTimestamp = timestamp;
  } else {
    pts = timestamp - baseTimestamp;
  }
  // The distance before this frame stands in for one that the stamps don't give.
  if (previousPts >= pts) {
    pts = SaturatingAdd(previousPts, std::max<std::int64_t>(delta, 1));
  }
  // Cannot overflow: the first frame is at 0, `nominal` behind its predecessor, and every later
  // one stands between its predecessor, which is then not negative, and the largest int64.
  delta = pts - previousPts;
  previousPts = pts;
  return pts;
}

std::int64_t FrameTiming::Duration() const {
  return std::max<std::int64_t>(delta, 1);
}

}  // namespace ostrel_native

#include "simulator/focus_drive.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <utility>

namespace ostrel_simulator {

FocusDrive::FocusDrive(int position) : start(position), target(position) {}

int FocusDrive::PositionAt(std::int64_t nowMs) const {
  if (!stops.empty()) {
    const auto stop = static_cast<std::size_t>((nowMs - startMs) / kMsPerScanStop);
    return stops[std::min(stop, stops.size() - 1)];
  }
  const std::int64_t way = std::abs(target - start);
  const auto gone = static_cast<int>(std::min(way, (nowMs - startMs) * kFocusStepsPerMs));
  return target < start ? start - gone : start + gone;
}

bool FocusDrive::IsMovingAt(std::int64_t nowMs) const {
  return IsScanningAt(nowMs) || (stops.empty() && PositionAt(nowMs) != target);
}

bool FocusDrive::IsScanningAt(std::int64_t nowMs) const {
  return !stops.empty() &&
         nowMs - startMs < static_cast<std::int64_t>(stops.size()) * kMsPerScanStop;
}

void FocusDrive::MoveTo(int position, std::int64_t nowMs) {
  start = PositionAt(nowMs);
  target = position;
  startMs = nowMs;
  stops.clear();
}

void FocusDrive::Scan(std::vector<int> positions, std::int64_t nowMs) {
  stops = std::move(positions);
  startMs = nowMs;
}

}  // namespace ostrel_simulator

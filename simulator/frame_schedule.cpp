#include "simulator/frame_schedule.h"

#include <algorithm>

namespace ostrel_simulator {

std::int64_t FrameDueNs(const FrameSchedule& schedule, std::int64_t number) {
  const bool late = schedule.stutterEvery > 0 && number % schedule.stutterEvery == 0;
  return number * schedule.periodNs + (late ? schedule.stutterNs : 0);
}

std::int64_t NextFrameNumber(const FrameSchedule& schedule, std::int64_t last,
                             std::int64_t elapsedNs) {
  return std::max(last + 1, elapsedNs / schedule.periodNs);
}

}  // namespace ostrel_simulator

// When a simulated camera delivers which frame. Pure: time goes in as a number.
#pragma once

#include <cstdint>

namespace ostrel_simulator {

/// Frames are numbered from 1; frame n is exposed n periods after the start of capture, whether
/// or not it is delivered, so lost frames leave gaps in the numbers.
struct FrameSchedule {
  std::int64_t periodNs = 0;
  std::int64_t stutterEvery = 0;  ///< every frame whose number is a multiple comes late; 0: none
  std::int64_t stutterNs = 0;     ///< by so much
};

/// Nanoseconds from the start of capture to the delivery of frame `number`.
std::int64_t FrameDueNs(const FrameSchedule& schedule, std::int64_t number);

/// The number of the frame after `last`, `elapsedNs` after the start: the next one, or, where
/// more than one has become due meanwhile, the newest of them; the others are lost.
std::int64_t NextFrameNumber(const FrameSchedule& schedule, std::int64_t last,
                             std::int64_t elapsedNs);

}  // namespace ostrel_simulator

// The time stamps of a recording in the encoder's own, coarser time base.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

namespace ostrel_native {

/// Gives each frame a tick of its own that an MP4 file can hold. Two presentation times that rise
/// may fall on one tick, and encoder and muxer refuse a tick that does not rise; the muxer also
/// refuses a distance of more than 31 bits, which is 6.6 hours in ticks of 1/90000 s. Thread:
/// recorder worker.
struct EncoderTicks {
  /// The longest distance of two frames, and the longest duration of one.
  static constexpr std::int64_t kLongestGap = std::numeric_limits<std::int32_t>::max() - 1;

  /// The tick for the next frame: `tick` itself, the next free one if that is taken, or one
  /// `kLongestGap` behind the frame before. What such a gap is shortened by is taken off all later
  /// frames too. Precondition: `tick` is not below the one before.
  std::int64_t Place(std::int64_t tick);

  std::optional<std::int64_t> previous;  ///< as placed; nothing before the first frame
  std::int64_t shortenedBy = 0;          ///< by all gaps so far
};

}  // namespace ostrel_native

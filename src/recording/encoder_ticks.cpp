#include "recording/encoder_ticks.h"

#include <algorithm>

namespace ostrel_native {

std::int64_t EncoderTicks::Place(std::int64_t tick) {
  std::int64_t placed = tick - shortenedBy;
  if (previous.has_value()) {
    placed = std::max(placed, *previous + 1);
    const std::int64_t excess = placed - *previous - kLongestGap;
    if (excess > 0) {
      shortenedBy += excess;
      placed -= excess;
    }
  }
  previous = placed;
  return placed;
}

}  // namespace ostrel_native

#include "camera/frames/reduction.h"

#include <algorithm>
#include <cmath>

namespace ostrel_native {

Reduction ReduceToFit(int sourceWidth, int sourceHeight, int maxWidth, int maxHeight) {
  const double scale = std::max(static_cast<double>(sourceWidth) / std::max(maxWidth, 1),
                                static_cast<double>(sourceHeight) / std::max(maxHeight, 1));
  if (scale < 1.0) {
    return {.step = 1, .width = sourceWidth, .height = sourceHeight};
  }
  // The scale is at most INT_MAX, so the ceiling fits an int.
  const int step = std::max(static_cast<int>(std::ceil(scale)), 1);
  return {.step = step,
          .width = std::max(sourceWidth / step, 1),
          .height = std::max(sourceHeight / step, 1)};
}

}  // namespace ostrel_native

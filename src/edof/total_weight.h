// The sum of the stack's weights at every output pixel.
#pragma once

#include <vector>

#include "edof/fusion.h"
#include "edof/map_lines.h"

namespace ostrel_native {

/// A sum of weights that is not above this counts as none: nothing is divided by it.
inline constexpr float kVanishingWeight = 1e-8F;

/// The weight that a frame has at the pixels of one row: `top * (1 - fraction) + bottom *
/// fraction` of two lines of its weight map, `count` values, in 64-bit float, rounded once.
/// Inline, since both users want it within their own loops. Thread: any.
inline float SampledWeight(double top, double bottom, double fraction) {
  return static_cast<float>(top * (1.0 - fraction) + bottom * fraction);
}

/// Sets rows `firstRow` to `lastRow - 1` of `totalWeight`, `columns.width` values a row of
/// `height`, to the sum of all frames' weights, accepted or not, added in frame order. Positions
/// outside a map take the value of its edge. `columns` and `lines` are working memory of the
/// calling thread.
/// Thread: fusion.
void AccumulateTotalWeight(const std::vector<FieldView>& fields,
                           const std::vector<const float*>& weights, int height,
                           MapColumns& columns, MapLines& lines, float* totalWeight, int firstRow,
                           int lastRow);

}  // namespace ostrel_native

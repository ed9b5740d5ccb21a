// The sum of the stack's weights at every output pixel.
#pragma once

#include <vector>

#include "edof/fusion.h"
#include "edof/map_lines.h"

namespace ostrel_native {

/// Sums of weights up to this count as zero; nothing is divided by them.
inline constexpr float kVanishingWeight = 1e-8F;

/// A frame's weight at the pixels of one row: `top * (1 - fraction) + bottom * fraction` of two
/// lines of its weight map, `count` values, in 64-bit float, rounded once.
/// Inline for the loops of both callers. Thread: any.
inline float SampledWeight(double top, double bottom, double fraction) {
  return static_cast<float>(top * (1.0 - fraction) + bottom * fraction);
}

/// Sets rows `firstRow` to `lastRow - 1` of `totalWeight`, `columns.width` values a row of
/// `height`, to the sum of all frames' weights, accepted or not, added in frame order. Positions
/// outside a map take its edge value. `columns` and `lines`: working memory of the calling thread.
/// Thread: fusion.
void AccumulateTotalWeight(const std::vector<FieldView>& fields,
                           const std::vector<const float*>& weights, int height,
                           MapColumns& columns, MapLines& lines, float* totalWeight, int firstRow,
                           int lastRow);

}  // namespace ostrel_native

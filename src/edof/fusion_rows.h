// Row kernels of the blending: accumulate a frame's bands, normalise, convert to bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "edof/fusion.h"
#include "edof/pyramid.h"

namespace ostrel_native {

/// Adds the detail band of one row to the sums: (colour - expansion) * weight to `rgbSum`, the
/// weight to `weightSum`. `rgb`, `expansion` and `rgbSum`: rows of `Level`, 3 * width values;
/// `weight` and `weightSum`: width values.
/// Thread: fusion.
void AccumulateBandRow(const float* rgb, const float* expansion, const float* weight, int width,
                       float* rgbSum, float* weightSum);

/// The same without an expansion: adds colour * weight and the weight.
/// Thread: fusion.
void AccumulateTopRow(const float* rgb, const float* weight, int width, float* rgbSum,
                      float* weightSum);

/// Adds rows `firstRow` to `lastRow - 1` of `level`, minus the expanded next coarser level, to
/// `sums`. `expansion`: working memory, 3 * level.width values.
/// Thread: fusion.
void AccumulateBand(const Level& level, const Level& coarser, const ExpansionColumns& columns,
                    float* expansion, Level& sums, int firstRow, int lastRow);

/// Adds rows `firstRow` to `lastRow - 1` of the coarsest level to `sums`.
/// Thread: fusion.
void AccumulateTop(const Level& level, Level& sums, int firstRow, int lastRow);

/// Divides the sums of one row by their weights. A pixel whose weight does not exceed
/// `kVanishingWeight` keeps its sums: in a detail band they are near zero, and the coarser bands
/// supply the colour. Thread: fusion.
void NormalizeLevelRow(const float* weightSum, int width, float* rgbSum);

/// Rounds one row of `Level` to `width` pixels R, G, B, 255: to nearest, halves away from zero,
/// clamped to 0 to 255. As with `lroundf`, values that do not fit a `long` (NaN, infinities of
/// either sign, 2^63 and above) become 0.
/// Thread: fusion.
void PackRgbaRow(const float* rgb, int width, std::uint8_t* rgba);

}  // namespace ostrel_native

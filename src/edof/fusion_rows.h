// The row work of the blending: adding a frame's bands to the sums, and turning sums into bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "edof/fusion.h"
#include "edof/pyramid.h"

namespace ostrel_native {

/// Adds the detail band of one row to the sums: to `rgbSum` (frame's colour - expansion) * weight,
/// to `weightSum` the weight. `rgb`, `expansion` and `rgbSum` are rows of `Level`, 3 * width
/// values, the other two have width values.
/// Thread: fusion.
void AccumulateBandRow(const float* rgb, const float* expansion, const float* weight, int width,
                       float* rgbSum, float* weightSum);

/// The same without an expansion: adds colour * weight.
/// Thread: fusion.
void AccumulateTopRow(const float* rgb, const float* weight, int width, float* rgbSum,
                      float* weightSum);

/// Adds rows `firstRow` to `lastRow - 1` of `level` to `sums`, less what the next coarser level
/// expands to. `expansion` is working memory of 3 * level.width values.
/// Thread: fusion.
void AccumulateBand(const Level& level, const Level& coarser, const ExpansionColumns& columns,
                    float* expansion, Level& sums, int firstRow, int lastRow);

/// Adds rows `firstRow` to `lastRow - 1` of the coarsest level to `sums`.
/// Thread: fusion.
void AccumulateTop(const Level& level, Level& sums, int firstRow, int lastRow);

/// Turns the sums of one row into weighted means. A pixel whose weight is not above
/// `kVanishingWeight` keeps its sums: in a detail band they are near zero, and the coarser bands
/// give the colour. Thread: fusion.
void NormalizeLevelRow(const float* weightSum, int width, float* rgbSum);

/// Rounds one row of `Level` to `width` pixels R, G, B, 255: to nearest, halves away from zero,
/// what is above 254 to 255 and what is below 1 to 0. As with `lroundf`, what no `long` can hold
/// counts as below 1: NaN, infinities of either sign, and 2^63 and more.
/// Thread: fusion.
void PackRgbaRow(const float* rgb, int width, std::uint8_t* rgba);

}  // namespace ostrel_native

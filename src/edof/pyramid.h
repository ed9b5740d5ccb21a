// Pyramid levels: their sizes, halving rows, and expanding rows back to the finer size.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "edof/fusion.h"

namespace ostrel_native {

/// Width and height of every level, finest first, at most 4 levels. A level is halved, odd sizes
/// rounding up, while it has more than 64 columns and more than 36 rows.
/// Thread: any.
std::vector<std::pair<int, int>> LevelSizes(int width, int height);

/// Averages 2 by 2 boxes of one plane: rows `top` and `bottom`, `width` values each, give
/// (width + 1) / 2 values. `bottom` is null below the last row of an odd height; the box shrinks
/// there and at the last column of an odd width.
/// Thread: any.
void HalveRows(const float* top, const float* bottom, int width, float* out);

/// Fills row `targetRow` of `target` with the averages of two rows of `source`, colours and
/// weights; colours are not weighted. `bottomRow` is -1 below the last row of an odd height.
/// Thread: fusion.
void HalveLevelRows(const Level& source, int topRow, int bottomRow, Level& target, int targetRow);

/// The next coarser level of `source`, filled in place. Throws what `CheckedPixels` throws, and
/// what starting a thread throws.
/// Thread: any environment.
void Downsample(const Level& source, Level& target, unsigned maxThreads);

/// Position of a row or column of an expanded level among those of the coarser level.
struct ExpansionPosition {
  std::int32_t low;   ///< coarse row or column at or before it
  std::int32_t high;  ///< the next one, clamped to the level
  double fraction;    ///< from `low` to `high`, 0 to 1
};

/// Locates row or column `index` of `targetSize` in a level of `sourceSize`; pixel centres
/// correspond.
/// Thread: any.
ExpansionPosition LocateInCoarser(int index, int targetSize, int sourceSize);

/// `LocateInCoarser` of every column. Immutable after construction.
struct ExpansionColumns {
  ExpansionColumns(int coarseWidth, int fineWidth);

  int sourceWidth;
  int targetWidth;
  bool doubles;  ///< whether the width doubles exactly
  UnsetVector<ExpansionPosition> table;
};

/// Expands R, G and B to one row: between coarse rows `top` and `bottom` of `Level`, 3 *
/// columns.sourceWidth values each, at `fraction` from the one to the other, to 3 *
/// columns.targetWidth values.
/// Thread: any.
void UpsampleRgb(const float* top, const float* bottom, double fraction,
                 const ExpansionColumns& columns, float* out);

/// Expands row `y` of a level of `targetHeight` rows from the coarser level `source`.
/// Thread: fusion.
void UpsampleRgbRow(const Level& source, int y, int targetHeight, const ExpansionColumns& columns,
                    float* out);

}  // namespace ostrel_native

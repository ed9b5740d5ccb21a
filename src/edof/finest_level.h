// Blends the finest level of a frame row by row, without storing the whole level.
#pragma once

#include "edof/frame_warp.h"
#include "edof/fusion.h"
#include "edof/pyramid.h"

namespace ostrel_native {

/// Working rows of one thread.
struct RowMemory {
  explicit RowMemory(int width);

  WarpMemory warp;
  Level fine;             ///< last 4 rows of the finest level; row y is at y % 4
  Level coarse;           ///< last 4 rows of the next level; row y is at y % 4
  FloatBuffer expansion;  ///< one row, 3 * width values
};

/// Fills rows `firstRow` to `lastRow - 1` of `next`, the frame's second level, and adds the detail
/// band of the corresponding fine rows (twice as many) to `sums`. A band row needs the rows of
/// `next` above and below it; at the ends of the range those belong to another thread, so both
/// threads compute them and neither waits.
/// `columns`: the expansion of `next` to the frame's width.
/// Thread: fusion.
void BlendFinestLevel(const FrameWarp& warp, const ExpansionColumns& columns, RowMemory& memory,
                      Level& next, Level& sums, int firstRow, int lastRow);

/// Adds rows `firstRow` to `lastRow - 1` of the frame to `sums`, for a pyramid of a single level.
/// Thread: fusion.
void BlendOnlyLevel(const FrameWarp& warp, RowMemory& memory, Level& sums, int firstRow,
                    int lastRow);

}  // namespace ostrel_native

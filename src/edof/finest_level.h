// The finest level of a frame, blended row by row without ever being stored whole.
#pragma once

#include "edof/frame_warp.h"
#include "edof/fusion.h"
#include "edof/pyramid.h"

namespace ostrel_native {

/// The rows that one thread works on.
struct RowMemory {
  explicit RowMemory(int width);

  WarpMemory warp;
  Level fine;             ///< the latest 4 rows of the finest level, row y in place y % 4
  Level coarse;           ///< the latest 4 rows of the next level, likewise
  FloatBuffer expansion;  ///< one row, 3 * width values
};

/// Fills rows `firstRow` to `lastRow - 1` of `next`, the frame's second level, and adds the detail
/// band of the rows below them, twice as many, to `sums`. A row of the band needs the rows of
/// `next` above and beneath it, which at either end belong to another thread: both threads make
/// them, so none waits.
/// `columns` expand `next` to the frame's width.
/// Thread: fusion.
void BlendFinestLevel(const FrameWarp& warp, const ExpansionColumns& columns, RowMemory& memory,
                      Level& next, Level& sums, int firstRow, int lastRow);

/// Adds rows `firstRow` to `lastRow - 1` of the frame to `sums`, for a pyramid of a single level.
/// Thread: fusion.
void BlendOnlyLevel(const FrameWarp& warp, RowMemory& memory, Level& sums, int firstRow,
                    int lastRow);

}  // namespace ostrel_native

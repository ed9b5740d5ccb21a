// Resamples one frame onto the output grid through its alignment field, row by row.
#pragma once

#include <cstdint>

#include "edof/fusion.h"
#include "edof/map_lines.h"

namespace ostrel_native {

/// Inputs shared by all rows of one frame. Owns no memory.
struct FrameWarp {
  FrameView frame;
  FieldView field;
  const float* weights;            ///< the frame's raw weights, one a map cell
  const std::uint8_t* reference;   ///< pixels of the reference frame
  const float* totalWeight;        ///< of the stack, one an output pixel
  float weightWhereStackVanishes;  ///< 1 for the reference frame, otherwise 0
  int width;                       ///< of the output and of every frame
  int height;
};

/// Working memory of one thread.
struct WarpMemory {
  explicit WarpMemory(int width);

  /// Call before warping rows of another frame.
  void Begin(const FrameWarp& warp);

  MapColumns columns;
  MapLines weight;
  MapLines x;
  MapLines y;
  MapLines confidence;
};

/// Warps output row `y`. Each pixel gets the frame's colour and normalised weight or, where the
/// frame does not cover it, the reference frame's colour at the same pixel and weight 0.
/// `rgb`: a row of `Level`, 3 * width values; `weight`: width values.
/// Thread: fusion.
void WarpFrameRow(const FrameWarp& warp, int y, WarpMemory& memory, float* rgb, float* weight);

}  // namespace ostrel_native

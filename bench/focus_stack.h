// A focus stack for the benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "edof/fusion.h"

namespace ostrel_native::bench {

/// Textured frames that differ, fields that differ a little from identity, scales that grow from
/// frame to frame, and weights that change from cell to cell. Maps have a cell for 8 by 8 pixels.
/// All of a frame's pixels are warped but those at its edge, in the outer half cells of the maps.
struct FocusStack {
  FocusStack(int stackWidth, int stackHeight, int count);
  FocusStack(const FocusStack&) = delete;
  FocusStack& operator=(const FocusStack&) = delete;

  int Reference() const { return static_cast<int>(frames.size()) / 2; }
  double Pixels() const { return static_cast<double>(width) * height; }
  double PixelsOfAllFrames() const { return Pixels() * static_cast<double>(frames.size()); }

  std::vector<std::uint8_t> Fused(unsigned threads) const;

  int width;
  int height;
  std::deque<std::vector<std::uint8_t>> pixels;
  std::deque<std::vector<float>> maps;
  std::vector<FrameView> frames;
  std::vector<FieldView> fields;
  std::vector<const float*> weights;
};

}  // namespace ostrel_native::bench

// Reducing a frame by whole steps until it fits a wanted size.
#pragma once

namespace ostrel_native {

/// A reduction by whole steps: every `step`-th pixel of every `step`-th row is kept.
struct Reduction {
  int step = 1;
  int width = 1;   ///< pixels of the result, at least 1
  int height = 1;  ///< pixels of the result, at least 1
};

/// The smallest whole step that brings a frame within `maxWidth` by `maxHeight`, both at least 1.
/// A frame that fits already is never enlarged.
/// Thread: any.
Reduction ReduceToFit(int sourceWidth, int sourceHeight, int maxWidth, int maxHeight);

}  // namespace ostrel_native

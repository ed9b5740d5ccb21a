// The fusion of a focus stack written down step by step, as the oracle of the fast one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "edof/fusion.h"

namespace ostrel_native::test {

/// A request. It and the result share their records with the fusion under test; no code is shared.
struct ReferenceStack {
  int width;
  int height;
  int referenceIndex;
  const std::vector<FrameView>& frames;
  const std::vector<FieldView>& fields;
  const std::vector<const float*>& weights;
};

/// A level with R, G, B side by side, 3 values a pixel.
struct ReferenceLevel {
  int width;
  int height;
  std::vector<float> rgb;
  std::vector<float> weight;
};

/// The same bytes as the fusion under test gives, on one thread.
std::vector<std::uint8_t> ReferenceFuse(const ReferenceStack& stack);

/// The value of a map at a position, bilinear, the edges clamped.
float ReferenceSampleMapClamped(const float* map, int width, int height, double x, double y);

/// The sum of all frames' weights at every output pixel.
std::vector<float> ReferenceTotalWeight(const ReferenceStack& stack);

/// Frame `i` on the output grid.
ReferenceLevel ReferenceWarpFrame(const ReferenceStack& stack, std::size_t i,
                                  const std::vector<float>& totalWeight);

/// The next coarser level.
ReferenceLevel ReferenceDownsample(const ReferenceLevel& source);

/// `source`, 3 values a pixel, expanded to the target size.
std::vector<float> ReferenceUpsampleRgb(const std::vector<float>& source, int sourceWidth,
                                        int sourceHeight, int targetWidth, int targetHeight);

/// The byte of a fused value.
std::uint8_t ReferenceByte(float value);

}  // namespace ostrel_native::test

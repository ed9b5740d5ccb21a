// Focus stacks made from a seed, with every kind of content that a request may bring.
#pragma once

#include <cstdint>
#include <deque>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "edof/fusion.h"
#include "reference/fuse_reference.h"
#include "unit/support/guarded_buffer.h"

namespace ostrel_native::test {

/// The sizes among which a stack's seed chooses.
using Sizes = std::vector<std::pair<int, int>>;

/// A whole request. Every array ends at a page that nothing may touch.
struct RandomStack {
  /// Size, number of frames, maps, weights and patterns follow from `seed`.
  RandomStack(std::uint32_t seed, const Sizes& sizes);
  RandomStack(const RandomStack&) = delete;
  RandomStack& operator=(const RandomStack&) = delete;

  ReferenceStack ForReference() const {
    return {width, height, referenceIndex, frames, fields, weights};
  }

  std::uint32_t seed;
  int width;
  int height;
  int referenceIndex;
  std::vector<FrameView> frames;
  std::vector<FieldView> fields;
  std::vector<const float*> weights;

  std::deque<GuardedBuffer> storage;
};

/// Names the seed and the shape, for the message of a failed comparison.
std::ostream& operator<<(std::ostream& out, const RandomStack& stack);

/// The volume of random tests: `few` by itself, less under a sanitizer, and times
/// OSTREL_TEST_VOLUME if that is set.
int TestVolume(int few);

/// Whether two floats are the same number; all NaNs are.
bool SameFloat(float a, float b);

/// `level` with R, G and B side by side, as the reference has it.
std::vector<float> Interleaved(const Level& level);

/// The first difference of two equally long lists of floats as a text, empty if there is none.
std::string FirstDifference(const std::vector<float>& actual, const std::vector<float>& expected);

}  // namespace ostrel_native::test

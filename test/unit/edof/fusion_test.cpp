#include "edof/fusion.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "unit/edof/random_stack.h"
#include "unit/support/thread_spy.h"

namespace ostrel_native {

namespace {

using test::RandomStack;
using test::ReferenceFuse;
using test::Sizes;

constexpr unsigned kThreadLimits[] = {1, 2, 5, 8};

std::vector<std::string> SimdWords() {
  if (__builtin_cpu_supports("avx2")) {
    return {"avx2", "sse2"};
  }
  return {"sse2"};
}

std::vector<std::uint8_t> FuseStack(const RandomStack& stack, unsigned maxThreads,
                                    const std::string& simd) {
  return Fuse(stack.width, stack.height, stack.referenceIndex, stack.frames, stack.fields,
              stack.weights, maxThreads, simd);
}

void ExpectSameBytes(const RandomStack& stack, unsigned maxThreads, const std::string& simd,
                     const std::vector<std::uint8_t>& expected) {
  const std::vector<std::uint8_t> actual = FuseStack(stack, maxThreads, simd);
  ASSERT_EQ(actual.size(), expected.size());
  const auto [here, there] = std::mismatch(actual.begin(), actual.end(), expected.begin());
  ASSERT_TRUE(here == actual.end())
      << stack << ", " << maxThreads << " threads, " << simd << ": byte " << here - actual.begin()
      << " is " << int{*here} << " instead of " << int{*there};
}

// Every request with one thread limit and one form of the array add in turn, and every eighth with
// all of them.
void CompareWithReference(const Sizes& sizes, std::uint32_t firstSeed, int count) {
  const std::vector<std::string> simdWords = SimdWords();
  for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(test::TestVolume(count)); ++i) {
    const RandomStack stack(firstSeed + i, sizes);
    const std::vector<std::uint8_t> expected = ReferenceFuse(stack.ForReference());
    for (std::uint32_t limit = 0; limit < 4; ++limit) {
      for (std::uint32_t word = 0; word < simdWords.size(); ++word) {
        if (i % 8 == 0 || (limit == i % 4 && word == i / 4 % simdWords.size())) {
          ASSERT_NO_FATAL_FAILURE(
              ExpectSameBytes(stack, kThreadLimits[limit], simdWords[word], expected));
        }
      }
    }
  }
}

TEST(FuseAgainstReference, TinyImages) {
  CompareWithReference({{1, 1}, {2, 1}, {1, 2}, {2, 2}, {3, 3}, {5, 4}, {4, 7}, {8, 8}}, 10000,
                       2000);
}

TEST(FuseAgainstReference, SingleRowsAndColumns) {
  CompareWithReference({{1, 60}, {1, 130}, {63, 1}, {64, 1}, {65, 1}, {200, 1}, {300, 2}, {2, 300}},
                       20000, 500);
}

TEST(FuseAgainstReference, AroundTheSmallestSplitSize) {
  CompareWithReference({{64, 36},
                        {65, 36},
                        {64, 37},
                        {65, 37},
                        {66, 38},
                        {67, 37},
                        {63, 40},
                        {65, 47},
                        {65, 48},
                        {66, 49}},
                       30000, 300);
}

TEST(FuseAgainstReference, TwoAndThreeLevels) {
  CompareWithReference(
      {{100, 100}, {129, 73}, {128, 72}, {130, 74}, {127, 97}, {130, 145}, {200, 75}}, 40000, 80);
}

TEST(FuseAgainstReference, FourLevels) {
  CompareWithReference({{257, 145}, {258, 146}, {256, 144}, {264, 152}, {300, 203}, {261, 390}},
                       50000, 20);
}

// All patterns of small stacks, some of large ones; whether any of them is accepted at all
// included.
TEST(FuseAgainstReference, EveryReferenceAndPatternOfAcceptedFields) {
  constexpr unsigned kPatterns = 16;
  std::set<std::size_t> counts;
  for (std::uint32_t seed = 60000; counts.size() < 9; ++seed) {
    RandomStack stack(seed, {{6, 5}});
    const std::size_t count = stack.frames.size();
    if (!counts.insert(count).second) {
      continue;
    }
    const unsigned step = std::max(1U, (1U << count) / kPatterns + 1);
    for (std::size_t reference = 0; reference < count; ++reference) {
      stack.referenceIndex = static_cast<int>(reference);
      for (unsigned pattern = 0; pattern < 1U << count; pattern += step) {
        for (std::size_t i = 0; i < count; ++i) {
          stack.fields[i].accepted = (pattern >> i & 1U) != 0;
        }
        ASSERT_NO_FATAL_FAILURE(
            ExpectSameBytes(stack, 1, "sse2", ReferenceFuse(stack.ForReference())));
      }
    }
  }
}

TEST(CheckedPixels, TakesOneTo16384) {
  EXPECT_EQ(CheckedPixels(1, 1), 1U);
  EXPECT_EQ(CheckedPixels(16384, 16384), 268435456U);
}

TEST(CheckedPixels, RefusesEverythingElse) {
  constexpr int kLowest = std::numeric_limits<int>::min();
  constexpr int kHighest = std::numeric_limits<int>::max();
  for (const int size : {0, -1, 16385, kLowest, kHighest}) {
    for (const auto& [width, height] : {std::pair{size, 1}, std::pair{1, size}}) {
      try {
        CheckedPixels(width, height);
        ADD_FAILURE() << width << " x " << height;
      } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Native EDOF dimensions are invalid");
      }
    }
  }
}

TEST(Fuse, ChecksTheSizeBeforeAnythingElse) {
  EXPECT_THROW(Fuse(0, 5, 0, {}, {}, {}, 1, "sse2"), std::runtime_error);
}

// Three frames of one colour each, identity maps of the image's size, confidence 1, equal weights.
struct PlainStack {
  PlainStack(int stackWidth, int stackHeight) : width(stackWidth), height(stackHeight) {
    const auto pixels = static_cast<std::size_t>(width * height);
    for (int row = 0; row < height; ++row) {
      for (int column = 0; column < width; ++column) {
        x.push_back(static_cast<float>(column));
        y.push_back(static_cast<float>(row));
      }
    }
    confidence.assign(pixels, 1.0F);
    for (std::size_t i = 0; i < 3; ++i) {
      for (std::size_t byte = 0; byte < 4 * pixels; ++byte) {
        rgba[i].push_back(static_cast<std::uint8_t>(byte * (i + 7) + byte / 5));
      }
      weight[i].assign(pixels, 1.0F);
    }
  }

  std::vector<std::uint8_t> Fused(int referenceIndex = 0, unsigned maxThreads = 2) const {
    std::vector<FrameView> frames;
    std::vector<FieldView> fields;
    std::vector<const float*> weights;
    for (std::size_t i = 0; i < 3; ++i) {
      frames.push_back({rgba[i].data(), scale});
      fields.push_back({mapWidth == 0 ? width : mapWidth, mapHeight == 0 ? height : mapHeight,
                        x.data(), y.data(), confidence.data(), accepted[i]});
      weights.push_back(weight[i].data());
    }
    const std::vector<std::uint8_t> fused =
        Fuse(width, height, referenceIndex, frames, fields, weights, maxThreads, "sse2");
    EXPECT_EQ(fused, ReferenceFuse({width, height, referenceIndex, frames, fields, weights}));
    return fused;
  }

  // Frame `i` as the fusion gives it: opaque.
  std::vector<std::uint8_t> Opaque(std::size_t i) const {
    std::vector<std::uint8_t> bytes = rgba[i];
    for (std::size_t byte = 3; byte < bytes.size(); byte += 4) {
      bytes[byte] = 255;
    }
    return bytes;
  }

  int width;
  int height;
  int mapWidth = 0;
  int mapHeight = 0;
  double scale = 1.0;
  std::vector<float> x;
  std::vector<float> y;
  std::vector<float> confidence;
  std::vector<float> weight[3];
  std::vector<std::uint8_t> rgba[3];
  bool accepted[3] = {true, true, true};
};

std::vector<std::uint8_t> Black(int pixels) {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < pixels; ++i) {
    bytes.insert(bytes.end(), {0, 0, 0, 255});
  }
  return bytes;
}

TEST(Fuse, WithoutAnAcceptedFieldEverythingIsBlackAndOpaque) {
  for (const auto& [width, height] : {std::pair{5, 4}, std::pair{130, 74}}) {
    PlainStack stack(width, height);
    std::fill(stack.accepted, stack.accepted + 3, false);
    EXPECT_EQ(stack.Fused(), Black(width * height));
  }
}

TEST(Fuse, IdentityMapsSampleAFrameAtItsOwnPixels) {
  PlainStack stack(20, 10);
  stack.weight[0].assign(200, 0.0F);
  stack.weight[2].assign(200, 0.0F);
  EXPECT_EQ(stack.Fused(), stack.Opaque(1));
}

TEST(Fuse, WhereTheWeightsVanishTheReferenceAloneCounts) {
  PlainStack stack(20, 10);
  for (std::vector<float>& weight : stack.weight) {
    weight.assign(200, 0.0F);
  }
  EXPECT_EQ(stack.Fused(2), stack.Opaque(2));
  stack.accepted[2] = false;
  EXPECT_EQ(stack.Fused(2), Black(200));
}

TEST(Fuse, APixelThatNoFrameSuppliesIsBlackOnASingleLevel) {
  PlainStack stack(20, 10);
  stack.confidence[33] = 0.0F;
  const std::vector<std::uint8_t> fused = stack.Fused();
  EXPECT_EQ(std::vector<std::uint8_t>(fused.begin() + 132, fused.begin() + 136), Black(1));
}

TEST(Fuse, APixelThatNoFrameSuppliesComesOutOfCoarserBands) {
  PlainStack stack(70, 40);
  for (std::vector<std::uint8_t>& rgba : stack.rgba) {
    std::fill(rgba.begin(), rgba.end(), std::uint8_t{90});
  }
  stack.confidence[33] = 0.0F;
  std::vector<std::uint8_t> expected(stack.rgba[0]);
  for (std::size_t byte = 3; byte < expected.size(); byte += 4) {
    expected[byte] = 255;
  }
  EXPECT_EQ(stack.Fused(), expected);
}

TEST(Fuse, ARejectedFrameStillLowersTheWeightsOfTheOthers) {
  // A sum of 2/3 of the weight, normalised again by itself: the colours stay the same. What shows
  // is a sum that no longer is above 1e-8: then it is not normalised.
  PlainStack stack(4, 4);
  stack.weight[0].assign(16, 1e-9F);
  stack.weight[1].assign(16, 1.0F);
  stack.weight[2].assign(16, 0.0F);
  stack.accepted[1] = false;
  EXPECT_EQ(stack.Fused(), Black(16));
  stack.weight[1].assign(16, 0.0F);
  stack.weight[0].assign(16, 1e-7F);
  EXPECT_EQ(stack.Fused(), stack.Opaque(0));
}

TEST(Fuse, WithACoarseMapTheOuterHalfCellIsBlackOnASingleLevel) {
  PlainStack stack(12, 8);
  stack.mapWidth = 3;
  stack.mapHeight = 2;
  stack.x = {0, 1, 2, 0, 1, 2};
  stack.y = {0, 0, 0, 1, 1, 1};
  const std::vector<std::uint8_t> fused = stack.Fused();
  for (std::size_t y = 0; y < 8; ++y) {
    for (std::size_t x = 0; x < 12; ++x) {
      const bool inside = x >= 2 && x <= 9 && y >= 2 && y <= 5;
      const std::size_t byte = 4 * (12 * y + x);
      const bool black = fused[byte] == 0 && fused[byte + 1] == 0 && fused[byte + 2] == 0;
      EXPECT_NE(black, inside) << x << ", " << y;
    }
  }
}

TEST(Fuse, AMapOfOneCellReachesTheMiddlePixelAlone) {
  PlainStack stack(5, 3);
  stack.mapWidth = 1;
  stack.mapHeight = 1;
  stack.x[0] = 0.0F;
  stack.y[0] = 0.0F;
  const std::vector<std::uint8_t> fused = stack.Fused();
  for (std::size_t pixel = 0; pixel < 15; ++pixel) {
    EXPECT_EQ(fused[4 * pixel + 1] != 0, pixel == 7) << pixel;
  }
}

TEST(Fuse, AScaleAboveOneMovesOuterPixelsOutOfTheFrame) {
  PlainStack stack(9, 9);
  stack.scale = 2.0;
  for (std::vector<std::uint8_t>& rgba : stack.rgba) {
    std::fill(rgba.begin(), rgba.end(), std::uint8_t{50});
  }
  const std::vector<std::uint8_t> fused = stack.Fused();
  for (std::size_t pixel = 0; pixel < 81; ++pixel) {
    const std::size_t x = pixel % 9;
    const std::size_t y = pixel / 9;
    const bool inside = x >= 2 && x <= 6 && y >= 2 && y <= 6;
    EXPECT_EQ(fused[4 * pixel], inside ? 50 : 0) << x << ", " << y;
  }
}

TEST(Fuse, ASumOfWeightsBeyondAllFloatsLeavesNoWeight) {
  PlainStack stack(6, 6);
  for (std::vector<float>& weight : stack.weight) {
    weight.assign(36, 3e38F);
  }
  EXPECT_EQ(stack.Fused(), Black(36));
}

TEST(Fuse, AnInfiniteWeightEndsInBlack) {
  // Between the two cells the difference overflows: the weight is infinite, so is the sum, and
  // the share of one in the other is NaN.
  PlainStack stack(4, 4);
  stack.mapWidth = 2;
  stack.mapHeight = 2;
  stack.x = {0, 1, 0, 1};
  stack.y = {0, 0, 1, 1};
  stack.weight[0] = {-3e38F, 3e38F, -3e38F, 3e38F};
  const std::vector<std::uint8_t> fused = stack.Fused();
  EXPECT_EQ(std::vector<std::uint8_t>(fused.begin() + 20, fused.begin() + 28), Black(2));
  stack.weight[0] = {0.0F, 0.0F, 0.0F, 0.0F};
  EXPECT_NE(stack.Fused()[20], 0);
}

TEST(Fuse, AWeightThatIsNoNumberLeavesTheReferenceAlone) {
  PlainStack stack(6, 6);
  stack.weight[0].assign(36, std::numeric_limits<float>::quiet_NaN());
  EXPECT_EQ(stack.Fused(1), stack.Opaque(1));
}

TEST(Fuse, TwoCallsGiveTheSameBytes) {
  const RandomStack stack(77, {{129, 73}});
  EXPECT_EQ(FuseStack(stack, 3, "sse2"), FuseStack(stack, 3, "sse2"));
}

TEST(Fuse, AThreadThatCannotBeStartedIsReported) {
  const RandomStack stack(78, {{130, 100}});
  for (int n = 1; n < 20; ++n) {
    const test::FailingThreadStart failing(n);
    try {
      FuseStack(stack, 3, "sse2");
      ADD_FAILURE() << "start " << n;
    } catch (const std::system_error& error) {
      EXPECT_STREQ(error.what(), "Resource temporarily unavailable");
    }
  }
}

TEST(Fuse, ALimitOfOneStartsNoThread) {
  const RandomStack stack(79, {{130, 100}});
  const int before = test::StartedThreads();
  FuseStack(stack, 1, "sse2");
  EXPECT_EQ(test::StartedThreads(), before);
}

int ThreadsStartedToFuse(int width, int height, unsigned maxThreads) {
  const int before = test::StartedThreads();
  PlainStack(width, height).Fused(0, maxThreads);
  return test::StartedThreads() - before;
}

TEST(Fuse, FortySevenRowsStartNoThread) {
  EXPECT_EQ(ThreadsStartedToFuse(60, 47, 8), 0);
  EXPECT_EQ(ThreadsStartedToFuse(200, 47, 8), 0);
}

TEST(Fuse, EveryStageStartsItsThreads) {
  // Clearing, summing weights, three frames, packing.
  EXPECT_EQ(ThreadsStartedToFuse(60, 48, 8), 6 * 7);
  EXPECT_EQ(ThreadsStartedToFuse(60, 48, 3), 6 * 2);
  // Two levels, of 96 and 48 rows: clearing and collapsing both, and of each frame the finest level
  // and the coarsest.
  EXPECT_EQ(ThreadsStartedToFuse(100, 96, 8), (2 + 1 + 3 * 2 + 2) * 7);
  // The pass over the finest level goes by the rows of the next one: 47 are not split.
  EXPECT_EQ(ThreadsStartedToFuse(100, 94, 8), (1 + 1 + 1) * 7);
}

}  // namespace

}  // namespace ostrel_native

#include "edof/frame_warp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "edof/finest_level.h"
#include "edof/total_weight.h"
#include "unit/edof/random_stack.h"

namespace ostrel_native {

namespace {

using test::FirstDifference;
using test::Interleaved;
using test::RandomStack;
using test::ReferenceLevel;

const test::Sizes kSizes = {{1, 1},  {1, 9},  {9, 1},  {2, 2},    {7, 5},   {33, 20},
                            {64, 9}, {65, 8}, {63, 7}, {130, 11}, {200, 60}};

FrameWarp WarpOf(const RandomStack& stack, std::size_t i, const float* totalWeight) {
  const auto reference = static_cast<std::size_t>(stack.referenceIndex);
  return {stack.frames[i],  stack.fields[i],
          stack.weights[i], stack.frames[reference].rgba,
          totalWeight,      i == reference ? 1.0F : 0.0F,
          stack.width,      stack.height};
}

std::vector<float> TotalWeight(const RandomStack& stack) {
  std::vector<float> total(static_cast<std::size_t>(stack.width * stack.height), -1.0F);
  MapColumns columns(stack.width);
  MapLines lines(stack.width);
  // In two parts, since threads get parts.
  const int middle = stack.height / 3;
  AccumulateTotalWeight(stack.fields, stack.weights, stack.height, columns, lines, total.data(), 0,
                        middle);
  AccumulateTotalWeight(stack.fields, stack.weights, stack.height, columns, lines, total.data(),
                        middle, stack.height);
  return total;
}

TEST(TotalWeight, IsTheReferencesAtEveryPixel) {
  for (std::uint32_t seed = 1; seed <= static_cast<std::uint32_t>(test::TestVolume(400)); ++seed) {
    const RandomStack stack(seed, kSizes);
    EXPECT_EQ(FirstDifference(TotalWeight(stack), test::ReferenceTotalWeight(stack.ForReference())),
              "")
        << stack;
  }
}

TEST(FrameWarp, GivesTheReferencesColoursAndWeightsAtEveryPixel) {
  for (std::uint32_t seed = 1; seed <= static_cast<std::uint32_t>(test::TestVolume(400)); ++seed) {
    const RandomStack stack(seed, kSizes);
    const std::vector<float> total = test::ReferenceTotalWeight(stack.ForReference());
    WarpMemory memory(stack.width);
    for (std::size_t i = 0; i < stack.frames.size(); ++i) {
      const FrameWarp warp = WarpOf(stack, i, total.data());
      memory.Begin(warp);
      Level level(stack.width, stack.height);
      for (int y = 0; y < stack.height; ++y) {
        WarpFrameRow(warp, y, memory, level.RgbRow(y), level.WeightRow(y));
      }
      const ReferenceLevel expected = test::ReferenceWarpFrame(stack.ForReference(), i, total);
      ASSERT_EQ(FirstDifference(Interleaved(level), expected.rgb), "") << stack << " frame " << i;
      ASSERT_EQ(FirstDifference({level.weight.begin(), level.weight.end()}, expected.weight), "")
          << stack << " frame " << i;
    }
  }
}

struct WarpedPixel {
  float red;
  float weight;

  bool operator==(const WarpedPixel&) const = default;
};

constexpr WarpedPixel kDelivered{100.0F, 0.5F};
constexpr WarpedPixel kFallback{200.0F, 0.0F};

// A frame with a map of 2 by 2 cells over an image of 4 by 4 pixels, of which the inner 2 by 2 lie
// inside the map, all at fractions of a quarter or three quarters.
struct SmallWarp {
  WarpedPixel FirstInnerPixel() const {
    const FrameWarp warp{{frame.data(), 1.0},
                         {2, 2, x.data(), y.data(), confidence.data(), true},
                         weights.data(),
                         reference.data(),
                         total.data(),
                         0.0F,
                         4,
                         4};
    WarpMemory memory(4);
    memory.Begin(warp);
    float rgb[12];
    float weight[4];
    WarpFrameRow(warp, 1, memory, rgb, weight);
    EXPECT_EQ((WarpedPixel{rgb[0], weight[0]}), kFallback) << "the pixel outside the map";
    return {rgb[1], weight[1]};
  }

  std::vector<float> x = {0, 1, 0, 1};
  std::vector<float> y = {0, 0, 1, 1};
  std::vector<float> confidence = {1, 1, 1, 1};
  std::vector<float> weights = {0.5F, 0.5F, 0.5F, 0.5F};
  std::vector<float> total = std::vector<float>(16, 1.0F);
  std::vector<std::uint8_t> frame = std::vector<std::uint8_t>(64, 100);
  std::vector<std::uint8_t> reference = std::vector<std::uint8_t>(64, 200);
};

constexpr std::vector<float> SmallWarp::*kMaps[] = {&SmallWarp::x, &SmallWarp::y,
                                                    &SmallWarp::confidence};

TEST(FrameWarp, DeliversAPixelInsideTheMap) {
  EXPECT_EQ(SmallWarp().FirstInnerPixel(), kDelivered);
}

TEST(FrameWarp, OneCornerThatIsNotFiniteRejectsThePixelsOfItsCell) {
  const float odd[] = {std::numeric_limits<float>::quiet_NaN(),
                       std::numeric_limits<float>::infinity(),
                       -std::numeric_limits<float>::infinity()};
  for (const float value : odd) {
    for (std::size_t corner = 0; corner < 4; ++corner) {
      for (const auto map : kMaps) {
        SmallWarp warp;
        (warp.*map)[corner] = value;
        EXPECT_EQ(warp.FirstInnerPixel(), kFallback) << value << " in corner " << corner;
      }
    }
  }
}

TEST(FrameWarp, ADifferenceThatOverflowsRejectsThePixel) {
  for (const auto map : kMaps) {
    SmallWarp warp;
    warp.*map = {-3e38F, 3e38F, -3e38F, 3e38F};
    EXPECT_EQ(warp.FirstInnerPixel(), kFallback);
  }
}

// The last row and column have no next one; what is sampled there must be read within the frame.
TEST(FrameWarp, SamplesTheLastRowAndColumnExactly) {
  for (const auto& [width, height] :
       {std::pair{1, 1}, std::pair{1, 5}, std::pair{5, 1}, std::pair{2, 2}, std::pair{6, 4}}) {
    const std::size_t pixels = static_cast<std::size_t>(width * height);
    test::GuardedBuffer rgba(4 * pixels);
    for (std::size_t byte = 0; byte < rgba.size(); ++byte) {
      rgba.data()[byte] = static_cast<std::uint8_t>(37 * byte + 11);
    }
    std::vector<float> x;
    std::vector<float> y;
    for (int cell = 0; cell < width * height; ++cell) {
      x.push_back(static_cast<float>(cell % width));
      y.push_back(static_cast<float>(cell / width));
    }
    const std::vector<float> ones(pixels, 1.0F);
    const FrameWarp warp{{rgba.data(), 1.0},
                         {width, height, x.data(), y.data(), ones.data(), true},
                         ones.data(),
                         rgba.data(),
                         ones.data(),
                         1.0F,
                         width,
                         height};
    WarpMemory memory(width);
    memory.Begin(warp);
    Level level(width, height);
    for (int row = 0; row < height; ++row) {
      WarpFrameRow(warp, row, memory, level.RgbRow(row), level.WeightRow(row));
    }
    const std::vector<float> colours = Interleaved(level);
    for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
      for (std::size_t channel = 0; channel < 3; ++channel) {
        EXPECT_EQ(colours[3 * pixel + channel], rgba.data()[4 * pixel + channel])
            << "pixel " << pixel << " of " << width << " x " << height;
      }
      EXPECT_EQ(level.weight[pixel], 1.0F);
    }
  }
}

TEST(FrameWarp, TheLargestConfidenceIsUsable) {
  SmallWarp warp;
  warp.confidence.assign(4, std::numeric_limits<float>::max());
  EXPECT_EQ(warp.FirstInnerPixel(), kDelivered);
}

TEST(FrameWarp, AConfidenceAtTheThresholdIsUsableAndTheOneBelowIsNot) {
  SmallWarp warp;
  warp.confidence.assign(4, 0.02F);
  EXPECT_EQ(warp.FirstInnerPixel(), kDelivered);
  warp.confidence.assign(4, std::nextafter(0.02F, 0.0F));
  EXPECT_EQ(warp.FirstInnerPixel(), kFallback);
}

TEST(FrameWarp, OnlyATotalAboveTheVanishingWeightIsDividedBy) {
  const float tiny = 1e-8F;
  SmallWarp warp;
  warp.total.assign(16, std::nextafter(tiny, 1.0F));
  EXPECT_EQ(warp.FirstInnerPixel(), (WarpedPixel{100.0F, 0.5F / std::nextafter(tiny, 1.0F)}));
  for (const float total : {tiny, 0.0F, -1.0F, std::numeric_limits<float>::quiet_NaN()}) {
    warp.total.assign(16, total);
    EXPECT_EQ(warp.FirstInnerPixel(), (WarpedPixel{100.0F, 0.0F})) << total;
  }
}

// A part makes the rows at its ends by itself; what it stores and adds is what one part for all
// rows stores and adds.
TEST(FinestLevel, PartsGiveWhatTheWholeGives) {
  const test::Sizes sizes = {{70, 40}, {71, 41}, {66, 43}, {130, 39}, {65, 37}};
  for (std::uint32_t seed = 1; seed <= static_cast<std::uint32_t>(test::TestVolume(60)); ++seed) {
    const RandomStack stack(seed, sizes);
    const std::vector<float> total = TotalWeight(stack);
    const FrameWarp warp = WarpOf(stack, 0, total.data());
    const int nextWidth = (stack.width + 1) / 2;
    const int nextHeight = (stack.height + 1) / 2;
    const ExpansionColumns columns(nextWidth, stack.width);
    const auto blend = [&](const std::vector<int>& bounds) {
      std::pair<Level, Level> result{Level(nextWidth, nextHeight),
                                     Level(stack.width, stack.height)};
      std::fill(result.second.rgb.begin(), result.second.rgb.end(), 0.5F);
      std::fill(result.second.weight.begin(), result.second.weight.end(), 0.5F);
      for (std::size_t part = 0; part + 1 < bounds.size(); ++part) {
        RowMemory memory(stack.width);
        BlendFinestLevel(warp, columns, memory, result.first, result.second, bounds[part],
                         bounds[part + 1]);
      }
      return result;
    };
    const auto whole = blend({0, nextHeight});
    std::vector<int> everyRow;
    for (int y = 0; y <= nextHeight; ++y) {
      everyRow.push_back(y);
    }
    for (const auto& bounds : {std::vector<int>{0, 1, nextHeight - 1, nextHeight},
                               std::vector<int>{0, nextHeight / 2, nextHeight}, everyRow}) {
      const auto parts = blend(bounds);
      ASSERT_EQ(FirstDifference(Interleaved(parts.first), Interleaved(whole.first)), "") << stack;
      ASSERT_EQ(FirstDifference(Interleaved(parts.second), Interleaved(whole.second)), "") << stack;
      ASSERT_TRUE(std::equal(parts.second.weight.begin(), parts.second.weight.end(),
                             whole.second.weight.begin(), test::SameFloat))
          << stack;
    }
  }
}

}  // namespace

}  // namespace ostrel_native

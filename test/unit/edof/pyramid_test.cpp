#include "edof/pyramid.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include "reference/fuse_reference.h"
#include "unit/edof/random_stack.h"

namespace ostrel_native {

namespace {

using test::FirstDifference;
using test::Interleaved;
using test::ReferenceDownsample;
using test::ReferenceLevel;
using test::ReferenceUpsampleRgb;

using SizeList = std::vector<std::pair<int, int>>;

constexpr unsigned kSeed = 4711;

Level RandomLevel(std::mt19937& engine, int width, int height) {
  Level level(width, height);
  std::uniform_real_distribution<float> colours(-300.0F, 300.0F);
  const auto value = [&engine, &colours] {
    switch (engine() % 64) {
      case 0:
        return std::numeric_limits<float>::infinity();
      case 1:
        return std::numeric_limits<float>::quiet_NaN();
      case 2:
        return std::numeric_limits<float>::denorm_min();
      case 3:
        return 1e-20F;
      case 4:
        return std::numeric_limits<float>::max();
      default:
        return colours(engine);
    }
  };
  std::generate(level.rgb.begin(), level.rgb.end(), value);
  std::generate(level.weight.begin(), level.weight.end(), value);
  return level;
}

ReferenceLevel ForReference(const Level& level) {
  return {level.width, level.height, Interleaved(level),
          std::vector<float>(level.weight.begin(), level.weight.end())};
}

void ExpectHalves(const SizeList& sizes, unsigned maxThreads) {
  std::mt19937 engine(kSeed);
  for (const auto& [width, height] : sizes) {
    const Level source = RandomLevel(engine, width, height);
    Level target((width + 1) / 2, (height + 1) / 2);
    Downsample(source, target, maxThreads);
    const ReferenceLevel expected = ReferenceDownsample(ForReference(source));
    ASSERT_EQ(target.width, expected.width);
    ASSERT_EQ(target.height, expected.height);
    EXPECT_EQ(FirstDifference(Interleaved(target), expected.rgb), "")
        << width << " x " << height << ", seed " << kSeed;
    EXPECT_EQ(FirstDifference({target.weight.begin(), target.weight.end()}, expected.weight), "")
        << width << " x " << height << ", seed " << kSeed;
  }
}

void ExpectExpands(const Level& source, int targetWidth, int targetHeight) {
  const ExpansionColumns columns(source.width, targetWidth);
  Level target(targetWidth, targetHeight);
  for (int y = 0; y < targetHeight; ++y) {
    UpsampleRgbRow(source, y, targetHeight, columns, target.RgbRow(y));
  }
  const std::vector<float> expected = ReferenceUpsampleRgb(
      Interleaved(source), source.width, source.height, targetWidth, targetHeight);
  EXPECT_EQ(FirstDifference(Interleaved(target), expected), "")
      << source.width << " x " << source.height << " to " << targetWidth << " x " << targetHeight
      << ", seed " << kSeed;
}

void ExpectExpands(int sourceWidth, int sourceHeight, int targetWidth, int targetHeight) {
  std::mt19937 engine(kSeed);
  ExpectExpands(RandomLevel(engine, sourceWidth, sourceHeight), targetWidth, targetHeight);
}

TEST(LevelSizes, HalveFourLevelsAtMost) {
  EXPECT_EQ(LevelSizes(1920, 1080), (SizeList{{1920, 1080}, {960, 540}, {480, 270}, {240, 135}}));
  EXPECT_EQ(LevelSizes(16384, 16384),
            (SizeList{{16384, 16384}, {8192, 8192}, {4096, 4096}, {2048, 2048}}));
}

TEST(LevelSizes, StopAtSixtyFourColumnsOrThirtySixRows) {
  EXPECT_EQ(LevelSizes(100, 100), (SizeList{{100, 100}, {50, 50}}));
  EXPECT_EQ(LevelSizes(65, 37), (SizeList{{65, 37}, {33, 19}}));
  EXPECT_EQ(LevelSizes(65, 36), (SizeList{{65, 36}}));
  EXPECT_EQ(LevelSizes(64, 1000), (SizeList{{64, 1000}}));
  EXPECT_EQ(LevelSizes(1000, 36), (SizeList{{1000, 36}}));
  EXPECT_EQ(LevelSizes(1, 1), (SizeList{{1, 1}}));
}

TEST(LevelSizes, OddSizesRoundUp) {
  EXPECT_EQ(LevelSizes(129, 73), (SizeList{{129, 73}, {65, 37}, {33, 19}}));
  EXPECT_EQ(LevelSizes(257, 145), (SizeList{{257, 145}, {129, 73}, {65, 37}, {33, 19}}));
}

TEST(Downsample, AveragesEveryWidthAsTheReferenceDoes) {
  SizeList sizes;
  for (int width = 1; width <= 40; ++width) {
    sizes.emplace_back(width, 5);
    sizes.emplace_back(width, 4);
  }
  ExpectHalves(sizes, 1);
}

TEST(Downsample, ShrinksTheBoxAtOddEdges) {
  ExpectHalves({{1, 1}, {2, 1}, {1, 2}, {3, 1}, {1, 3}, {3, 3}, {129, 73}, {65, 37}, {33, 19}}, 1);
}

TEST(Downsample, GivesTheSameForEveryNumberOfThreads) {
  for (const unsigned maxThreads : {0U, 1U, 2U, 5U, 8U}) {
    ExpectHalves({{31, 96}, {31, 195}}, maxThreads);
  }
}

TEST(Downsample, DoesNotWeightColours) {
  Level source(2, 2);
  const float red[] = {10.0F, 20.0F, 30.0F, 40.0F};
  const float weights[] = {0.0F, 0.0F, 0.0F, 1.0F};
  std::fill(source.rgb.begin(), source.rgb.end(), 0.0F);
  for (int i = 0; i < 4; ++i) {
    source.RgbRow(i / 2)[i % 2] = red[i];
    source.WeightRow(i / 2)[i % 2] = weights[i];
  }
  Level target(1, 1);
  Downsample(source, target, 1);
  EXPECT_EQ(Interleaved(target), (std::vector<float>{25.0F, 0.0F, 0.0F}));
  EXPECT_EQ(target.weight[0], 0.25F);
}

TEST(UpsampleRgb, DoublesEveryWidthAsTheReferenceDoes) {
  for (int width = 1; width <= 70; ++width) {
    ExpectExpands(width, 5, 2 * width, 10);
  }
  ExpectExpands(960, 3, 1920, 6);
}

// Sums that lie halfway between two floats, or just below a power of two, whatever the exponents.
TEST(UpsampleRgb, RoundsEverySumAsAFloatDoes) {
  std::mt19937 engine(kSeed);
  for (const int spread : {0, 2, 8, 60}) {
    for (int turn = 0; turn < 20; ++turn) {
      Level source(300, 2);
      std::generate(source.rgb.begin(), source.rgb.end(), [&engine, spread] {
        const auto bits = static_cast<std::uint32_t>(engine());
        const std::uint32_t mantissas[] = {bits >> 8, 0xffffffU, 0xffffffU - (bits & 7U),
                                           0x800000U + (bits & 7U)};
        const int exponent = static_cast<int>(engine() % (static_cast<unsigned>(spread) + 1));
        const float size = std::ldexp(static_cast<float>(mantissas[bits >> 4 & 3U]), -exponent);
        return (bits & 1U) != 0 ? size : -size;
      });
      ExpectExpands(source, 600, 4);
    }
  }
}

TEST(UpsampleRgb, ExpandsToOddSizesAsTheReferenceDoes) {
  for (int width = 1; width <= 70; ++width) {
    ExpectExpands(width, 5, 2 * width - 1, 9);
  }
  ExpectExpands(65, 37, 129, 73);
  ExpectExpands(65, 37, 130, 73);
  ExpectExpands(65, 37, 129, 74);
}

TEST(UpsampleRgb, TakesAnyRatio) {
  ExpectExpands(3, 4, 100, 90);
  ExpectExpands(100, 90, 3, 4);
  ExpectExpands(1, 1, 1, 1);
  ExpectExpands(7, 5, 7, 5);
}

TEST(UpsampleRgb, KeepsTheFirstColumnAndAQuarterOfTheLast) {
  Level source(2, 1);
  std::fill(source.rgb.begin(), source.rgb.end(), 0.0F);
  source.RgbRow(0)[0] = 100.0F;
  source.RgbRow(0)[1] = 200.0F;
  std::vector<float> out(12);
  UpsampleRgbRow(source, 0, 2, ExpansionColumns(2, 4), out.data());
  EXPECT_EQ(std::vector<float>(out.begin(), out.begin() + 4),
            (std::vector<float>{100.0F, 125.0F, 175.0F, 200.0F}));
}

TEST(LocateInCoarser, TheFirstRowTakesTheFirstOneAlone) {
  const ExpansionPosition place = LocateInCoarser(0, 20, 10);
  EXPECT_EQ(place.low, 0);
  EXPECT_EQ(place.high, 1);
  EXPECT_EQ(place.fraction, 0.0);
}

TEST(LocateInCoarser, BelowTheLastRowTheFractionStays) {
  const ExpansionPosition place = LocateInCoarser(19, 20, 10);
  EXPECT_EQ(place.low, 9);
  EXPECT_EQ(place.high, 9);
  EXPECT_EQ(place.fraction, 0.25);
}

// What the pass over the finest level builds on: it keeps no more rows than these.
TEST(LocateInCoarser, BothRowsOfAPairLieNextToTheRowTheyWereHalvedTo) {
  for (int height = 1; height <= 16384; ++height) {
    const int coarseHeight = (height + 1) / 2;
    for (int y = 0; y < height; y += height < 300 || y + 2 >= height ? 1 : 37) {
      const ExpansionPosition place = LocateInCoarser(y, height, coarseHeight);
      ASSERT_GE(place.low, std::max(0, y / 2 - 1)) << y << " of " << height;
      ASSERT_LE(place.high, std::min(coarseHeight - 1, y / 2 + 1)) << y << " of " << height;
    }
  }
}

TEST(Level, ChecksItsSize) {
  EXPECT_THROW(Level(0, 1), std::runtime_error);
  EXPECT_THROW(Level(1, 16385), std::runtime_error);
}

}  // namespace

}  // namespace ostrel_native

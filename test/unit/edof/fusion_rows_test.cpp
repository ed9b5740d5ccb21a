#include "edof/fusion_rows.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "reference/fuse_reference.h"
#include "unit/edof/random_stack.h"

namespace ostrel_native {

namespace {

using test::ReferenceByte;
using test::SameFloat;

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

float FloatOf(std::uint32_t bits) {
  float value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// One value in each channel of one pixel.
std::vector<int> Pack(float red, float green, float blue) {
  const float rgb[] = {red, green, blue};
  std::uint8_t rgba[4];
  PackRgbaRow(rgb, 1, rgba);
  return {rgba[0], rgba[1], rgba[2], rgba[3]};
}

void ExpectPacksAsReference(const std::vector<float>& values) {
  const int width = static_cast<int>(values.size());
  std::vector<float> rgb;
  for (int channel = 0; channel < 3; ++channel) {
    rgb.insert(rgb.end(), values.begin(), values.end());
  }
  std::vector<std::uint8_t> rgba(4 * values.size());
  PackRgbaRow(rgb.data(), width, rgba.data());
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t channel = 0; channel < 3; ++channel) {
      ASSERT_EQ(rgba[4 * i + channel], ReferenceByte(values[i])) << std::hexfloat << values[i];
    }
    ASSERT_EQ(rgba[4 * i + 3], 255);
  }
}

TEST(PackRgba, KeepsChannelsApart) {
  EXPECT_EQ(Pack(1.0F, 2.0F, 3.0F), (std::vector<int>{1, 2, 3, 255}));
}

TEST(PackRgba, RoundsHalvesAwayFromZero) {
  EXPECT_EQ(Pack(0.5F, 1.5F, 2.5F), (std::vector<int>{1, 2, 3, 255}));
  EXPECT_EQ(Pack(0.49999997F, 254.5F, 254.49998F), (std::vector<int>{0, 255, 254, 255}));
}

TEST(PackRgba, ClampsToBytes) {
  EXPECT_EQ(Pack(-0.5F, -1000.0F, 255.6F), (std::vector<int>{0, 0, 255, 255}));
  EXPECT_EQ(Pack(256.0F, 3e9F, 9.2e18F), (std::vector<int>{255, 255, 255, 255}));
}

TEST(PackRgba, WhatNoLongHoldsIsBlack) {
  EXPECT_EQ(Pack(kNan, kInfinity, -kInfinity), (std::vector<int>{0, 0, 0, 255}));
  EXPECT_EQ(Pack(9223372036854775808.0F, 3e38F, -3e38F), (std::vector<int>{0, 0, 0, 255}));
}

TEST(PackRgba, RoundsEveryHalfAndItsNeighboursAsLroundfDoes) {
  std::vector<float> values;
  for (int i = -4; i <= 1024; ++i) {
    const float half = static_cast<float>(i) / 4.0F;
    values.push_back(half);
    values.push_back(std::nextafter(half, -kInfinity));
    values.push_back(std::nextafter(half, kInfinity));
  }
  ExpectPacksAsReference(values);
}

TEST(PackRgba, RoundsFloatsOfAllBitPatternsAsLroundfDoes) {
  // An odd step reaches every exponent and both signs; a volume of 4099 takes every float.
  const auto step = static_cast<std::uint32_t>(std::max(1, 4099 / test::TestVolume(1)));
  std::vector<float> values;
  constexpr std::size_t kBatch = 1000;
  for (std::uint64_t bits = 0; bits <= 0xffffffffU; bits += step) {
    values.push_back(FloatOf(static_cast<std::uint32_t>(bits)));
    if (values.size() == kBatch) {
      ExpectPacksAsReference(values);
      values.clear();
    }
  }
  ExpectPacksAsReference(values);
}

TEST(NormalizeLevel, SkipsWhatIsNotAboveTheVanishingWeight) {
  const float tiny = 1e-8F;
  const std::vector<float> weights = {0.0F, tiny,     std::nextafter(tiny, 1.0F), -1.0F, 2.0F,
                                      4.0F, kInfinity};
  const auto width = static_cast<int>(weights.size());
  std::vector<float> rgb(3 * weights.size());
  for (std::size_t i = 0; i < rgb.size(); ++i) {
    rgb[i] = static_cast<float>(i) + 1.0F;
  }
  const std::vector<float> before = rgb;
  NormalizeLevelRow(weights.data(), width, rgb.data());
  for (std::size_t i = 0; i < rgb.size(); ++i) {
    const float weight = weights[i % weights.size()];
    EXPECT_EQ(rgb[i], weight > tiny ? before[i] / weight : before[i]) << i;
  }
}

TEST(NormalizeLevel, DividesByAWeightThatIsNoNumber) {
  const float weight = kNan;
  float rgb[] = {1.0F, 2.0F, 3.0F};
  NormalizeLevelRow(&weight, 1, rgb);
  EXPECT_TRUE(std::isnan(rgb[0]) && std::isnan(rgb[1]) && std::isnan(rgb[2]));
}

TEST(AccumulateBand, SubtractsMultipliesAndAddsInFloats) {
  constexpr unsigned kSeed = 5;
  std::mt19937 engine(kSeed);
  std::uniform_real_distribution<float> numbers(-255.0F, 255.0F);
  for (int width = 1; width <= 37; ++width) {
    const auto count = static_cast<std::size_t>(width);
    std::vector<float> rgb(3 * count);
    std::vector<float> expansion(3 * count);
    std::vector<float> weight(count);
    std::vector<float> rgbSum(3 * count);
    std::vector<float> weightSum(count);
    for (std::vector<float>* const list : {&rgb, &expansion, &weight, &rgbSum, &weightSum}) {
      for (float& value : *list) {
        value = numbers(engine);
      }
    }
    weight[0] = width % 3 == 0 ? kInfinity : 0.0F;
    std::vector<float> expectedRgb = rgbSum;
    std::vector<float> expectedTop = rgbSum;
    std::vector<float> expectedWeight = weightSum;
    for (std::size_t i = 0; i < rgb.size(); ++i) {
      const float w = weight[i % count];
      const float detail = rgb[i] - expansion[i];
      const float weighted = detail * w;
      expectedRgb[i] += weighted;
      const float top = rgb[i] * w;
      expectedTop[i] += top;
    }
    for (std::size_t i = 0; i < count; ++i) {
      expectedWeight[i] += weight[i];
    }
    std::vector<float> topSum = rgbSum;
    std::vector<float> topWeightSum = weightSum;
    AccumulateBandRow(rgb.data(), expansion.data(), weight.data(), width, rgbSum.data(),
                      weightSum.data());
    AccumulateTopRow(rgb.data(), weight.data(), width, topSum.data(), topWeightSum.data());
    EXPECT_EQ(test::FirstDifference(rgbSum, expectedRgb), "") << width << ", seed " << kSeed;
    EXPECT_EQ(test::FirstDifference(weightSum, expectedWeight), "") << width;
    EXPECT_EQ(test::FirstDifference(topSum, expectedTop), "") << width << ", seed " << kSeed;
    EXPECT_EQ(test::FirstDifference(topWeightSum, expectedWeight), "") << width;
  }
}

}  // namespace

}  // namespace ostrel_native

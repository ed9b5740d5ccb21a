#include "simulator/optics.h"

#include <gtest/gtest.h>

#include <cstddef>

#include "simulator/blur_layers.h"

namespace ostrel_simulator {
namespace {

Optics At(int focus, int magnification) {
  return {focus, magnification, 100};
}

TEST(Optics, PixelsAreSmallerTheMoreTheLensMagnifies) {
  EXPECT_NEAR(MicronsPerPixel(50), 0.7, 1e-5);
  EXPECT_NEAR(MicronsPerPixel(20), 1.75, 1e-5);
  EXPECT_EQ(MicronsPerPixel(35), 1);
}

TEST(Optics, StepIsTheSizeOfAPixelAtTheMiddleFocus) {
  EXPECT_EQ(PixelStep(At(128, 35)), 65536);
  EXPECT_EQ(PixelStep(At(128, 50)), 45875);
  EXPECT_EQ(PixelStep(At(128, 200)), 11468);
}

// A larger picture has a smaller step.
TEST(Optics, BreathesBySixtyMillionthsAPosition) {
  EXPECT_EQ(PixelStep(At(0, 35)), 65536 + 4 * 128);
  EXPECT_EQ(PixelStep(At(127, 35)), 65536 + 4);
  EXPECT_EQ(PixelStep(At(255, 35)), 65536 - 4 * 127);
}

TEST(Optics, BlurGrowsWithDistanceAndMagnification) {
  // Ten positions at fifty times: one texel of standard deviation.
  EXPECT_EQ(BlurVariance256(At(128, 50), 160), 64 + 256);
  EXPECT_EQ(BlurVariance256(At(128, 50), 320), 64 + 4 * 256);
  EXPECT_EQ(BlurVariance256(At(128, 100), 160), 64 + 4 * 256);
  EXPECT_EQ(BlurVariance256(At(128, 50), 0), 64);
}

TEST(Optics, SeveralTexelsOnAPixelAreBlurredIntoOne) {
  EXPECT_EQ(BlurVariance256(At(128, 20), 0), 64 + (784 - 256) / 4);
  EXPECT_EQ(BlurVariance256(At(128, 36), 0), 64);
}

TEST(Optics, LookupMixesTheTwoLayersAroundTheBlur) {
  const auto lookup = MakeLayerLookup(At(128, 50));
  ASSERT_EQ(lookup.size(), std::size_t{256 * 16});
  EXPECT_EQ(lookup[0], (64 - 43) * 256 / 128);
  for (std::size_t distance = 0; distance < lookup.size(); ++distance) {
    const std::size_t layer = lookup[distance] / 256U;
    const double weight = lookup[distance] % 256U / 256.0;
    ASSERT_LT(layer + 1, kLayers.size());
    const double mixed =
        kLayers[layer].variance256 * (1 - weight) + kLayers[layer + 1].variance256 * weight;
    const auto wanted =
        static_cast<double>(BlurVariance256(At(128, 50), static_cast<int>(distance)));
    const double finest = (kLayers[layer + 1].variance256 - kLayers[layer].variance256) / 256.0;
    ASSERT_NEAR(mixed, wanted, finest + 1) << distance;
  }
}

TEST(Optics, BlurEndsAtTheSoftestLayer) {
  const auto lookup = MakeLayerLookup(At(128, 220));
  EXPECT_EQ(lookup.back(), (kLayers.size() - 2) * 256 + 255);
}

TEST(Optics, LightGoesFromStrayToFull) {
  EXPECT_EQ(LightGain(0), 8);
  EXPECT_EQ(LightGain(50), 126);
  EXPECT_EQ(LightGain(100), 244);
}

}  // namespace
}  // namespace ostrel_simulator

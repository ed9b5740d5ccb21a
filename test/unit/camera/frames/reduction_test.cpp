#include "camera/frames/reduction.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace ostrel_native {
namespace {

constexpr int kIntMax = std::numeric_limits<std::int32_t>::max();

void ExpectReduction(const Reduction& reduction, int step, int width, int height) {
  EXPECT_EQ(reduction.step, step);
  EXPECT_EQ(reduction.width, width);
  EXPECT_EQ(reduction.height, height);
}

TEST(ReduceToFit, NeverEnlarges) {
  ExpectReduction(ReduceToFit(640, 480, 960, 540), 1, 640, 480);
  ExpectReduction(ReduceToFit(1, 1, 960, 540), 1, 1, 1);
}

TEST(ReduceToFit, KeepsAFrameOfExactlyTheWantedSize) {
  ExpectReduction(ReduceToFit(960, 540, 960, 540), 1, 960, 540);
}

TEST(ReduceToFit, TakesTheSmallestWholeStep) {
  ExpectReduction(ReduceToFit(1920, 1080, 960, 540), 2, 960, 540);
  ExpectReduction(ReduceToFit(3840, 2160, 960, 540), 4, 960, 540);
}

TEST(ReduceToFit, RoundsAFractionUp) {
  ExpectReduction(ReduceToFit(1921, 1080, 960, 540), 3, 640, 360);
  ExpectReduction(ReduceToFit(961, 540, 960, 540), 2, 480, 270);
}

TEST(ReduceToFit, LooksAtBothAxes) {
  ExpectReduction(ReduceToFit(1000, 100, 960, 540), 2, 500, 50);
  ExpectReduction(ReduceToFit(100, 1000, 960, 540), 2, 50, 500);
}

TEST(ReduceToFit, LeavesAtLeastOnePixelOfEachSide) {
  ExpectReduction(ReduceToFit(1920, 1080, 1, 540), 1920, 1, 1);
  ExpectReduction(ReduceToFit(1920, 1080, 0, 0), 1920, 1, 1);
  ExpectReduction(ReduceToFit(kIntMax, 1, 1, 1), kIntMax, 1, 1);
}

}  // namespace
}  // namespace ostrel_native
